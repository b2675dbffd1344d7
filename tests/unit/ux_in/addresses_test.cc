// Address lists: splitting, groups, the repair of quotes, records and categories, bounds, lists in pieces.
#include "ux_in/addresses.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "inet/address.h"
#include "nm/nm.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "ux_in/recipients.h"
#include "ux_in/records.h"

namespace {

constexpr std::size_t kNone = std::string::npos;

class AddressesTest : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
    static void reset() {
        ux_reset_addresses();
        ux_reset_recipients();
        ux_reset_directory();
        inet_reset();
    }

    ux_ArpaListTarget target(std::int32_t type, bool wrap = false) {
        return {main_, list_, type, wrap, first_from_, sender_};
    }
    void parse(std::string_view text, std::int32_t type = TFREC_list_to, bool wrap = false) {
        ux_InParseArpaList(text, target(type, wrap));
    }
    // The records of a file, one per line: type and name; wrapped ones in parentheses.
    static std::string records(tf_File& file) {
        std::string text;
        tf_Record record;
        tf_UnreadFile(file);
        while (tf_ReadRecord(file, record)) {
            const bool wrapped = record.type() == TFREC_wrapped;
            if (wrapped) tf_ChangeFromWrapRec(record);
            EXPECT_EQ(record.get16(14), 40);
            const std::string line =
                std::to_string(record.type()) + ' ' + std::string(record.get_string(ux::ListEntryLayout::name));
            text += (text.empty() ? "" : "\n") + (wrapped ? '(' + line + ')' : line);
        }
        return text;
    }
    // The addresses that a list was split into, as field IA gives them back, parted by "|".
    std::string addresses(std::string_view text) {
        list_ = tf_CreateFile();
        parse(text);
        return addresses_of(list_);
    }
    static std::string addresses_of(tf_File& file) {
        std::string all;
        tf_Record record;
        tf_UnreadFile(file);
        while (tf_ReadRecord(file, record)) {
            const std::string name(record.get_string(ux::ListEntryLayout::name));
            all += (all.empty() ? "" : "|") + nm_get_field(name, nm_ParseORN(name), kNmInternetAddress);
        }
        return all;
    }

    TestHome home_{"INET_LOCAL_DOMAINS = \"home.example\"\n"};
    tf_File main_ = tf_CreateFile(), list_ = tf_CreateFile();
    std::string first_from_, sender_;
};

TEST_F(AddressesTest, Splitting) {
    struct Row {
        std::string_view line;
        std::ptrdiff_t advance;
        const char* text;
        std::size_t separator, terminator;
        const char* why;
    };
    const Row rows[] = {
        {"", -1, "", kNone, kNone, "an empty line"},
        {"a", 1, "a", kNone, kNone, "the last address"},
        {"a,b", 2, "a", kNone, kNone, "a comma"},
        {"a \t, ,\r\n b", 9, "a \t", kNone, kNone, "commas and blanks behind it"},
        {", b", 2, "", kNone, kNone, "nothing before the comma"},
        {"a, ", 3, "a", kNone, kNone, "nothing behind it"},
        {"\"a,b\" <c>,d", 10, "\"a,b\" <c>", kNone, kNone, "a comma in quotes"},
        {"\"a\\\",b\",d", 8, "\"a\\\",b\"", kNone, kNone, "an escaped quote"},
        {"a (b,(c,)d,),e", 13, "a (b,(c,)d,)", kNone, kNone, "commas in comments"},
        {"(\",\"),e", 6, "(\",\")", kNone, kNone, "quotes in a comment are nothing, the comment holds the comma"},
        {"<@a,@b:c>,d", 4, "<@a", kNone, kNone, "a comma between angle brackets ends the address"},
        {"T: a, b;", 6, "T: a", 1, kNone, "a group begins"},
        {"b; , c", 5, "b; ", kNone, 1, "a group ends"},
        {"T:;", 3, "T:;", 1, 2, "a group without members"},
        {"a;b;c", 5, "a;b;c", kNone, 1, "the first terminator counts"},
        {"T:a;U:b", 7, "T:a;U:b", 5, kNone, "the last separator counts and clears the terminator"},
        {"\"T:\" (;:) a", 11, "\"T:\" (;:) a", kNone, kNone, "not in quotes or comments"},
        {"a), b", 4, "a)", kNone, kNone, "a closing parenthesis alone"},
        {"a\"b, c", 6, "a\"b, c", kNone, kNone, "an open quote goes to the end"},
        {"a(b, c", 6, "a(b, c", kNone, kNone, "an open comment too"},
        {"\\\"a, b", 6, "\\\"a, b", kNone, kNone, "a backslash outside quotes escapes nothing"},
    };
    for (const Row& row : rows) {
        const ux_SplitAddress split = splitAddresses(row.line);
        EXPECT_EQ(split.advance, row.advance) << row.why;
        EXPECT_EQ(split.text, row.text) << row.why;
        EXPECT_EQ(split.ppGroupSeparator, row.separator) << row.why;
        EXPECT_EQ(split.ppGroupTerminator, row.terminator) << row.why;
    }
}

