// Envelope recipients: the list's growth, conversion, categories; and the conversion of one address.
#include "ux_in/recipients.h"

#include <stdlib.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "dr/dr.h"
#include "er/er.h"
#include "inet/address.h"
#include "nm/nm.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {
bool no_memory = false;  // there is none for a block of recipients
constexpr std::size_t kScarce = 4096;
static_assert(sizeof(RecipientInfo) * ux_RecipientList::kStep >= kScarce);
}  // namespace

// Not inlined: compilers take a free() next to a new for a mistake.
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (no_memory && size >= kScarce) throw std::bad_alloc();
    if (void* memory = std::malloc(size != 0 ? size : 1)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

class RecipientsTest : public testing::Test {
protected:
    void SetUp() override { reset(); }
    void TearDown() override {
        ::unsetenv("INET_NO_IA_IN_ORN");
        reset();
    }
    static void reset() {
        ux_reset_recipients();
        ux_reset_directory();
        inet_reset();
        nm_reset();
    }

    static ux_RecipientList& list() { return ux_recipients().gRecipList; }
    static void add(std::string_view address) { ux_InAddArpaRecipToList(address, "", false, false); }
    // "1 u@x, 3 v@x": category and address of each recipient.
    static std::string categories() {
        std::string text;
        for (const RecipientInfo& entry : list())
            text += (text.empty() ? "" : ", ") + std::to_string(entry.Category) + ' ' + entry.pArpaRecip;
        return text;
    }
    static std::string convert(std::string address) {
        std::string name = "left over";
        ux_InConvArpaORNToORN(address, name, false);
        return name;
    }
    static std::string name_of(std::string_view address) { return "/DD.RFC-822=" + std::string(address); }

    TestHome home_{"INET_LOCAL_DOMAINS = \"home.example\"\n"};
};

TEST_F(RecipientsTest, AnEntryIsAsTheEnvelopeGaveIt) {
    ux_InAddArpaRecipToList("<u@x.org>", "rfc822;orig@x.org", true, true);
    ux_InAddArpaRecipToList("<v@x.org>", "", false, false);
    ASSERT_EQ(list().count(), 2U);
    EXPECT_EQ(list()[0].pArpaRecip, "<u@x.org>");
    EXPECT_TRUE(list()[0].NoNDNWanted);
    EXPECT_TRUE(list()[0].DelAckWanted);
    EXPECT_EQ(list()[0].Category, 3);
    EXPECT_FALSE(list()[0].updated);
    EXPECT_FALSE(list()[0].pX400Recip);
    EXPECT_EQ(list()[0].pOrigRecip, "") << "the original recipient is not kept";
    EXPECT_FALSE(list()[1].NoNDNWanted);
    EXPECT_FALSE(list()[1].DelAckWanted);
}

TEST_F(RecipientsTest, TheListGrowsBySixtyFour) {
    EXPECT_EQ(list().size(), 0U);
    add("a@x.org");
    EXPECT_EQ(list().size(), 64U);
    const RecipientInfo* first = &list()[0];
    for (int i = 1; i < 64; ++i) add("b@x.org");
    EXPECT_EQ(list().size(), 64U);
    add("c@x.org");
    EXPECT_EQ(list().size(), 128U);
    EXPECT_EQ(list().count(), 65U);
    EXPECT_EQ(list()[64].pArpaRecip, "c@x.org");
    EXPECT_EQ(first, &list()[0]) << "nothing moves";
}

TEST_F(RecipientsTest, TheNextListOfASessionHasRoomForMore) {
    add("a@x.org");
    ux_InFreeRecipList();
    EXPECT_FALSE(list().exists());
    EXPECT_EQ(list().count(), 0U);
    EXPECT_EQ(list().size(), 64U) << "left as it was";
    add("b@x.org");
    EXPECT_EQ(list().size(), 128U);
    EXPECT_EQ(list().count(), 1U);
    EXPECT_EQ(list()[0].pArpaRecip, "b@x.org");
    for (int i = 1; i < 128; ++i) add("b@x.org");
    EXPECT_EQ(list().size(), 128U);
    add("b@x.org");
    EXPECT_EQ(list().size(), 192U);
}

TEST_F(RecipientsTest, GrowingAlone) {
    EXPECT_TRUE(ux_InGrowRecipList());
    EXPECT_TRUE(list().exists());
    EXPECT_EQ(list().size(), 64U);
    EXPECT_EQ(list().count(), 0U);
    EXPECT_EQ(list().begin(), list().end());
}

TEST_F(RecipientsTest, AListThatCannotGrowIsAsItWas) {
    for (int i = 0; i < 64; ++i) add("a@x.org");
    no_memory = true;
    const bool grown = ux_InGrowRecipList();
    no_memory = false;
    EXPECT_FALSE(grown);
    EXPECT_EQ(list().size(), 64U);
    EXPECT_EQ(list().count(), 64U);
    add("b@x.org");
    EXPECT_EQ(list().size(), 128U);
}

TEST_F(RecipientsTest, ARecipientThatFindsNoRoomIsAnEscape) {
    for (int i = 0; i < 64; ++i) add("a@x.org");
    int reason = 0;
    no_memory = true;
    try {
        add("b@x.org");
    } catch (const er_Escape& escape) {
        reason = escape.group() == kSystemGroup ? escape.reason() : -1;
    }
    no_memory = false;
    EXPECT_EQ(reason, ENOMEM);
    EXPECT_EQ(list().count(), 64U) << "the list is never written past its capacity";
    er_Reset();
}

TEST_F(RecipientsTest, EveryAddressIsConverted) {
    ux_recipients().G_Relaying = true;
    add("<u@far.example>");
    add("<>");
    add("a b@far.example");
    add("<v@far.example>");
    ux_InMakeX400RecipList();
    EXPECT_EQ(list()[0].pX400Recip, "/DD.RFC-822=u(a)far.example/IA=<u@far.example>");
    EXPECT_FALSE(list()[1].pX400Recip) << "no name";
    EXPECT_FALSE(list()[2].pX400Recip) << "no name";
    EXPECT_EQ(list()[2].pArpaRecip, "a b@far.example") << "the address stays as given";
    EXPECT_EQ(list()[3].pX400Recip, "/DD.RFC-822=v(a)far.example/IA=<v@far.example>");
    EXPECT_TRUE(ux_recipients().G_Relaying) << "all route back";
}

TEST_F(RecipientsTest, ARecipientOfOursEndsRelaying) {
    ux_recipients().G_Relaying = true;
    add("<u@far.example>");
    add("<ada@home.example>");
    add("<v@far.example>");
    ux_InMakeX400RecipList();
    EXPECT_FALSE(ux_recipients().G_Relaying);
}

TEST_F(RecipientsTest, CategoriesComeFromTheHeader) {
    for (const char* address : {"a@x.org", "b@x.org", "c@x.org"}) add(address);
    ux_InMakeX400RecipList();
    EXPECT_EQ(categories(), "3 a@x.org, 3 b@x.org, 3 c@x.org");
    ux_InUpdateRecipCategory(name_of("B(A)X.ORG"), 2);
    EXPECT_EQ(categories(), "3 a@x.org, 2 b@x.org, 3 c@x.org") << "case does not count";
    ux_InUpdateRecipCategory(name_of("b(a)x.org"), 1);
    EXPECT_EQ(categories(), "3 a@x.org, 2 b@x.org, 3 c@x.org") << "the first field that names it decides";
    ux_InUpdateRecipCategory("/CN=Chris" + name_of("c(a)x.org") + "/IA=other", 1);
    EXPECT_EQ(categories(), "3 a@x.org, 2 b@x.org, 1 c@x.org") << "CN and IA do not count";
    ux_InUpdateRecipCategory(name_of("d(a)x.org"), 1);
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 0);
    EXPECT_FALSE(list()[0].updated) << "From is no category of a recipient";
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 3);
    EXPECT_TRUE(list()[0].updated);
    EXPECT_EQ(categories(), "3 a@x.org, 2 b@x.org, 1 c@x.org");
}

