// Reading one Internet address: the forms of RFC 5322, the obsolete ones, and what mailers write besides.
#include "mim/address.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace {

// The parts in one line: "kind phrase|comment|route|localpart|domain", or the kind alone for what cannot be read.
std::string describe(std::string_view text) {
    const mim_Address address = mim_parse_address(text);
    if (address.kind == mim_AddressKind::unreadable) return "unreadable";
    const std::string kind = address.kind == mim_AddressKind::words ? "words " : "address ";
    return kind + address.phrase + '|' + address.comment + '|' + address.route + '|' + address.localpart + '|' +
           address.domain;
}

struct Row {
    const char* text;
    const char* parts;
    const char* why;
};

TEST(AddressTest, Forms) {
    const Row rows[] = {
        {"u@x.org", "address |||u|x.org", "an addr-spec"},
        {"<u@x.org>", "address |||u|x.org", "a path"},
        {"U@X.Org", "address |||U|X.Org", "case stays"},
        {"Bob Doe <u@x.org>", "address Bob Doe|||u|x.org", "a phrase"},
        {"Bob  \t Doe<u@x.org>", "address Bob Doe|||u|x.org",
         "one blank between words, none needed before the bracket"},
        {"\"Doe, Bob\" <u@x.org>", "address Doe, Bob|||u|x.org", "a quoted phrase"},
        {"\"a\\\"b\\\\c\" <u@x.org>", "address a\"b\\c|||u|x.org", "quoted pairs"},
        {"Bob Q. Public <u@x.org>", "address Bob Q. Public|||u|x.org", "a dot in a phrase"},
        {"Bob \"Q\" (the boss) Public <u@x.org>", "address Bob Q Public|the boss||u|x.org", "all kinds of words"},
        {"u@x.org (Bob Doe)", "address |Bob Doe||u|x.org", "a comment behind"},
        {"(Bob) u@x.org", "address |Bob||u|x.org", "a comment before"},
        {"u@x.org ( ) (Bob) (work)", "address |Bob||u|x.org", "the first comment that holds something"},
        {"u@x.org (a (b \\) c) d)", "address |a (b ) c) d||u|x.org", "comments in comments, quoted pairs"},
        {"u (c) @ (d) x . org", "address |c||u|x.org", "comments and blanks between all words"},
        {"<@a.org,@b.org:u@x.org>", "address ||@a.org,@b.org|u|x.org", "a route"},
        {"Bob <@a.org:u@x.org>", "address Bob||@a.org|u|x.org", "a route behind a phrase"},
        {"u@[127.0.0.1]", "address |||u|[127.0.0.1]", "a literal"},
        {"\"a b\"@x.org", "address |||a b|x.org", "a quoted local part"},
        {"\"a@b\"@x.org", "address |||a@b|x.org", "with an at sign in it"},
        {"a.\"b c\".d@x.org", "address |||a.b c.d|x.org", "words of both kinds"},
        {"a\\ b@x.org", "address |||a b|x.org", "a quoted pair outside quotes"},
        {"postmaster", "address |||postmaster|", "no domain"},
        {"<postmaster>", "address |||postmaster|", "no domain in a path"},
        {"/S=a/O=b/@x.org", "address |||/S=a/O=b/|x.org", "an encoded name"},
        {"h!u@x.org", "address |||h!u|x.org", "a bang path"},
        {"\xC3\xA9@x.org", "address |||\xC3\xA9|x.org", "8-bit bytes"},
    };
    for (const Row& row : rows) EXPECT_EQ(describe(row.text), row.parts) << row.why << ": " << row.text;
}