TEST_F(AddressesTest, DoubledBackslashBeforeAQuoteIsRepaired) {
    struct Row {
        std::string_view line;
        const char* text;
        const char* why;
    };
    const Row rows[] = {
        {R"("a\\" <b>, c)", R"("a\\" <b>)", "a name that ends in a backslash"},
        {"\"a\\\\\" \t\r\n<b>, c", "\"a\\\\\" \t\r\n<b>", "any blanks before the bracket"},
        {R"("a\\"<b>, c)", R"("a\\"<b>)", "or none"},
        {R"("a\\" b" <c>, d)", R"("a\" b" <c>)", "the quote is escaped, the name goes on"},
        {R"("a\\", b" <c>, d)", R"("a\", b" <c>)", "a comma does not end it"},
        {R"("a\\")", R"("a\")", "the end of the text is no bracket"},
        {R"("a\\"   )", R"("a\"   )", "behind blanks neither"},
        {"\"a\\\\\" \x1B<b>\", c", "\"a\\\" \x1B<b>\"", "an escape code is not passed over"},
        {"\"a\\\\\" \x0E<b>\", c", "\"a\\\" \x0E<b>\"", "nor are shifts"},
        {"\"a\\\\\" \x19<b>\", c", "\"a\\\" \x19<b>\"", "nor single shifts"},
        {"\"a\\\\\" \x01<b>, c", "\"a\\\\\" \x01<b>", "other controls are"},
        {R"("a\\\" b" <c>, d)", R"("a\\\" b" <c>)", "three backslashes: a pair and an escaped quote"},
        {R"("a\\\\" <c>, d)", R"("a\\\\" <c>)", "four: two pairs"},
        {R"("a\\\\" b" <c>, d)", R"("a\\\" b" <c>)", "four, and no bracket"},
        {R"("a\\b", c)", R"("a\\b")", "no quote behind the pair"},
        {R"("\\" x" "\\" y" <c>)", R"("\" x" "\" y" <c>)", "twice"},
    };
    for (const Row& row : rows) EXPECT_EQ(splitAddresses(row.line).text, row.text) << row.why;
}

