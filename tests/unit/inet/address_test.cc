// Internet addresses into native names: the four rules and their order, display names, what cannot be read; and the
// small rules of address text.
#include "inet/address.h"

#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "dr/dr.h"
#include "nm/nm.h"
#include "os/os.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

class InetTest : public testing::Test {
protected:
    void SetUp() override {
        inet_reset();
        dr_reset();
    }
    void TearDown() override {
        inet_reset();
        dr_reset();
        nm_reset();
    }

    // The name, or "-" and the result when there is none.
    std::string convert(std::string_view text) {
        address_ = text;
        std::string name = "left over";
        const int result = inet_uxConvArpaORNToORN(address_, name, false, mapping_, include_);
        EXPECT_EQ(result, name.empty() ? 0 : 1);
        EXPECT_EQ(address_.empty(), name.empty()) << text;
        return name.empty() ? "-" : name;
    }
    void map(std::string_view csv) {
        std::istringstream in{std::string(csv)};
        dr_import("people", in, dr_Format::csv);
        mapping_.DirHandle = dr_OpenDir();
        mapping_.MapDirHandle = dr_open_directory(mapping_.DirHandle, "people");
        mapping_.MapAttribId = "mail";
        mapping_.MapConfigOn = true;
    }

    TestHome home_{"INET_LOCAL_DOMAINS = \"home.example, Other.Example ,,x.org\"\n"};
    mim_Mapping mapping_;
    bool include_ = true;
    std::string address_;
};

struct Row {
    std::string_view text;
    std::string_view name;
    const char* why;
};

TEST_F(InetTest, LocalDomains) {
    const Row rows[] = {
        {"ada@home.example", "/O=home.example/S=ada", "no dot"},
        {"ada.lovelace@home.example", "/O=home.example/S=lovelace/G=ada", "one dot"},
        {"a.b.c@home.example", "/O=home.example/S=a.b.c", "two dots"},
        {".ada@home.example", "/O=home.example/S=.ada", "no text before the dot"},
        {"ada.@home.example", "/O=home.example/S=ada.", "no text behind it"},
        {"Ada.Lovelace@HOME.Example", "/O=home.example/S=Lovelace/G=Ada", "the domain in lower case"},
        {"ada@other.example", "/O=other.example/S=ada", "case and blanks in the key do not count"},
        {"ada", "/S=ada", "no domain"},
        {"ada.lovelace", "/S=lovelace/G=ada", "no domain, one dot"},
        {"\"odd one\"@home.example", "/O=home.example/S=odd one", "quotes are no part of the name"},
        {"a/b@home.example", "/O=home.example/S=a\\/b", "the delimiter in a local part"},
        {"ada@sub.home.example", "/DD.RFC-822=ada(a)sub.home.example", "a subdomain is another domain"},
    };
    for (const Row& row : rows) EXPECT_EQ(convert(row.text), row.name) << row.why;
}

TEST_F(InetTest, WithoutTheKeyTheHostIsLocal) {
    home_.set_keys("");
    std::string host = os_canonical_host_name();
    EXPECT_TRUE(inet_is_local_domain(host));
    EXPECT_EQ(convert("ada@home.example"), "/DD.RFC-822=ada(a)home.example");
}

TEST_F(InetTest, AnEmptyKeyMakesNothingLocal) {
    home_.set_keys("INET_LOCAL_DOMAINS = \"\"\n");
    EXPECT_FALSE(inet_is_local_domain(os_canonical_host_name()));
    EXPECT_FALSE(inet_is_local_domain(""));
}

TEST_F(InetTest, TheKeyIsReadOnce) {
    EXPECT_TRUE(inet_is_local_domain("X.ORG"));
    home_.set_keys("INET_LOCAL_DOMAINS = \"none.example\"\n");
    EXPECT_TRUE(inet_is_local_domain("x.org"));
    inet_reset();
    EXPECT_FALSE(inet_is_local_domain("x.org"));
}

TEST_F(InetTest, PrintableForm) {
    const Row rows[] = {
        {"u@far.example", "/DD.RFC-822=u(a)far.example", "the at sign"},
        {"User@FAR.Example", "/DD.RFC-822=User(a)far.example", "the domain in lower case, the local part not"},
        {"a%b!c_d@far.example", "/DD.RFC-822=a(p)b(b)c(u)d(a)far.example", "letters"},
        {"\"a b\"@far.example", "/DD.RFC-822=(q)a b(q)(a)far.example", "quotes"},
        {"\"(x)\"@far.example", "/DD.RFC-822=(q)(l)x(r)(q)(a)far.example", "parentheses"},
        {"a~b@far.example", "/DD.RFC-822=a(126)b(a)far.example", "three digits"},
        {"\"\\\\\"@far.example", "/DD.RFC-822=(q)(092)(092)(q)(a)far.example", "backslashes"},
        {"u@[1.2.3.4]", "/DD.RFC-822=u(a)(091)1.2.3.4(093)", "a literal"},
        {"a/b='+,-.:?@far.example", "-", "a comma or a colon is no part of an unquoted local part"},
        {"a/b='+-?@far.example", "/DD.RFC-822=a\\/b='+-?(a)far.example", "printable, the delimiter escaped"},
        {"\xC3\xA9@far.example", "/DD.RFC-822=(195)(169)(a)far.example", "8-bit bytes"},
        {"a\x01"
         "b@far.example",
         "/DD.RFC-822=(q)a(001)b(q)(a)far.example", "a control character"},
    };
    for (const Row& row : rows) EXPECT_EQ(convert(row.text), row.name) << row.why;
    nm_state().inet_PrimDelim = 'e';
    EXPECT_EQ(convert("u@far.example"), "eDD.RFC-822=u(a)far.\\exampl\\e") << "another delimiter";
}