TEST_F(RecipientsTest, EqualRecipientsAreCategorisedOnePerMention) {
    for (const char* address : {"a@x.org", "b@x.org", "A@X.org", "a@x.org"}) add(address);
    ux_InMakeX400RecipList();
    const std::string name = name_of("a(a)x.org");
    ux_InUpdateRecipCategory(name, 1);
    EXPECT_EQ(categories(), "1 a@x.org, 3 b@x.org, 3 A@X.org, 3 a@x.org");
    ux_InUpdateRecipCategory(name, 2);
    EXPECT_EQ(categories(), "1 a@x.org, 3 b@x.org, 2 A@X.org, 3 a@x.org") << "in list order";
    ux_InUpdateRecipCategory(name, 3);
    ux_InUpdateRecipCategory(name, 1);
    EXPECT_EQ(categories(), "1 a@x.org, 3 b@x.org, 2 A@X.org, 3 a@x.org") << "no more than there are";
}

TEST_F(RecipientsTest, CategoriesOfTheNextMessageStartAfresh) {
    add("a@x.org");
    ux_InMakeX400RecipList();
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 1);
    ux_InFreeRecipList();
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 1);
    add("b@x.org");
    add("a@x.org");
    ux_InMakeX400RecipList();
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 2);
    EXPECT_EQ(categories(), "3 b@x.org, 2 a@x.org");
}