TEST_F(AddressesTest, ListsAreSplitIntoAddresses) {
    struct Row {
        std::string_view list;
        const char* addresses;
        const char* why;
    };
    const Row rows[] = {
        {"", "", "an empty list"},
        {" ,, , ", "", "a list of nothing"},
        {"alpha, , beta", "alpha|beta", "nothing between commas"},
        {"  alpha  ,beta,", "alpha|beta", "blanks around"},
        {"Team: alpha, beta;", "alpha|beta", "the members of a group"},
        {"Team: alpha, beta; , gamma", "alpha|beta|gamma", "and more behind it"},
        {"Team: alpha;", "alpha", "a group of one"},
        {"Team:;", "Team:;", "a group without members"},
        {"Team :  ; , beta", "Team :;|beta", "with blanks"},
        {"A:B:;", "", "a name that cannot be read"},
        {"Team: ;x, beta", "Team:;|beta", "what stands behind the terminator goes"},
        {"alpha; x, beta", "alpha|beta", "also without a separator"},
        {"a:b:alpha", "alpha", "the last separator counts"},
        {"<@relay.org:u@x.org>", "u@x.org>", "a route is taken for a group's name"},
        {"Team: Al <al@x.org>, Bo <bo@x.org>;", "Al <al@x.org>|Bo <bo@x.org>", "members with names"},
        {"a b@x.org, beta", "beta", "what cannot be read makes no record"},
        {"<>, beta", "beta", "an empty path neither"},
    };
    for (const Row& row : rows) EXPECT_EQ(addresses(row.list), row.addresses) << row.why;
}

TEST_F(AddressesTest, EveryAddressMakesARecord) {
    parse("Bob <u@far.example>, ada@home.example");
    EXPECT_EQ(records(list_),
              "22100 /CN=Bob/DD.RFC-822=u(a)far.example/IA=Bob <u@far.example>\n"
              "22100 /O=home.example/S=ada/IA=ada@home.example");
    EXPECT_EQ(records(main_), "");
}

TEST_F(AddressesTest, TheTypeDecidesRecordAndCategory) {
    struct Row {
        std::int32_t type;
        int category;
        bool updated;
    };
    const Row rows[] = {
        {TFREC_list_from, 3, false}, {TFREC_list_to, 1, true},     {TFREC_list_cc, 2, true},
        {TFREC_list_bcc, 3, true},   {TFREC_list_sender, 1, true}, {TFREC_list_reply_to, 1, true},
    };
    for (const Row& row : rows) {
        reset();
        list_ = tf_CreateFile();
        ux_InAddArpaRecipToList("<u@far.example>", "", false, false);
        ux_InMakeX400RecipList();
        parse("U@far.example", row.type);
        EXPECT_EQ(records(list_), std::to_string(row.type) + " /DD.RFC-822=U(a)far.example/IA=U@far.example");
        EXPECT_EQ(ux_recipients().gRecipList[0].Category, row.category) << row.type;
        EXPECT_EQ(ux_recipients().gRecipList[0].updated, row.updated) << row.type;
    }
}

TEST_F(AddressesTest, ReplyToRecordsGoToTheMainFile) {
    ux_InAddArpaRecipToList("u", "", false, false);
    ux_InMakeX400RecipList();
    parse("u", TFREC_reply_to);
    parse("u", TFREC_reply_to, true);
    EXPECT_EQ(records(main_), "15000 /S=u/IA=u\n(15000 /S=u/IA=u)");
    EXPECT_EQ(records(list_), "");
    EXPECT_FALSE(ux_recipients().gRecipList[0].updated);
}

TEST_F(AddressesTest, FirstFromAndSender) {
    parse("a@x.org, b@x.org", TFREC_list_to);
    EXPECT_EQ(first_from_ + sender_, "");
    parse(" , Al <a@x.org> , b@x.org", TFREC_list_from);
    parse("c@x.org", TFREC_list_from);
    EXPECT_EQ(first_from_, "Al <a@x.org>");
    EXPECT_EQ(sender_, "");
    parse("Team: d@x.org", TFREC_list_sender);
    parse("e@x.org", TFREC_list_sender);
    EXPECT_EQ(sender_, "d@x.org");
    first_from_.clear();
    parse("a b@x.org", TFREC_list_from);
    EXPECT_EQ(first_from_, "a b@x.org") << "before anybody knows whether it can be read";
}