TEST_F(InetTest, EncodedNames) {
    const Row rows[] = {
        {"/S=Babbage/G=Charles/O=engine/@far.example", "/O=engine/S=Babbage/G=Charles", "the domain does not count"},
        {"\"/S=Babbage/O=Big Co/\"@far.example", "/O=Big Co/S=Babbage", "quoted"},
        {"/S=Babbage/", "/S=Babbage", "no domain"},
        {"/S=Babbage/CN=Boss/@far.example", "/S=Babbage/CN=Boss", "a CN of its own"},
        {"Ada </S=Babbage/@far.example>", "/S=Babbage/CN=Ada", "a display name"},
        {"Ada </S=Babbage/CN=Boss/@far.example>", "/S=Babbage/CN=Boss", "its own CN goes before the display name"},
        {"/S=Babbage@home.example", "/O=home.example/S=\\/S=Babbage", "not closed: a local part like others"},
        {"/XX=Babbage/@home.example", "/O=home.example/S=\\/XX=Babbage\\/", "a key that is unknown"},
        {"/usr/bin/@home.example", "/O=home.example/S=\\/usr\\/bin\\/", "no keys at all"},
    };
    for (const Row& row : rows) EXPECT_EQ(convert(row.text), row.name) << row.why;
}

TEST_F(InetTest, DisplayNameBecomesCommonName) {
    const Row rows[] = {
        {"Bob Doe <u@far.example>", "/CN=Bob Doe/DD.RFC-822=u(a)far.example", "a phrase"},
        {"u@far.example (Bob Doe)", "/CN=Bob Doe/DD.RFC-822=u(a)far.example", "a comment"},
        {"Bob <u@far.example> (work)", "/CN=Bob/DD.RFC-822=u(a)far.example", "the phrase before the comment"},
        {"\"Doe/Bob\" <ada@home.example>", "/O=home.example/S=ada/CN=Doe\\/Bob", "escaped"},
        {"=?utf-8?q?J=C3=BCrgen?= <u@far.example>", "/CN=J\xC3\xBCrgen/DD.RFC-822=u(a)far.example", "an encoded word"},
        {"=?iso-8859-1?q?J=FCr?= =?iso-8859-1?q?gen_X?= <u@far.example>",
         "/CN=J\xC3\xBCrgen X/DD.RFC-822=u(a)far.example", "two of them, in another set"},
        {"\"=?utf-8?b?w4k=?=\" <u@far.example>", "/CN=\xC3\x89/DD.RFC-822=u(a)far.example", "one in quotes"},
        {"u@far.example (=?utf-8?q?J=C3=BCrgen?=)", "/CN=J\xC3\xBCrgen/DD.RFC-822=u(a)far.example", "one in a comment"},
        {"J\xC3\xBCrgen <u@far.example>", "/CN=J\xC3\xBCrgen/DD.RFC-822=u(a)far.example", "UTF-8 as it is"},
        {"J\xFCrgen <u@far.example>", "/CN=J\xC3\xBCrgen/DD.RFC-822=u(a)far.example", "bytes that are no UTF-8"},
        {"\" \" <u@far.example>", "/DD.RFC-822=u(a)far.example", "a blank name is none"},
        {"=?utf-8?q?a=00b?= <u@far.example>", "/CN=a b/DD.RFC-822=u(a)far.example", "a byte that would end the name"},
    };
    for (const Row& row : rows) EXPECT_EQ(convert(row.text), row.name) << row.why;
}

TEST_F(InetTest, TextWithoutAnAddressIsCommonNameAlone) {
    EXPECT_EQ(convert("Team:;"), "/CN=Team");
    EXPECT_EQ(address_, "Team:;") << "the text stays";
    EXPECT_EQ(convert("=?utf-8?q?=C3=89quipe?=:;"), "/CN=\xC3\x89quipe");
    EXPECT_EQ(convert("Mailer <>"), "/CN=Mailer");
}