TEST(AddressTest, Tolerance) {
    const Row rows[] = {
        {"<u@x.org", "address |||u|x.org", "the closing bracket is missing"},
        {"Bob <u@x.org", "address Bob|||u|x.org", "behind a phrase too"},
        {"u@x.org>", "address |||u|x.org", "the opening bracket is missing"},
        {"<<u@x.org>>", "address |||u|x.org", "two pairs"},
        {"<u@x.org> (Bob) more", "address |Bob||u|x.org", "text behind"},
        {"A < B <u@x.org>", "address A B|||u|x.org", "a bracket in the phrase"},
        {"a..b.@x.org", "address |||a..b.|x.org", "dots anywhere in the local part"},
        {"u@x.org (Bob", "address |Bob||u|x.org", "an open comment"},
        {"Bob, Esq: the 1st <u@x.org>", "address Bob, Esq: the 1st|||u|x.org", "specials in a phrase"},
        {" u@x.org ", "address |||u|x.org", "blanks around"},
    };
    for (const Row& row : rows) EXPECT_EQ(describe(row.text), row.parts) << row.why << ": " << row.text;
}

TEST(AddressTest, TextWithoutAnAddress) {
    const Row rows[] = {
        {"Team:;", "words Team||||", "an empty group"},
        {"The \"Big\" Team : ;", "words The Big Team||||", "with blanks"},
        {"Bob Doe", "words Bob Doe||||", "two words"},
        {"Bob Q. Doe", "words Bob Q. Doe||||", "with a dot"},
        {"\"Bob Doe\"", "words Bob Doe||||", "quoted, with a blank"},
        {"(Bob)", "words |Bob|||", "a comment alone"},
        {"Bob <>", "words Bob||||", "an empty path with a name"},
    };
    for (const Row& row : rows) EXPECT_EQ(describe(row.text), row.parts) << row.why << ": " << row.text;
}

TEST(AddressTest, Unreadable) {
    const char* const texts[] = {
        "",          " ",          "<>",           "<",           ">",          "@",     "u@",
        "@x.org",    "<@a.org>",   "<@a.org",      "<@a.org:>",   "a b@x.org",  "u@x y", "u@x@y",
        "\"u@x.org", "\"\"@x.org", "a\"b\"@x.org", "u@[1.2",      "u@x.org;",   "a,b",   "Team:a;",
        ":;",        "a:b",        "u@x.org\\",    "u@\"x.org\"", "u@x\\y.org", "<a b>", "<u@x.org y>",
        "[",         "()",
    };
    for (const char* text : texts) EXPECT_EQ(describe(text), "unreadable") << text;
}

TEST(AddressTest, LocalPartIsGivenEvenWhenTheRestCannotBeRead) {
    EXPECT_EQ(mim_parse_address("MAILER-DAEMON@").localpart, "MAILER-DAEMON");
    EXPECT_EQ(mim_parse_address("<MAILER-DAEMON@x y>").localpart, "MAILER-DAEMON");
}

TEST(AddressTest, AddrSpecIsQuotedWhereItMustBe) {
    const Row rows[] = {
        {"u@X.org", "u@X.org", "plain"},
        {"\"u\"@x.org", "u@x.org", "needless quotes"},
        {"\"a b\"@x.org", "\"a b\"@x.org", "a blank"},
        {"\"a\\\"\\\\b\"@x.org", "\"a\\\"\\\\b\"@x.org", "a quote and a backslash"},
        {"\"a@b\"@x.org", "\"a@b\"@x.org", "an at sign"},
        {"a..b@x.org", "a..b@x.org", "two dots"},
        {"<postmaster>", "postmaster", "no domain"},
        {"u (c) @ x . org", "u@x.org", "nothing between"},
    };
    for (const Row& row : rows) {
        std::string text;
        mim_append_addr_spec(text, mim_parse_address(row.text), false);
        EXPECT_EQ(text, row.parts) << row.why;
    }
    std::string lower;
    mim_append_addr_spec(lower, mim_parse_address("User@EXAMPLE.Org"), true);
    EXPECT_EQ(lower, "User@example.org");
}

TEST(AddressTest, DepthAndLengthAreNoMatter) {
    const std::string open(200'000, '(');
    EXPECT_EQ(mim_parse_address("u@x.org " + open).kind, mim_AddressKind::address);
    EXPECT_EQ(mim_parse_address(open + "u@x.org").kind, mim_AddressKind::words);
    EXPECT_EQ(mim_parse_address(std::string(200'000, '<') + "u@x.org").localpart, "u");
    EXPECT_EQ(mim_parse_address(std::string(200'000, '\\')).kind, mim_AddressKind::address);
}

}  // namespace
