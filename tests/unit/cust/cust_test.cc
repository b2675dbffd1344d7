// Configuration keys: values, truth, numbers, and files that are wrong.
#include "cust/cust.h"

#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/home.h"

namespace {

class Cust : public testing::Test {
protected:
    void SetUp() override {
        er_Reset();
        er_SetSink([this](std::string_view line) { log_.emplace_back(line.substr(line.find("] ") + 2)); });
    }
    void TearDown() override {
        er_Reset();
        cust_Reset();
    }

    // What reading the file raises and logs: "22 3 102.0 FILE:LINE: what"; empty when it is read.
    std::string complaint(std::string_view toml) {
        home_.set_keys(toml);
        log_.clear();
        try {
            cust_PresentAndTrue("K");
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kSystemGroup);
            EXPECT_EQ(log_.size(), 1U);
            return std::to_string(escape.reason()) + ' ' + (log_.empty() ? "" : log_.back());
        }
        return {};
    }
    std::string at(int line) const {
        return "22 3 102.0 " + home_.file("sys/gateway.toml") + ':' + std::to_string(line);
    }

    TestHome home_;
    std::vector<std::string> log_;
};

struct TruthRow {
    const char* value;
    bool truth;
    const char* why;
};
constexpr TruthRow kTruthRows[] = {
    {"true", true, "true"},
    {"false", false, "false"},
    {"1", true, "an integer"},
    {"-1", true, "any but 0"},
    {"0x10", true, "any but 0, written otherwise"},
    {"9223372036854775807", true, "the largest"},
    {"0", false, "0"},
    {"-0", false, "0 with a sign"},
    {"'T'", true, "T"},
    {"'true'", true, "t"},
    {"'Yes'", true, "Y"},
    {"'y'", true, "y"},
    {"'1'", true, "1"},
    {"'10'", true, "begins with 1"},
    {"'tomorrow'", true, "begins with t, whatever follows"},
    {"'false'", false, "a text that begins otherwise"},
    {"'0'", false, "0 as text"},
    {"'2'", false, "only 1 is true as text"},
    {"'on'", false, "not a word that is known"},
    {"' true'", false, "the first character is a blank"},
    {"''", false, "an empty text"},
    {"\"\"\"\ntrue\"\"\"", true, "a text of several lines"},
};

TEST_F(Cust, Truth) {
    for (const TruthRow& row : kTruthRows) {
        home_.set_keys(std::string("K = ") + row.value + "\n");
        EXPECT_EQ(cust_PresentAndTrue("K"), row.truth) << row.value << ": " << row.why;
        EXPECT_EQ(cust_PresentAndFalse("K"), !row.truth) << row.value << ": " << row.why;
        EXPECT_EQ(cust_GetBoolean("K", !row.truth, 0, 0), row.truth) << row.value << ": " << row.why;
    }
}

TEST_F(Cust, AMissingKeyIsNeitherTrueNorFalse) {
    home_.set_keys("OTHER = true\n");
    EXPECT_FALSE(cust_PresentAndTrue("K"));
    EXPECT_FALSE(cust_PresentAndFalse("K"));
    EXPECT_TRUE(cust_GetBoolean("K", true));
    EXPECT_FALSE(cust_GetBoolean("K", false));
    EXPECT_EQ(cust_GetInteger("K", 17), 17);
    EXPECT_EQ(cust_GetCustomiseInfo("K"), std::nullopt);
    EXPECT_FALSE(cust_PresentAndTrue("other")) << "case matters";
}

struct IntegerRow {
    const char* value;
    int number;  // -99: counts as missing, and is logged
    const char* why;
};
constexpr IntegerRow kIntegerRows[] = {
    {"12", 12, "an integer"},
    {"-12", -12, "a negative one"},
    {"1_000", 1000, "TOML's way"},
    {"'12'", 12, "a text that is one"},
    {"'-12'", -12, "a negative one"},
    {"2147483647", 2147483647, "the largest"},
    {"-2147483648", -2147483647 - 1, "the smallest"},
    {"2147483648", -99, "too large"},
    {"-2147483649", -99, "too small"},
    {"'2147483648'", -99, "too large as text"},
    {"'99999999999999999999999'", -99, "far too large"},
    {"'12 '", -99, "a text that is more than a number"},
    {"' 12'", -99, "blanks"},
    {"'twelve'", -99, "a text that is none"},
    {"''", -99, "an empty text"},
    {"true", -99, "a truth"},
};

TEST_F(Cust, Integers) {
    for (const IntegerRow& row : kIntegerRows) {
        home_.set_keys(std::string("A = 1\nK = ") + row.value + "\n");
        log_.clear();
        EXPECT_EQ(cust_GetInteger("K", -99, 0, 0), row.number) << row.value << ": " << row.why;
        if (row.number != -99) {
            EXPECT_TRUE(log_.empty()) << row.value;
            continue;
        }
        ASSERT_EQ(log_.size(), 1U) << row.value << ": " << row.why;
        EXPECT_EQ(log_[0], "5 102.0 " + home_.file("sys/gateway.toml") + ":2: key K: a number is wanted\n");
    }
}

