// Subjects in RFC 2047 form: detection, HZ, steering, and the order dependence on MIME input.
#include "ux_mimein/subjects.h"

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "cvr/cvr.h"
#include "support/home.h"
#include "support/log_lines.h"
#include "ux_in/charsets.h"
#include "ux_mimein/mail_input.h"

namespace {

using namespace std::string_literals;

class Subjects : public ::testing::Test {
protected:
    Subjects() { start(""); }
    ~Subjects() override { reset(); }

    static void reset() {
        cvr_TidyUp();
        ux_reset_charsets();
        ux_reset_subjects();
        ux_reset_mime_input();
    }
    // A process that has just begun a session with these keys and steering.
    void start(std::string_view keys, std::string_view steering = {}) {
        reset();
        home_.set_keys(keys);
        if (!steering.empty()) home_.write("sys/unixin.str", steering);
        ux_InGetDefaultCharsets();
    }
    TestHome home_;
};

struct Row {
    std::string subject, expected;
    const char* why;
};

TEST_F(Subjects, AreDetectedByDefault) {
    const Row rows[] = {
        {"", "", "none"},
        {"Plain", "Plain", "ASCII"},
        {"Gr\xc3\xbc\xc3\x9f"s
         "e",
         "=?UTF-8?B?R3LDvMOfZQ==?=", "UTF-8 as it stands"},
        {"\x1b$B$3$s$K$A$O\x1b(B", "=?ISO-2022-JP?Q?=1B$B$3$s$K$A$O=1B(B?=", "Japanese as it stands"},
        {"=?utf-8?Q?Plain?=", "Plain", "ASCII that says it is UTF-8"},
        {"=?us-ascii?Q?Gr=C3=BC=C3=9Fe?=", "=?UTF-8?B?R3LDvMOfZQ==?=", "UTF-8 that says it is ASCII"},
        {"=?UTF-8?Q?Gr=C3=BC=C3=9Fe?=", "=?UTF-8?Q?Gr=C3=BC=C3=9Fe?=", "right as it is: stays letter for letter"},
        {"=?x-unknown?Q?abc?=", "abc", "an unknown set, and ASCII"},
        {"1 =? 2", "=?US-ASCII?Q?1_=3D=3F_2?=", "a beginning of a word is no word"},
        {"=? ?=", "=? ?=", "both marks: counts as encoded, and is plain text"},
    };
    for (const Row& row : rows) EXPECT_EQ(ux_InBuildMimeSubject(row.subject), row.expected) << row.why;
}

TEST_F(Subjects, AreNotDetectedWhenThatIsOff) {
    start("UXI_MIME_CS_AUTODETECT = false\n");
    const Row rows[] = {
        {"Plain", "Plain", "ASCII"},
        {"Gr\xc3\xbc"s, "=?ISO-8859-1?Q?Gr=C3=BC?=", "bytes in the Latin target"},
        {"=?us-ascii?Q?Gr=C3=BC=C3=9Fe?=", "=?us-ascii?Q?Gr=C3=BC=C3=9Fe?=", "whatever it says"},
    };
    for (const Row& row : rows) EXPECT_EQ(ux_InBuildMimeSubject(row.subject), row.expected) << row.why;
}

TEST_F(Subjects, EncodedOnesAreBelievedUnderAnyOtherSetting) {
    start("UXI_MIME_CS_AUTODETECT = \"some\"\n");
    EXPECT_EQ(ux_InBuildMimeSubject("=?us-ascii?Q?Gr=C3=BC=C3=9Fe?="), "=?us-ascii?Q?Gr=C3=BC=C3=9Fe?=");
    EXPECT_EQ(ux_InBuildMimeSubject("Gr\xc3\xbc\xc3\x9f"s
                                    "e"),
              "=?UTF-8?B?R3LDvMOfZQ==?=")
        << "plain ones never are";
}

TEST_F(Subjects, TheSettingIsReadOnce) {
    EXPECT_EQ(ux_InBuildMimeSubject("=?utf-8?Q?Plain?="), "Plain");
    home_.set_keys("UXI_MIME_CS_AUTODETECT = false\n");
    EXPECT_EQ(ux_InBuildMimeSubject("=?utf-8?Q?Plain?="), "Plain");
}

TEST_F(Subjects, HzBecomesGb2312) {
    start("UXI_MIME_CS_AUTODETECT = false\n");
    EXPECT_EQ(ux_InBuildMimeSubject("=?hz-gb-2312?B?fntWUE5Efn0=?="), "=?GB2312?B?1tDOxA==?=");
    EXPECT_EQ(ux_InBuildMimeSubject("=?HZ-GB-2312?B?fntWUE5Efn0=?="), "=?GB2312?B?1tDOxA==?=");
    EXPECT_EQ(ux_InBuildMimeSubject("=?Hz-Gb-2312?B?fntWUE5Efn0=?="), "=?Hz-Gb-2312?B?fntWUE5Efn0=?=")
        << "only these two";
    EXPECT_EQ(ux_InBuildMimeSubject("=?hz-gb-2312?Q?=FF?="), "=?hz-gb-2312?Q?=FF?=") << "text that is no HZ stays";
    start("UXI_MIME_CS_AUTODETECT = false\nUXI_UNIX_MAIL_CHARSET = \"GB2312\"\n");
    EXPECT_EQ(ux_InBuildMimeSubject("Hello"), "Hello") << "by way of HZ";
    EXPECT_EQ(ux_InBuildMimeSubject("~{VPND~}"), "=?GB2312?B?1tDOxA==?=");
}

constexpr std::string_view kToUtf8 = "[[target]]\nfrom = \"*\"\ntype = 1167\nto = \"UTF8\"\n";

TEST_F(Subjects, AreSteered) {
    start("UXI_MIME_CS_AUTODETECT = false\n", kToUtf8);
    const Row rows[] = {
        {"Plain", "Plain", "ASCII stays readable"},
        {"=?iso-8859-1?Q?=FC?=", "=?UTF-8?B?w7w=?=", "to the target"},
        {"=?utf-8?Q?=C3=BC?= and", "=?utf-8?Q?=C3=BC?= and", "in the target already"},
        {"=?iso-8859-1?Q?=FC?= =?koi8-r?Q?=C1?=", "=?UTF-8?B?w7zQsA==?=", "words in two sets"},
        {"=?x-unknown?Q?=FC?=", "=?x-unknown?Q?=FC?=", "an unknown set keeps its label and bytes"},
        {"=? \xfc ?=", "=? \xfc ?=", "no words at all"},
    };
    for (const Row& row : rows) EXPECT_EQ(ux_InBuildMimeSubject(row.subject), row.expected) << row.why;
}

TEST_F(Subjects, AreSteeredByTheSlotInForceAndLeaveItInForce) {
    home_.write("sys/mimein.str", kToUtf8);
    ASSERT_EQ(cvr_InitAltSteering("~/sys/mimein.str", 6).result, 0);
    cvr_SetSteeringFile(6);
    EXPECT_EQ(ux_InBuildMimeSubject("=?iso-8859-1?Q?Gr=FC=DFe_aus_Gen=E8ve?="),
              "=?UTF-8?B?R3LDvMOfZSBhdXMgR2Vuw6h2ZQ==?=");
    EXPECT_EQ(ux_InBuildMimeSubject("plain"), "plain");
    EXPECT_EQ(cvr_GetSteeringFile(), 6);
}

TEST_F(Subjects, ACharacterThatTheTargetLacksIsAMark) {
    start("UXI_MIME_CS_AUTODETECT = false\n", "[[target]]\nfrom = \"UTF8\"\nto = \"ISO8859_1\"\n");
    EXPECT_EQ(ux_InBuildMimeSubject("=?utf-8?B?4oKsw7w=?="), "=?ISO-8859-1?B?P/w=?=");
}

TEST_F(Subjects, AnEncodedOneSettlesThatMimeInputHasBegun) {
    ux_InBuildMimeSubject("");
    ux_InBuildMimeSubject("Plain");
    ux_InBuildMimeSubject("Gr\xc3\xbc"s);
    EXPECT_FALSE(ux_mime_input().GotMimeSteering);
    ux_InBuildMimeSubject("=?utf-8?Q?a?=");
    EXPECT_TRUE(ux_mime_input().GotMimeSteering);
}

TEST_F(Subjects, DetectionIsLogged) {
    const LogLines log(11);
    ux_InBuildMimeSubject("=?us-ascii?Q?Gr=C3=BC=C3=9Fe?=");
    const std::string line = log.first("11 100.24070");
    EXPECT_NE(line.find("Valid subject charset detected="), std::string::npos) << line;
    EXPECT_NE(line.find("UTF8"), std::string::npos) << line;
    EXPECT_NE(line.find("IA5"), std::string::npos) << line;
}

TEST_F(Subjects, LongOnesBecomeSeveralWords) {
    std::string subject;
    while (subject.size() < 1000)
        subject +=
            "Gr\xc3\xbc\xc3\x9f"s
            "e ";
    const std::string encoded = ux_InBuildMimeSubject(subject);
    EXPECT_TRUE(encoded.starts_with("=?UTF-8?"));
    for (std::size_t at = 0; at < encoded.size();) {
        const std::size_t end = std::min(encoded.find(' ', at), encoded.size());
        EXPECT_LE(end - at, 75u);
        at = end + 1;
    }
}

}  // namespace
