// The text of steering files: what is read, what is refused and where, what is passed over.
#include "cvr/steering.h"

#include <string>

#include <gtest/gtest.h>

namespace {

struct Outcome {
    std::optional<Steering> steering;
    SteeringError error;
    std::vector<SteeringError> warnings;
};

Outcome parse(std::string_view text) {
    Outcome outcome;
    outcome.steering = parse_steering(text, outcome.error, outcome.warnings);
    return outcome;
}

constexpr std::string_view kEverything = R"(
[[target]]
from = "ISO-8859-15"
type = 1167
to = "utf-8"

[[target]]
from = "*"
to = "X-Own"

[[convert]]
type = 2133
from = "*"
to_type = 1167
to = "UTF8"
converter = "html2txt"

[[discard]]
type = 9999
from = "*"

[converter.html2txt]
command = ["/usr/bin/w3m", "-T", "text/html", "-dump"]

[converter.12345678]
command = ["cat"]
timeout = 3600
)";

TEST(Steering, IsReadWhole) {
    const Outcome outcome = parse(kEverything);
    ASSERT_TRUE(outcome.steering) << outcome.error.what;
    EXPECT_TRUE(outcome.warnings.empty());
    const Steering& steering = *outcome.steering;
    ASSERT_EQ(steering.targets.size(), 2u);
    EXPECT_EQ(steering.targets[0].match.from, "ISO8859_15") << "by its native name";
    EXPECT_EQ(steering.targets[0].match.type, 1167);
    EXPECT_EQ(steering.targets[0].to, "UTF8");
    EXPECT_EQ(steering.targets[1].match.type, 0);
    EXPECT_EQ(steering.targets[1].to, "X-Own") << "a set that is not known stays";
    ASSERT_EQ(steering.converts.size(), 1u);
    EXPECT_EQ(steering.converts[0].to_type, 1167);
    EXPECT_EQ(steering.converts[0].converter, "html2txt");
    ASSERT_EQ(steering.discards.size(), 1u);
    EXPECT_EQ(steering.discards[0].type, 9999);
    ASSERT_EQ(steering.converters.size(), 2u);
    EXPECT_EQ(steering.converters.at("html2txt").command.size(), 4u);
    EXPECT_EQ(steering.converters.at("html2txt").timeout, std::chrono::seconds(60));
    EXPECT_EQ(steering.converters.at("12345678").timeout, std::chrono::seconds(3600));
}

TEST(Steering, MayBeEmpty) {
    for (const char* text : {"", "# nothing\n", "\n\n"}) EXPECT_TRUE(parse(text).steering) << text;
}

struct BadRow {
    std::string_view text;
    unsigned line;
    std::string_view says;  // somewhere in the complaint
};

constexpr BadRow kBadRows[] = {
    {"[[target]]\nfrom = \"*\"\n", 1, "key to of [[target]] is missing"},
    {"[[target]]\nto = \"UTF8\"\n", 1, "key from of [[target]] is missing"},
    {"\n[[target]]\nfrom = 3\nto = \"UTF8\"\n", 3, "a text is wanted"},
    {"[[target]]\nfrom = \"\"\nto = \"UTF8\"\n", 2, "a text is wanted"},
    {"[[target]]\nfrom = \"*\"\ntype = \"1167\"\nto = \"UTF8\"\n", 3, "a number from 0"},
    {"[[target]]\nfrom = \"*\"\ntype = -1\nto = \"UTF8\"\n", 3, "a number from 0"},
    {"[[target]]\nfrom = \"*\"\ntype = 2147483648\nto = \"UTF8\"\n", 3, "a number from 0"},
    {"[target]\nfrom = \"*\"\nto = \"UTF8\"\n", 1, "[[target]] is wanted"},
    {"discard = [1]\n", 1, "[[discard]] is wanted"},
    {"[[convert]]\nfrom = \"*\"\nto = \"UTF8\"\n", 1, "key converter of [[convert]] is missing"},
    {"[[convert]]\nfrom = \"*\"\nto = \"UTF8\"\nconverter = \"cat\"\n", 1, "converter cat is not described"},
    {"[[convert]]\nfrom = \"*\"\nto = \"UTF8\"\nconverter = \"123456789\"\n", 1, "at most 8 characters"},
    {"[converter.123456789]\ncommand = [\"cat\"]\n", 1, "at most 8 characters"},
    {"converter = 3\n", 1, "[converter.NAME] is wanted"},
    {"[converter]\ncat = 3\n", 2, "[converter.cat] is wanted"},
    {"[converter.cat]\n", 1, "key command of [converter.cat] is missing"},
    {"[converter.cat]\ncommand = \"cat\"\n", 2, "a list of texts"},
    {"[converter.cat]\ncommand = []\n", 2, "a list of texts"},
    {"[converter.cat]\ncommand = [\"cat\", 3]\n", 2, "a list of texts"},
    {"[converter.cat]\ncommand = [\"cat\", \"a\\u0000b\"]\n", 2, "a list of texts"},
    {"[converter.cat]\ncommand = [\"\"]\n", 2, "a program is wanted"},
    {"[converter.cat]\ncommand = [\"cat\"]\ntimeout = 0\n", 3, "a number from 1 to 3600"},
    {"[converter.cat]\ncommand = [\"cat\"]\ntimeout = 3601\n", 3, "a number from 1 to 3600"},
    {"[[target]]\nfrom = *\n", 2, ""},
    {"[[target\n", 1, ""},
    {"\n\xff", 2, "not UTF-8"},
    {"# \xc3\xa4\n\xc3\xa4 = 1\n", 2, ""},
};