TEST_F(Cust, ValuesAsText) {
    home_.set_keys("A = 'a text'\nB = true\nC = false\nD = -7\nE = ''\n\"F G\" = 'quoted key'\nH = 'caf\u00e9'\n");
    EXPECT_EQ(cust_GetCustomiseInfo("A"), "a text");
    EXPECT_EQ(cust_GetCustomiseInfo("B"), "true");
    EXPECT_EQ(cust_GetCustomiseInfo("C"), "false");
    EXPECT_EQ(cust_GetCustomiseInfo("D"), "-7");
    EXPECT_EQ(cust_GetCustomiseInfo("E"), "");
    EXPECT_EQ(cust_GetCustomiseInfo("F G"), "quoted key");
    EXPECT_EQ(cust_GetCustomiseInfo("H"), "caf\xC3\xA9");
    EXPECT_EQ(cust_GetCustomiseInfo("I"), std::nullopt);
}

TEST_F(Cust, AMissingFileHasNoKeys) {
    EXPECT_FALSE(home_.exists("sys/gateway.toml"));
    EXPECT_FALSE(cust_PresentAndTrue("K"));
    EXPECT_EQ(cust_GetInteger("K", 3), 3);
    EXPECT_TRUE(log_.empty());
}

TEST_F(Cust, AnEmptyFileHasNoKeys) {
    home_.write("sys/gateway.toml", "");
    cust_Reset();
    EXPECT_FALSE(cust_PresentAndFalse("K"));
}

TEST_F(Cust, ABadFileIsRefusedWithItsLine) {
    EXPECT_TRUE(complaint("K = true\nX = \n").starts_with(at(2) + ": ")) << complaint("K = true\nX = \n");
    EXPECT_TRUE(complaint("# a comment\n\nK == 1\n").starts_with(at(3) + ": "));
    EXPECT_TRUE(complaint("K = true\nK = false\n").starts_with(at(2) + ": ")) << "a key that is there twice";
    EXPECT_TRUE(complaint("K = 'open\n").starts_with(at(1) + ": "));
    EXPECT_TRUE(complaint("K = 'caf\xE9'\n").starts_with(at(1) + ": ")) << "not UTF-8";
    EXPECT_TRUE(complaint(std::string("K = 1\n\0\n", 8)).starts_with(at(2) + ": ")) << "a NUL";
    EXPECT_TRUE(complaint("K = " + std::string(1000, '[')).starts_with(at(1) + ": ")) << "deep nesting";
    EXPECT_TRUE(complaint("K = 1\n[ = 2\n").starts_with(at(2) + ": ")) << "a header that would end the parser";
    EXPECT_TRUE(complaint("K = 8\"\xCE\x9E\"\n").starts_with(at(1) + ": ")) << "a letter where it knows none";
}

TEST_F(Cust, AWrongKindIsRefusedWithLineAndKey) {
    const char* const wanted = ": a truth, a whole number or a text is wanted\n";
    EXPECT_EQ(complaint("A = 1\nB = [1, 2]\n"), at(2) + ": key B" + wanted);
    EXPECT_EQ(complaint("A = 1\n\n[B]\nC = 2\n"), at(3) + ": key B" + wanted);
    EXPECT_EQ(complaint("A = { B = 1 }\n"), at(1) + ": key A" + wanted);
    EXPECT_EQ(complaint("A = 2026-11-20\n"), at(1) + ": key A" + wanted);
    EXPECT_EQ(complaint("A = 1.5\n"), at(1) + ": key A" + wanted);
}

TEST_F(Cust, AFileThatIsTooLargeIsRefused) {
    home_.set_keys("K = '" + std::string(std::size_t{1} << 20, 'x') + "'\n");
    try {
        cust_PresentAndTrue("K");
        ADD_FAILURE();
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), EFBIG);
    }
}

TEST_F(Cust, NothingIsRememberedOfABadFile) {
    EXPECT_NE(complaint("A = true\nB = [1]\n"), "");
    EXPECT_THROW(cust_PresentAndTrue("A"), er_Escape) << "not half a configuration";
    home_.write("sys/gateway.toml", "A = true\n");
    EXPECT_TRUE(cust_PresentAndTrue("A")) << "mended while the process runs";
}

TEST_F(Cust, TheFileIsReadOnce) {
    home_.set_keys("K = true\n");
    EXPECT_TRUE(cust_PresentAndTrue("K"));
    home_.write("sys/gateway.toml", "K = [broken\n");
    EXPECT_TRUE(cust_PresentAndTrue("K"));
    cust_Reset();
    EXPECT_THROW(cust_PresentAndTrue("K"), er_Escape);
}

TEST_F(Cust, AnotherFileCanBeNamed) {
    home_.write("tmp/other.toml", "K = 'other'\n");
    cust_Reset(home_.file("tmp/other.toml"));
    EXPECT_EQ(cust_GetCustomiseInfo("K"), "other");
}

}  // namespace