TEST_F(RecipientsTest, WithoutNamesNothingIsFound) {
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 1);
    add("a@x.org");
    ux_InUpdateRecipCategory(name_of("a(a)x.org"), 1);
    EXPECT_EQ(categories(), "3 a@x.org") << "not converted yet";
}

TEST_F(RecipientsTest, AsManyUpdatesAsRecipientsCostNoMoreEach) {
    const auto time = [](int count, bool same) {
        ux_reset_recipients();
        for (int i = 0; i < count; ++i) add("u" + std::to_string(same ? 0 : i) + "@x.org");
        ux_InMakeX400RecipList();
        const auto start = std::chrono::steady_clock::now();
        for (int i = 0; i < count; ++i)
            ux_InUpdateRecipCategory(name_of("u" + std::to_string(same ? 0 : i) + "(a)x.org"), 1);
        const auto spent = std::chrono::steady_clock::now() - start;
        for (const RecipientInfo& entry : list()) EXPECT_EQ(entry.Category, 1);
        return std::chrono::duration<double>(spent).count();
    };
    for (const bool same : {false, true}) {
        time(1'000, same);
        EXPECT_LT(time(32'000, same), 2.0) << "a walk over the list for each would take minutes";
    }
}

TEST_F(RecipientsTest, TheAddressGoesIntoFieldIA) {
    EXPECT_EQ(convert("Bob <u@far.example>"), "/CN=Bob/DD.RFC-822=u(a)far.example/IA=Bob <u@far.example>");
    EXPECT_EQ(convert("a/b@far.example"), "/DD.RFC-822=a\\/b(a)far.example/IA=a\\/b@far.example");
    EXPECT_EQ(convert("Team:;"), "/CN=Team/IA=Team:;");
    EXPECT_EQ(convert("J\xC3\xBCrgen <U@FAR.example>"), "/CN=J\xC3\xBCrgen/DD.RFC-822=U(a)far.example/IA=U@FAR.example")
        << "an 8-bit byte: the addr-spec alone";
    EXPECT_EQ(convert("Bob\x01 <u@far.example>"), "/CN=Bob\x01/DD.RFC-822=u(a)far.example/IA=u@far.example")
        << "a control character too";
    EXPECT_EQ(convert("<>"), "");
}

TEST_F(RecipientsTest, TheKeyOrTheVariableKeepsFieldIAOut) {
    struct Row {
        const char* key;       // of gateway.toml; null: not set
        const char* variable;  // null: not set
        bool wanted;
    };
    const Row rows[] = {
        {nullptr, nullptr, true}, {"true", nullptr, false}, {"false", nullptr, true},
        {nullptr, "True", false}, {nullptr, "t", false},    {nullptr, "1", true},
        {nullptr, "", true},      {"false", "true", false}, {"true", "false", false},
    };
    for (const Row& row : rows) {
        ux_reset_recipients();
        home_.set_keys(row.key != nullptr ? "INET_NO_IA_IN_ORN = " + std::string(row.key) + "\n" : "");
        row.variable != nullptr ? ::setenv("INET_NO_IA_IN_ORN", row.variable, 1) : ::unsetenv("INET_NO_IA_IN_ORN");
        EXPECT_EQ(convert("u@far.example"),
                  row.wanted ? "/DD.RFC-822=u(a)far.example/IA=u@far.example" : "/DD.RFC-822=u(a)far.example")
            << (row.key != nullptr ? row.key : "-") << ' ' << (row.variable != nullptr ? row.variable : "-");
    }
}

TEST_F(RecipientsTest, TheDecisionIsTakenOnce) {
    convert("u@far.example");
    ::setenv("INET_NO_IA_IN_ORN", "true", 1);
    EXPECT_EQ(convert("u@far.example"), "/DD.RFC-822=u(a)far.example/IA=u@far.example");
}

TEST_F(RecipientsTest, LongAddressesAreNotConverted) {
    LogLines log(7);
    const std::string domain = "@far.example";
    const std::string fits = std::string(1024 - domain.size(), 'a') + domain;
    EXPECT_TRUE(convert(fits).starts_with("/DD.RFC-822=aaa"));
    EXPECT_TRUE(log.all().empty());
    std::string address = 'a' + fits, name = "left over";
    EXPECT_EQ(ux_InConvArpaORNToORN(address, name, false), 0);
    EXPECT_EQ(address, "");
    EXPECT_EQ(name, "");
    ASSERT_EQ(log.all().size(), 2U);
    EXPECT_TRUE(log.all()[0].starts_with("7 102.1505 "));
    EXPECT_NE(log.all()[0].find('a' + fits), std::string::npos);
    EXPECT_TRUE(log.all()[1].starts_with("7 102.1418"));
}

TEST_F(RecipientsTest, ConversionTellsItsResult) {
    std::string address = "u@far.example", name;
    EXPECT_EQ(ux_InConvArpaORNToORN(address, name, true), 1);
    address = "a b@far.example";
    EXPECT_EQ(ux_InConvArpaORNToORN(address, name, false), 0);
    EXPECT_EQ(address, "");
}

TEST_F(RecipientsTest, MappingIsThatOfTheProcess) {
    std::istringstream in("name,mail\n/C=FR/S=Doe,u@far.example\n");
    dr_import("people", in, dr_Format::csv);
    home_.set_keys("UXI_NAME_MAPPING = \"people:mail\"\n");
    ux_directory().DirHandle = dr_OpenDir();
    ux_directory().MapConfigOn = mim_ChkMappingConfig("UXI_NAME_MAPPING", ux_directory());
    EXPECT_EQ(convert("<u@far.example>"), "/C=FR/S=Doe/IA=<u@far.example>");
    dr_reset();
}

TEST_F(RecipientsTest, NullSenders) {
    struct Row {
        const char* name;
        bool null;
        bool daemon;
        const char* why;
    };
    const Row rows[] = {
        {"", true, false, "no name"},
        {"<>", true, false, "the null path"},
        {"< >", true, false, "nothing in it"},
        {"@x.org", true, false, "no local part"},
        {"<@x.org>", true, false, "in a path"},
        {"\"\"@x.org", true, false, "an empty one"},
        {"u@x.org", false, false, "a name"},
        {"<u>", false, false, "without a domain"},
        {"MAILER-DAEMON@x.org", false, true, "the daemon"},
        {"<MAILER-DAEMON>", false, true, "without a domain"},
        {"Mail <MAILER-DAEMON@x.org>", false, true, "with a display name"},
        {"MAILER-DAEMON-2@x.org", false, true, "its beginning counts"},
        {"mailer-daemon@x.org", false, false, "in capitals only"},
        {"MAILER-DAEMO@x.org", false, false, "all of it"},
        {"X-MAILER-DAEMON@x.org", false, false, "at the start"},
    };
    for (const Row& row : rows) {
        bool daemon = true;
        EXPECT_EQ(ux_IsNullName(row.name, &daemon), row.null) << row.why;
        EXPECT_EQ(daemon, row.daemon) << row.why;
        EXPECT_EQ(ux_IsNullName(row.name, nullptr), row.null) << row.why;
    }
}

}  // namespace