TEST(Steering, IsRefusedWithLineAndKey) {
    for (const BadRow& row : kBadRows) {
        const Outcome outcome = parse(row.text);
        EXPECT_FALSE(outcome.steering) << row.text;
        EXPECT_EQ(outcome.error.line, row.line) << row.text;
        EXPECT_NE(outcome.error.what.find(row.says), std::string::npos) << row.text << outcome.error.what;
        EXPECT_FALSE(outcome.error.what.empty()) << row.text;
    }
}

TEST(Steering, MayHoldAnyCharacterInStringsAndComments) {
    const Outcome outcome = parse(
        "\xef\xbb\xbf"
        R"(# ü
[[target]]
from = "X-ä^0^"
to = 'X-€'
[converter."ä"]
command = ['''sh
[ $x ]
[=''', """a\"
[=""", 'ä']
"ü" = 1
)");
    ASSERT_TRUE(outcome.steering) << outcome.error.line << outcome.error.what;
    EXPECT_EQ(outcome.steering->targets[0].match.from, "X-ä^0^");
    EXPECT_EQ(outcome.steering->targets[0].to, "X-€");
    const std::vector<std::string> command = {"sh\n[ $x ]\n[=", "a\"\n[=", "ä"};
    EXPECT_EQ(outcome.steering->converters.at("ä").command, command);
    ASSERT_EQ(outcome.warnings.size(), 1u);
    EXPECT_EQ(outcome.warnings[0].what, "key ü of [converter.ä] has no meaning here");
}

TEST(Steering, WhatHasNoMeaningIsReported) {
    const Outcome outcome = parse("title = \"mine\"\n[[target]]\nfrom = \"*\"\nto = \"UTF8\"\ntpye = 3\n");
    ASSERT_TRUE(outcome.steering);
    ASSERT_EQ(outcome.warnings.size(), 2u);
    EXPECT_EQ(outcome.steering->targets.size(), 1u);
    const bool first_is_row = outcome.warnings[0].line == 5;
    EXPECT_EQ(outcome.warnings[first_is_row ? 0 : 1].what, "key tpye of [[target]] has no meaning here");
    EXPECT_EQ(outcome.warnings[first_is_row ? 1 : 0].what, "key title has no meaning here");
}

TEST(Steering, RowsCover) {
    struct Row {
        SteeringMatch match;
        std::int32_t type;
        const char* set;
        bool covers;
    };
    const Row rows[] = {
        {{"*", 0}, 1167, "UTF8", true},
        {{"*", 0}, 0, "", true},
        {{"*", 1167}, 1167, "x-own", true},
        {{"*", 1167}, 1736, "UTF8", false},
        {{"UTF8", 0}, 1, "utf-8", true},
        {{"UTF8", 0}, 1, "UTF7", false},
        {{"X-Own", 0}, 1, "x-own", true},
        {{"ISO8859_1", 2133}, 2133, "latin1", true},
        {{"ISO8859_1", 2133}, 1167, "latin1", false},
    };
    for (const Row& row : rows) EXPECT_EQ(row.match.covers(row.type, row.set), row.covers) << row.match.from << row.set;
}

}  // namespace
