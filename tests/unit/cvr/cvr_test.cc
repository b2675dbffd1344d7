// Steering in force: slots, targets, conversions, and the log of a file that cannot be used.
#include "cvr/cvr.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "im/im.h"
#include "support/home.h"
#include "support/log_lines.h"

namespace {

class SteeringInForce : public ::testing::Test {
protected:
    SteeringInForce() { cvr_TidyUp(); }
    ~SteeringInForce() override { cvr_TidyUp(); }

    void load(std::string_view text, int slot = 0) {
        home_.write("sys/test.str", text);
        const cvr_Outcome loaded =
            slot == 0 ? cvr_InitConvert("~/sys/test.str") : cvr_InitAltSteering("~/sys/test.str", slot);
        ASSERT_EQ(loaded.result, 0) << loaded.text;
    }
    static std::string target(std::string_view set, std::int32_t type = 1167) {
        const cvr_Target found = cvr_TargetCharSet(set, type);
        return std::to_string(found.result) + ' ' + found.target;
    }
    static im_Item item(std::string_view text) {
        im_Item made = im_CrNewDataItem();
        made.write(text);
        return made;
    }
    static std::string content(const im_Item& made) {
        std::string scratch;
        return std::string(made.head(std::string_view::npos, scratch));
    }
    TestHome home_;
};

TEST_F(SteeringInForce, NothingLoadedSaysNothing) {
    EXPECT_EQ(target("UTF8"), "2 ");
    EXPECT_EQ(cvr_GetConvertDetails(2133, "UTF8").result, 1);
    EXPECT_EQ(cvr_GetSteeringFile(), 0);
}

TEST_F(SteeringInForce, AMissingFileChangesNothing) {
    load("[[target]]\nfrom = \"*\"\nto = \"UTF8\"\n");
    const cvr_Outcome missing = cvr_InitConvert("~/sys/missing.str");
    EXPECT_EQ(missing.result, 3);
    EXPECT_EQ(missing.group, 1);
    EXPECT_EQ(missing.reason, ENOENT);
    EXPECT_EQ(target("IA5"), "0 UTF8");
}

TEST_F(SteeringInForce, AFileThatCannotBeUsedChangesNothingAndIsLogged) {
    load("[[target]]\nfrom = \"*\"\nto = \"UTF8\"\n");
    home_.write("sys/bad.str", "[[target]]\nfrom = \"*\"\ntype = \"x\"\nto = \"UTF8\"\n");
    const LogLines log(3);
    const cvr_Outcome bad = cvr_InitConvert("~/sys/bad.str");
    EXPECT_NE(bad.result, 0);
    EXPECT_NE(bad.result, 3);
    EXPECT_EQ(bad.group, 1);
    EXPECT_EQ(bad.reason, EINVAL);
    EXPECT_EQ(target("IA5"), "0 UTF8");
    ASSERT_EQ(log.all().size(), 1u);
    EXPECT_NE(log.all()[0].find("sys/bad.str:3: key type of [[target]]"), std::string::npos) << log.all()[0];
    EXPECT_EQ(log.count("3 "), 1u);
}

TEST_F(SteeringInForce, AFileThatCannotBeReadIsNotAMissingOne) {
    const LogLines log(3);
    ASSERT_EQ(::mkdir(home_.file("sys/folder.str").c_str(), 0700), 0);
    const cvr_Outcome folder = cvr_InitConvert("~/sys/folder.str");
    EXPECT_EQ(folder.result, kSteeringUnusable);
    EXPECT_EQ(folder.reason, EISDIR);
    EXPECT_FALSE(er_GetLive()) << "a result, not an escape";
    home_.write("sys/large.str", std::string((1 << 20) + 1, '#'));
    EXPECT_EQ(cvr_InitConvert("~/sys/large.str").reason, EFBIG);
    home_.write("sys/large.str", std::string(1 << 20, '#'));
    EXPECT_EQ(cvr_InitConvert("~/sys/large.str").result, 0) << "as large as it may be";
    EXPECT_EQ(log.all().size(), 2u);
}

TEST_F(SteeringInForce, UnknownKeysAreLoggedAsWarnings) {
    const LogLines log(7);
    load("\ntitle = 1\n");
    ASSERT_EQ(log.all().size(), 1u);
    EXPECT_EQ(log.count("5 "), 1u) << log.all()[0];
    EXPECT_NE(log.all()[0].find("test.str:2: key title"), std::string::npos) << log.all()[0];
}

TEST_F(SteeringInForce, TheFirstTargetThatMatchesWins) {
    load(R"(
[[target]]
from = "ISO8859_15"
type = 1736
to = "KOI8_R"
[[target]]
from = "ISO8859_15"
to = "UTF8"
[[target]]
from = "ISO8859_15"
to = "IA5"
[[target]]
from = "GB2312"
to = "gb2312"
[[target]]
from = "*"
type = 1167
to = "BIG5"
)");
    EXPECT_EQ(target("ISO8859_15", 1736), "0 KOI8_R");
    EXPECT_EQ(target("iso-8859-15", 1167), "0 UTF8");
    EXPECT_EQ(target("GB2312"), "1 ") << "to itself";
    EXPECT_EQ(target("KOI8_U"), "0 BIG5");
    EXPECT_EQ(target("BIG5"), "1 ") << "any set, and it is the target";
    EXPECT_EQ(target("x-own"), "0 BIG5");
    EXPECT_EQ(target("KOI8_U", 2133), "2 ") << "another type";
}

TEST_F(SteeringInForce, WhetherThereIsAnyRule) {
    EXPECT_FALSE(cvr_has_rules()) << "nothing was loaded";
    load("# no rule\n");
    EXPECT_FALSE(cvr_has_rules());
    load("[converter.none]\ncommand = [\"true\"]\n");
    EXPECT_FALSE(cvr_has_rules()) << "a converter that no rule names";
    for (const char* const rules :
         {"[[target]]\nfrom = \"*\"\nto = \"UTF8\"\n", "[[discard]]\ntype = 9\nfrom = \"*\"\n",
          "[[convert]]\ntype = 9\nfrom = \"*\"\nto = \"UTF8\"\nto_type = 9\nconverter = \"c\"\n"
          "[converter.c]\ncommand = [\"true\"]\n"}) {
        load(rules);
        EXPECT_TRUE(cvr_has_rules()) << rules;
    }
    load("# no rule\n");
    load("[[target]]\nfrom = \"*\"\nto = \"UTF8\"\n", 7);
    EXPECT_FALSE(cvr_has_rules()) << "that slot is not in force";
    cvr_SetSteeringFile(7);
    EXPECT_TRUE(cvr_has_rules());
    cvr_TidyUp();
    EXPECT_FALSE(cvr_has_rules());
}

TEST_F(SteeringInForce, ConversionsComeBeforeDiscards) {
    load(R"(
[[discard]]
type = 2133
from = "*"
[[convert]]
type = 2133
from = "UTF8"
to_type = 1167
to = "IA5"
converter = "cat"
[converter.cat]
command = ["cat"]
)");
    const cvr_ConvertDetails details = cvr_GetConvertDetails(2133, "utf-8");
    EXPECT_EQ(details.result, 0);
    EXPECT_EQ(details.to_type, 1167);
    EXPECT_EQ(details.to_charset, "IA5");
    EXPECT_EQ(details.converter, "cat");
    EXPECT_EQ(cvr_GetConvertDetails(2133, "KOI8_R").result, 2);
    EXPECT_EQ(cvr_GetConvertDetails(1167, "UTF8").result, 1);
}

TEST_F(SteeringInForce, SlotsWithNothingInThemArePassedOver) {
    cvr_SetSteeringFile(7);
    cvr_SetSteeringFile(6);
    EXPECT_EQ(cvr_GetSteeringFile(), 0);
    load("[[target]]\nfrom = \"*\"\nto = \"KOI8_R\"\n", 7);
    EXPECT_EQ(cvr_GetSteeringFile(), 0) << "loaded, but not in force";
    cvr_SetSteeringFile(7);
    cvr_SetSteeringFile(6);
    EXPECT_EQ(cvr_GetSteeringFile(), 7);
    EXPECT_EQ(target("UTF8"), "0 KOI8_R");
    load("[[target]]\nfrom = \"*\"\nto = \"BIG5\"\n", 6);
    cvr_SetSteeringFile(7);
    cvr_SetSteeringFile(6);
    EXPECT_EQ(target("UTF8"), "0 BIG5");
    cvr_SetSteeringFile(0);
    EXPECT_EQ(target("UTF8"), "2 ") << "slot 0 is there, with nothing in it";
    for (const int slot : {-1, 8, 1000}) {
        cvr_SetSteeringFile(slot);
        EXPECT_EQ(cvr_GetSteeringFile(), 0) << slot;
        EXPECT_NE(cvr_InitAltSteering("~/sys/test.str", slot).result, 0) << slot;
    }
    cvr_TidyUp();
    cvr_SetSteeringFile(7);
    EXPECT_EQ(cvr_GetSteeringFile(), 0);
}

constexpr std::string_view kConverters = R"(
[[convert]]
type = 1
from = "*"
to_type = 2
to = "UTF8"
converter = "upper"
[[convert]]
type = 3
from = "*"
to_type = 3
to = "UTF8"
converter = "upper"
[[convert]]
type = 4
from = "*"
to_type = 4
to = "UTF8"
converter = "none"
[[convert]]
type = 5
from = "*"
to_type = 6
to = "KOI8_R"
converter = "fail"
[[convert]]
type = 7
from = "*"
to_type = 8
to = "UTF8"
converter = "env"
[[discard]]
type = 9
from = "*"
[converter.upper]
command = ["tr", "a-z", "A-Z"]
[converter.none]
command = ["/no/such/program"]
[converter.fail]
command = ["sh", "-c", "echo bad input >&2; exit 3"]
[converter.env]
command = ["sh", "-c", "printf '%s|%s|%s' \"$SUBJECT\" \"$CHARSET\" \"$MIMETYPE\""]
)";