TEST_F(AddressesTest, LongAddressesAreLoggedAndDropped) {
    const std::string domain = "@x.org";
    const std::string fits = std::string(1024 - domain.size(), 'a') + domain, too_long = 'a' + fits;
    LogLines log(11);
    parse(fits + ", b@x.org", TFREC_list_from);
    EXPECT_EQ(first_from_, fits);
    EXPECT_TRUE(log.all().empty());
    first_from_.clear();
    list_ = tf_CreateFile();
    parse("  " + too_long + "  , b@x.org", TFREC_list_from);
    EXPECT_EQ(first_from_, "b@x.org");
    EXPECT_EQ(addresses_of(list_), "b@x.org");
    ASSERT_EQ(log.all().size(), 3U);
    EXPECT_TRUE(log.all()[0].starts_with("11 100.24070 "));
    EXPECT_NE(log.all()[0].find("ux_InParseArpaList: pArpaORN(too-long)='"), std::string::npos);
    EXPECT_NE(log.all()[0].find(too_long), std::string::npos);
    EXPECT_TRUE(log.all()[1].starts_with("7 102.1505 "));
    EXPECT_TRUE(log.all()[2].starts_with("7 102.1418"));
}

TEST_F(AddressesTest, BlanksDoNotMakeAnAddressLong) {
    const std::string blanks(5000, ' ');
    EXPECT_EQ(addresses(blanks + "alpha" + blanks + "," + blanks + "beta" + blanks), "alpha|beta");
    EXPECT_EQ(addresses("Team:" + blanks + "alpha" + blanks + ";" + blanks), "alpha");
    EXPECT_EQ(addresses("Team:" + blanks + ";" + blanks), "Team:;");
    EXPECT_EQ(addresses("alpha" + blanks + "x@x.org,beta"), "beta") << "inside they do";
    EXPECT_EQ(addresses(std::string(5000, 'n') + ":alpha"), "alpha") << "nor does a group's name";
    EXPECT_EQ(addresses(std::string(5000, 'n') + ":;,beta"), "beta") << "unless it is the address";
    EXPECT_EQ(addresses(std::string(1022, 'n') + ":;").size(), 1024U);
    EXPECT_EQ(addresses(std::string(1023, 'n') + ":;"), "");
    EXPECT_EQ(addresses("alpha;" + std::string(5000, 'x') + ",beta"), "alpha|beta") << "nor what is cut off behind it";
}

TEST_F(AddressesTest, ARepairMayMakeAnAddressFit) {
    const std::string name = R"("\\" ")";  // one backslash goes
    const std::string mailbox = "<a@x.org>";
    const std::string fill(1025 - name.size() - mailbox.size(), 'f');
    const std::string repaired = R"("\" ")" + fill + mailbox;
    ASSERT_EQ(repaired.size(), 1024U);
    EXPECT_EQ(addresses(name + fill + mailbox), repaired);
    EXPECT_EQ(addresses(name + fill + 'f' + mailbox), "");
}

TEST_F(AddressesTest, TheFirstFromThatIsTheEnvelopeSenderIsSuppressed) {
    home_.set_keys("UXI_SUPPRESS_SENDER_FROM = true\nINET_LOCAL_DOMAINS = \"home.example\"\n");
    const std::string sender = "/DD.RFC-822=s(a)x.org/IA=s@x.org";
    ux_addresses().ArpaSenderORN = sender;
    parse("s@x.org", TFREC_list_to);
    EXPECT_EQ(ux_addresses().ArpaSenderORN, sender) << "only From";
    list_ = tf_CreateFile();
    parse("S@x.org, other@x.org, s@x.org, s@x.org", TFREC_list_from);
    EXPECT_EQ(addresses_of(list_), "S@x.org|other@x.org|s@x.org") << "exactly equal, once";
    EXPECT_EQ(ux_addresses().ArpaSenderORN, "");
    EXPECT_EQ(first_from_, "S@x.org");
}

TEST_F(AddressesTest, ASuppressedFromIsStillTheFirst) {
    home_.set_keys("UXI_SUPPRESS_SENDER_FROM = true\n");
    ux_addresses().ArpaSenderORN = "/DD.RFC-822=s(a)x.org/IA=s@x.org";
    parse("s@x.org, t@x.org", TFREC_list_from);
    EXPECT_EQ(first_from_, "s@x.org");
    EXPECT_EQ(addresses_of(list_), "t@x.org");
}