TEST_F(InetTest, WhatCannotBeReadEmptiesBoth) {
    for (const char* text : {"", "<>", "@", "u@", "@x.org", "a b@x.org", "\"u@x.org"})
        EXPECT_EQ(convert(text), "-") << text;
}

TEST_F(InetTest, UnreadableAddressesAreLogged) {
    LogLines log(9);
    convert("a b@x.org");
    EXPECT_EQ(log.count("9 100.24071"), 1U);
    EXPECT_NE(log.first("9 100.24071").find("a b@x.org"), std::string::npos);
    convert("<>");
    convert("");
    convert("u@far.example");
    EXPECT_EQ(log.all().size(), 1U) << "the null sender is no failure";
}

TEST_F(InetTest, OnlyAddressesWithOddBytesAreRewritten) {
    convert("Bob <User@FAR.example>");
    EXPECT_EQ(address_, "Bob <User@FAR.example>");
    convert("J\xFCrgen <User@FAR.example> (x)");
    EXPECT_EQ(address_, "User@FAR.example");
    convert("Bob\t<u@far.example>");
    EXPECT_EQ(address_, "u@far.example") << "a tab is a control character";
    convert("Bob\x7F <\"a b\"@far.example>");
    EXPECT_EQ(address_, "\"a b\"@far.example");
}

TEST_F(InetTest, AByteZeroEndsTheAddress) {
    EXPECT_EQ(convert(std::string_view("u@far.example\0x", 15)), "/DD.RFC-822=u(a)far.example");
    EXPECT_EQ(convert(std::string_view("\0u@far.example", 14)), "-");
    EXPECT_EQ(convert(std::string_view("<a.\0b>", 7)), "/S=a.");
}

TEST_F(InetTest, MappingGoesFirst) {
    map("name,mail\n/C=FR/S=Doe,u@far.example\n/C=FR/S=Enc,/S=x/@far.example\n/S=Loc,ada@home.example\n"
        "/S=Both/CN=Boss/IA=i,both@far.example\n");
    const Row rows[] = {
        {"u@far.example", "/C=FR/S=Doe", "before DD.RFC-822"},
        {"U@FAR.EXAMPLE", "/C=FR/S=Doe", "case does not count"},
        {"Bob <u@far.example>", "/C=FR/S=Doe/CN=Bob", "the display name is added"},
        {"/S=x/@far.example", "/C=FR/S=Enc", "before an encoded name"},
        {"ada@home.example", "/S=Loc", "before a local name"},
        {"Bob <both@far.example>", "/S=Both/CN=Boss/IA=i", "unless the entry has a CN"},
        {"v@far.example", "/DD.RFC-822=v(a)far.example", "no entry"},
    };
    for (const Row& row : rows) EXPECT_EQ(convert(row.text), row.name) << row.why;
    include_ = false;
    EXPECT_EQ(convert("both@far.example"), "/S=Both/CN=Boss") << "no Internet address wanted";
    mapping_.MapConfigOn = false;
    EXPECT_EQ(convert("u@far.example"), "/DD.RFC-822=u(a)far.example") << "off";
}

TEST_F(InetTest, LongNamesAreCutAtTheirBound) {
    EXPECT_EQ(convert(std::string(1000, '~') + "@far.example").size(), kNativeNameLimit);
    EXPECT_EQ(convert("a@" + std::string(1000, '~') + ".example").size(), kNativeNameLimit);
}

TEST_F(InetTest, BracketsAreRemoved) {
    EXPECT_EQ(inet_RemoveBrackets("[u@[1.2]]"), "u@1.2");
    EXPECT_EQ(inet_RemoveBrackets("u@x"), "u@x");
    const Row rows[] = {
        {"<u@x>", "u@x", "one pair"},
        {"Bob <u@x> more", "u@x", "what stands around it goes"},
        {"<>", "", "nothing inside"},
        {"<u@x", "u@x", "no pair"},
        {"u@x>", "u@x", "no pair either"},
        {">u@x<", "u@x", "the wrong way round"},
        {"<<u@x>>", "u@x", "two pairs: the characters go"},
        {"a <b> <c>", "a b c", "two pairs side by side"},
        {"u@x", "u@x", "none"},
    };
    for (const Row& row : rows) EXPECT_EQ(inet_RemoveAngleBrackets(row.text), row.name) << row.why;
}

TEST_F(InetTest, BadHeaderCharactersAreReplaced) {
    std::string all, expected;
    for (int c = 0; c < 256; ++c) {
        all.push_back(static_cast<char>(c));
        expected.push_back(c < 0x20 || c >= 0x7F ? '?' : static_cast<char>(c));
    }
    EXPECT_EQ(inet_ReplaceBadHeaderChars(all), expected);
    EXPECT_EQ(inet_ReplaceBadHeaderChars("Message-Id: <a\xE9@x>", 16), "Message-Id: <a?@x>");
}

}  // namespace