TEST_F(SteeringInForce, ConvertersRunByName) {
    load(kConverters);
    im_Item in = item("small"), out = im_CrNewDataItem();
    EXPECT_EQ(cvr_VarBlockedConvert("upper", in, out).result, 0);
    EXPECT_EQ(content(out), "SMALL");
    EXPECT_EQ(cvr_VarBlockedConvert("none", in, out).result, -1);
    EXPECT_EQ(cvr_VarBlockedConvert("missing", in, out).result, -1);
    EXPECT_EQ(cvr_VarBlockedConvert("", in, out).result, -1);
    EXPECT_EQ(cvr_VarBlockedConvert("fail", in, out).result, 10);
}

TEST_F(SteeringInForce, PartsAreConvertedByTheirRow) {
    load(kConverters);
    const auto convert = [](std::int32_t type, const char* set, std::string& text) {
        im_Item in = item("small"), out = im_CrNewDataItem();
        const cvr_Substitution list[] = {{"SUBJECT", "a 'b' $c"}, {"CHARSET", "UTF8"}, {"MIMETYPE", ""}};
        cvr_FileOutcome outcome = cvr_BlConvertFile(list, in, type, set, out);
        text = content(out);
        return outcome;
    };
    std::string text;
    cvr_FileOutcome outcome = convert(1, "KOI8_R", text);
    EXPECT_EQ(outcome.outcome.result, 0);
    EXPECT_EQ(outcome.to_type, 2);
    EXPECT_EQ(outcome.to_charset, "UTF8");
    EXPECT_EQ(text, "SMALL");
    EXPECT_EQ(convert(7, "UTF8", text).outcome.result, 0);
    EXPECT_EQ(text, "a 'b' $c|UTF8|") << "no shell has seen them";
    EXPECT_EQ(convert(3, "utf-8", text).outcome.result, 1) << "type and set stay: nothing to do";
    EXPECT_EQ(text, "");
    EXPECT_EQ(convert(3, "KOI8_R", text).outcome.result, 0);
    EXPECT_EQ(convert(9, "UTF8", text).outcome.result, 2);
    EXPECT_EQ(convert(10, "UTF8", text).outcome.result, 3);
    outcome = convert(4, "KOI8_R", text);
    EXPECT_EQ(outcome.outcome.result, -1);
    EXPECT_EQ(outcome.outcome.group, 1);
    EXPECT_EQ(outcome.outcome.reason, ENOENT);
    EXPECT_NE(outcome.outcome.text.find("/no/such/program"), std::string::npos);
    outcome = convert(5, "UTF8", text);
    EXPECT_EQ(outcome.outcome.result, 10);
    EXPECT_EQ(outcome.outcome.reason, 3);
    EXPECT_EQ(outcome.outcome.text, "bad input\n");
    EXPECT_EQ(outcome.to_charset, "KOI8_R");
}

}  // namespace