TEST_F(AddressesTest, NothingIsSuppressedWithoutTheKey) {
    ux_addresses().ArpaSenderORN = "/DD.RFC-822=s(a)x.org/IA=s@x.org";
    parse("s@x.org", TFREC_list_from);
    EXPECT_EQ(addresses_of(list_), "s@x.org");
    EXPECT_NE(ux_addresses().ArpaSenderORN, "");
    home_.set_keys("UXI_SUPPRESS_SENDER_FROM = true\n");
    parse("s@x.org", TFREC_list_from);
    EXPECT_EQ(addresses_of(list_), "s@x.org|s@x.org") << "the key is read once";
}

TEST_F(AddressesTest, TheListIsLoggedWholeAndFirst) {
    LogLines log(12);
    ux_ArpaListParser list(target(TFREC_list_to));
    list.feed("alpha,");
    list.feed(" a b@x.org");
    list.finish();
    ASSERT_GE(log.all().size(), 2U);
    EXPECT_TRUE(log.all()[0].starts_with("12 100.24070 "));
    EXPECT_NE(log.all()[0].find("ux_InParseArpaList: pArpaORNList='"), std::string::npos);
    EXPECT_NE(log.all()[0].find("alpha, a b@x.org"), std::string::npos);
    EXPECT_EQ(addresses_of(list_), "alpha");
}

TEST_F(AddressesTest, PiecesGiveWhatTheWholeGives) {
    const std::string_view lists[] = {
        R"("a\\" b" <c@x.org>, "d\\"  <e@x.org>, "f\\")",
        "Team: Al <al@x.org>, bo (x,(y)) , ; , Empty :  ; c@x.org; rest, \"q,\\\"\" <q@x.org>",
        ", ,a:b:c, <@r.org,@s.org:u@x.org>",
    };
    for (const std::string_view list : lists) {
        const std::string whole = addresses(list);
        for (std::size_t first = 0; first <= list.size(); ++first) {
            for (const std::size_t length : {std::size_t{1}, std::size_t{3}, list.size()}) {
                list_ = tf_CreateFile();
                ux_ArpaListParser parser(target(TFREC_list_to));
                parser.feed(list.substr(0, first));
                for (std::size_t at = first; at < list.size(); at += length) parser.feed(list.substr(at, length));
                parser.finish();
                EXPECT_EQ(addresses_of(list_), whole) << list << " at " << first << " by " << length;
            }
        }
    }
}

TEST_F(AddressesTest, WhatIsHeldIsBounded) {
    ux::AddressPiece piece;
    for (int i = 0; i < 1000; ++i) {
        piece.append(std::string(1000, i % 7 == 0 ? ' ' : 'x'));
        if (i % 100 == 50) {
            piece.append(":");
            piece.separator();
        }
        ASSERT_LE(piece.text().size(), 4096U);
    }
    EXPECT_TRUE(piece.too_long());
}

TEST_F(AddressesTest, LongListsCostTheSameForEachAddress) {
    const auto time = [&](int count) {
        list_ = tf_CreateFile();
        std::string text;
        for (int i = 0; i < count; ++i)
            text += "User Number " + std::to_string(i) + " <u" + std::to_string(i) + "@x.org>,\n ";
        const auto start = std::chrono::steady_clock::now();
        parse(text);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    time(1'000);
    EXPECT_LT(time(100'000), 10.0) << "text moved or looked at again for each address would take minutes";
}

TEST_F(AddressesTest, OneEndlessAddressIsLinearToo) {
    const auto start = std::chrono::steady_clock::now();
    for (const char* unit : {"(", "\"\\\\\" ", ":", ";", " ", "\\", "\"", "<", ":;", "a:  "}) {
        std::string text;
        while (text.size() < 1'000'000) text += unit;
        parse(text);
    }
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 10.0);
}

}  // namespace
