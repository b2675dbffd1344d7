// Multiparts: parameters and subtypes, boundaries, frames of records, what a part hands to the next.
#include "ux_mimein/multipart.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/log_lines.h"
#include "support/mime.h"
#include "tf/record.h"

namespace {

TEST(MultipartParameters, Rows) {
    struct Row {
        std::string_view text;
        const char *boundary, *name, *report, *why;
    };
    const Row rows[] = {
        {"boundary=x", "x", nullptr, nullptr, "plain"},
        {" BOUNDARY = \"a b\" ; Name=n", "a b", "n", nullptr, "quoted, any case, blanks"},
        {"report-type=delivery-status; boundary=y", "y", nullptr, "delivery-status", "a report"},
        {"boundary=x ", "x ", nullptr, nullptr, "blanks at the end of a value belong to it"},
        {"boundary=a=b", "a=b", nullptr, nullptr, "an equals sign in a value"},
        {"boundary=\"a;b\"", "a", nullptr, nullptr, "a value runs to the next semicolon, quoted or not"},
        {"boundary=x; boundary=y", "y", nullptr, nullptr, "the last one holds"},
        {"boundary=\"x", "x", nullptr, nullptr, "a quote that does not end"},
        {"boundary=\"\"", "", nullptr, nullptr, "an empty one is one"},
        {"charset=x; boundary", nullptr, nullptr, nullptr, "others, and a word without a value"},
        {"\tboundary\t=\t x", "x", nullptr, nullptr, "tabs too"},
        {"boundary= \"x\" ; name = n ", "x", "n ", nullptr, "a quoted value ends at its quote"},
        {"boundary=x\"y", "x", nullptr, nullptr, "a quote inside ends it"},
        {"boundary=\"x\"y", "x", nullptr, nullptr, "and what comes behind it goes"},
        {"boundary= \"\"x\"", "", nullptr, nullptr, "only one leading quote goes"},
        {"boundary==x", "=x", nullptr, nullptr, "the value begins behind the first equals sign"},
        {"boundary=x;;", "x", nullptr, nullptr, "semicolons behind the last one"},
        {"boundary=x;;name=n", "x", nullptr, nullptr, "a name runs to the next equals sign, a semicolon included"},
        {"; boundary=x", nullptr, nullptr, nullptr, "likewise before the first"},
        {"flowed; boundary=x", nullptr, nullptr, nullptr, "and a word without a value spoils the name behind it"},
        {"=boundary=x", "x", nullptr, nullptr, "equals signs before a name are passed over"},
        {"name=;boundary=x", nullptr, "boundary=x", nullptr, "an empty value is what stands behind the semicolon"},
        {"boundary=", nullptr, nullptr, nullptr, "or nothing, when nothing does"},
        {"boundary=;;", nullptr, nullptr, nullptr, "nor there"},
        {"boundary= ;", "", nullptr, nullptr, "blanks are a value, an empty one"},
        {"boundary=x; boundary=", "x", nullptr, nullptr, "no value replaces none"},
        {"x-boundary=x; boundaryx=y", nullptr, nullptr, nullptr, "names that only resemble"},
        {"boundary*=us-ascii''x; boundary*0=y", nullptr, nullptr, nullptr, "the forms of RFC 2231 are other names"},
        {"BOUNDARY=a;NAME=b;REPORT-TYPE=c;Boundary=d", "d", "b", "c", "all of them, and the last holds"},
        {"", nullptr, nullptr, nullptr, "nothing"},
    };
    for (const Row& row : rows) {
        const ux_MultipartParameters parameters = ux_InParseMPParams(row.text);
        EXPECT_EQ(parameters.pszBoundary.value_or("(none)"), row.boundary == nullptr ? "(none)" : row.boundary)
            << row.why;
        EXPECT_EQ(parameters.pszName.value_or("(none)"), row.name == nullptr ? "(none)" : row.name) << row.why;
        EXPECT_EQ(parameters.pszReportType.value_or("(none)"), row.report == nullptr ? "(none)" : row.report)
            << row.why;
    }
}

TEST(MultipartSubtypes, Rows) {
    const ux_MultipartKind alternative = ux_InParseMPSubtype("Alternative", true);
    EXPECT_TRUE(alternative.bStartGrp && alternative.bAlternative && !alternative.bStartPkg);
    const ux_MultipartKind parallel = ux_InParseMPSubtype("PARALLEL", true);
    EXPECT_TRUE(parallel.bStartPkg && parallel.bParallel);
    const ux_MultipartKind is_signed = ux_InParseMPSubtype("signed", true);
    EXPECT_TRUE(is_signed.bStartPkg && is_signed.bSigned);
    EXPECT_EQ(is_signed.PackageFlags, 4);
    const ux_MultipartKind report = ux_InParseMPSubtype("report", false);
    EXPECT_TRUE(report.bReport && !report.bStartPkg && !report.bStartGrp);
    for (const char* other : {"mixed", "related", "digest", "x-unknown", ""}) {
        EXPECT_FALSE(ux_InParseMPSubtype(other, true).bStartPkg) << other << ": a message's own body";
        EXPECT_TRUE(ux_InParseMPSubtype(other, false).bStartPkg) << other << ": a part of another";
    }
}

TEST(EmptyRecords, Types) {
    tf_Record record;
    ux_GenerateStartAltGroup(record);
    EXPECT_EQ(record.type(), 30200);
    ux_GenerateAltGroup(record);
    EXPECT_EQ(record.type(), 39100);
    mp_GenerateEndPackage(record);
    EXPECT_EQ(record.type(), 39000);
    EXPECT_EQ(record.size(), 16U);
}

using Lines = std::vector<std::string>;

std::string plain(int size, const std::string& more = {}) {
    return "30500 1167 set[IA5] " + std::to_string(size) + " type[text/plain; charset=US-ASCII]" + more + " subject[S]";
}
constexpr std::string_view kHidden = " flags 33";

std::string hidden(std::string line) { return line.insert(line.find(" type["), kHidden); }

class Multiparts : public testing::Test {
protected:
    // A body of type multipart/mixed; boundary=b.
    ConvertedMime mixed(std::string_view text) { return process_.convert("multipart/mixed; boundary=b", text); }
    // Detection off: a part is what it says it is.
    MimeProcess process_{"UXI_MIME_CS_AUTODETECT = \"unlabelled\"\n"};
};

TEST_F(Multiparts, PartsOfAMessageStandForThemselves) {
    const ConvertedMime made = mixed("preamble\n--b\n\none\n--b\nContent-Type: text/html\n\ntwo\n--b--\nepilogue\n.\n");
    EXPECT_EQ(made.records, (Lines{plain(3), "30500 2133 set[IA5] 3 type[text/html; charset=US-ASCII] subject[S]"}));
    EXPECT_EQ(made.items, (Lines{"one", "two"}));
    EXPECT_EQ(made.objects, (Lines{"30700 0 inetContentHeader 0", "30700 0 inetContentHeader 25"}));
    EXPECT_TRUE(made.end_read);
    EXPECT_EQ(ux_mime_state().nestLevel, 0);
}

TEST_F(Multiparts, ANestedOneIsAPackage) {
    const ConvertedMime made = mixed(
        "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\none\n--c--\nthis is dropped\n--b\n\ntwo\n--b--\n.\n");
    EXPECT_EQ(made.records,
              (Lines{"30100 3,-100 type[multipart/mixed; boundary=c] subject[S]", plain(3), "39000", plain(3)}));
    EXPECT_EQ(made.objects, (Lines{"34500 30700 1 inetContentHeader 43", "30700 0 inetContentHeader 0",
                                   "30700 0 inetContentHeader 0"}))
        << "the package's own header is wrapped";
}

TEST_F(Multiparts, NameIsTheSubjectOfAPackageAndOfWhatIsInIt) {
    const ConvertedMime made =
        process_.convert("multipart/parallel; boundary=b; name=\"N\"",
                         "--b\n\none\n--b\nContent-Type: multipart/x; boundary=c\n\n--c\n\ntwo\n--c--\n--b--\n.\n");
    EXPECT_EQ(made.records[0], "30100 3,-100 flags 2 type[multipart/parallel; boundary=b; name=\"N\"] subject[N]");
    EXPECT_TRUE(made.records[1].ends_with(" subject[N]"));
    EXPECT_TRUE(made.records[2].ends_with(" subject[N]")) << "a package inside without a name of its own";
    EXPECT_TRUE(made.records[3].ends_with(" subject[N]"));
}

TEST_F(Multiparts, FramesOfEverySubtype) {
    struct Row {
        const char* type;
        bool in_message;  // else a part of another
        Lines frame;
    };
    const auto package = [](std::string_view type, std::string_view flags = "") {
        return "30100 3,-100" + std::string(flags) + " type[multipart/" + std::string(type) +
               "; boundary=b] subject[S]";
    };
    const Row rows[] = {
        {"mixed", true, {}},
        {"mixed", false, {package("mixed"), "39000"}},
        {"related", true, {}},
        {"RELATED", false, {package("RELATED"), "39000"}},
        {"x-unknown", false, {package("x-unknown"), "39000"}},
        {"parallel", true, {package("parallel", " flags 2"), "39000"}},
        {"Parallel", false, {package("Parallel", " flags 2"), "39000"}},
        {"alternative", true, {"30200", "39100"}},
        {"ALTERNATIVE", false, {"30200", "39100"}},
        {"digest", true, {}},
        {"digest", false, {package("digest"), "39000"}},
    };
    for (const Row& row : rows) {
        const std::string type = "multipart/" + std::string(row.type) + "; boundary=b";
        const ConvertedMime made = row.in_message
                                       ? process_.convert(type, "no boundary\n.\n")
                                       : process_.convert("multipart/mixed; boundary=o",
                                                          "--o\nContent-Type: " + type + "\n\nno boundary\n.\n");
        EXPECT_EQ(made.records, row.frame) << row.type << row.in_message << ": the whole text is preamble";
        EXPECT_EQ(made.items, Lines{}) << row.type;
        EXPECT_EQ(ux_mime_state().nestLevel, 0) << row.type;
    }
}

TEST_F(Multiparts, BoundaryLines) {
    struct Row {
        std::string parameters, text;
        Lines items;
        const char* why;
    };
    const std::string seventy(70, 'x');
    const std::string longest(1020, 'y');  // "--" and the boundary and LF are 1,023 bytes
    const std::string too_long(1021, 'y');
    const Row rows[] = {
        {"boundary=b", "--b\n\n1\n--b--\n.\n", {"1"}, "the plain case"},
        {"boundary=b", "--b\r\n\r\n1\r\n--b--\r\n.\r\n", {"1"}, "CR LF"},
        {"boundary=b", "--b\r\r\n\n1\n--b--\n.\n", {"1"}, "a line end is LF with any CRs before it"},
        {"boundary=b", "--b \n\n1\n--b\n\n2\n--b--\n.\n", {"2"}, "the first one takes no blank behind it"},
        {"boundary=b", "--b\n\n1\n--b \t\n\n2\n--b-- \n\n.\n", {"1", "2"}, "the ones that end a leaf do"},
        {"boundary=b", "--b\n\n1\n--b x\n--bx\n --b\n--b--\n.\n", {"1\n--b x\n--bx\n --b"}, "nothing else, though"},
        {"boundary=b", "--B\n\n1\n--b\n\n2\n--B\n--b--\n.\n", {"2\n--B"}, "in its own case for preambles and leaves"},
        {"boundary=\"a b\"", "--a b\n\n1\n--a b--\n.\n", {"1"}, "quoted with a blank"},
        {"boundary=b ; x=y", "--b\n\n1\n--b --\n.\n", {}, "blanks before the semicolon are part of it"},
        {"boundary=b ; x=y", "--b \n\n1\n--b --\n.\n", {"1"}, "and match such a line"},
        {"boundary=\"b\" ; x=y", "--b\n\n1\n--b--\n.\n", {"1"}, "not with quotes"},
        {"boundary=\"a;b\"", "--a\n\n1\n--a--\n.\n", {"1"}, "a quoted semicolon cuts it"},
        {"boundary=\"a=b\"", "--a=b\n\n1\n--a=b--\n.\n", {"1"}, "an equals sign does not"},
        {"charset=x", "--\n\n1\n--\n\n2\n----\n.\n", {"1", "2"}, "no boundary: the line is two hyphens"},
        {"boundary=\"\"", "--\n\n1\n----\n.\n", {"1"}, "an empty one"},
        {"boundary=" + seventy, "--" + seventy + "\n\n1\n--" + seventy + "--\n.\n", {"1"}, "70 characters"},
        {"boundary=" + seventy + "x", "--" + seventy + "x\n\n1\n--" + seventy + "x--\n.\n", {"1"}, "71"},
        {"boundary=" + longest,
         "--" + longest + "\n\n1\n--" + longest + "\n\n2\n.\n",
         {"1", "2\n"},
         "as long as a line"},
        {"boundary=" + too_long, "--" + too_long + "\n\n1\n--" + too_long + "--\n.\n", {}, "longer than a line: never"},
        {"boundary=b", "--b\n\n1\n--b--\n--b\n\n2\n--b--\n.\n", {"1"}, "nothing opens again behind the closing line"},
        {"boundary=b", "--b--\n--b\n\n1\n--b--\n.\n", {"1"}, "a closing line before the first is preamble"},
        {"boundary=b", "--b\n\n--b\n\n--b--\n.\n", {"", ""}, "empty parts"},
        {"boundary=b", "--b\n--b\n\n1\n--b--\n.\n", {"1"}, "a boundary in a header is a line of it"},
        {"boundary=b", "--b\n\n\n1\n\n--b--\n.\n", {"\n1\n"}, "the line end before a boundary belongs to it"},
        {"boundary=b", "--b\n\n1\n.\n", {"1\n"}, "the message ends first"},
        {"boundary=b", "--b\nX: y\n.\n", {}, "or inside a header"},
        {"boundary=b", "--b\n.\n", {}, "or there"},
        {"boundary=.b", "--.b\n\n..1\n.-\n--.b--\n.\n", {".1\n.-"}, "dots"},
        {"boundary=b", std::string(1023, 'x') + "--b\n\n1\n--b--\n.\n", {}, "a boundary begins its line"},
    };
    for (const Row& row : rows) {
        const ConvertedMime made = process_.convert("multipart/mixed; " + row.parameters, row.text);
        EXPECT_EQ(made.items, row.items) << row.why;
        EXPECT_TRUE(made.end_read) << row.why;
        EXPECT_EQ(ux_mime_state().nestLevel, 0) << row.why;
    }
}

TEST_F(Multiparts, TheEpilogueEndsAtTheEnclosingLinesInAnyCase) {
    struct Row {
        const char *text, *why;
        Lines items;
    };
    const Row rows[] = {
        {"--B\n\n2\n--b--\n.\n", "the next part", {"1", "2"}},
        {"--b\n\n2\n--b--\n.\n", "as it is", {"1", "2"}},
        {"--B--\n--b\n\n2\n--b--\n.\n", "the closing line", {"1"}},
        {"--b \n--b\n\n2\n--b--\n.\n", "no blanks behind it", {"1", "2"}},
        {"--b-\n--c\n\nx\n--b\n\n2\n--b--\n.\n", "the level's own lines mean nothing any more", {"1", "2"}},
        {".\n", "the end of the message", {"1"}},
    };
    for (const Row& row : rows) {
        const ConvertedMime made =
            mixed("--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\n1\n--c--\n" + std::string(row.text));
        EXPECT_EQ(made.items, row.items) << row.why;
        EXPECT_EQ(made.records[2], "39000") << row.why;
    }
}

TEST_F(Multiparts, APartInsideThatIsNotClosedTakesWhatFollows) {
    const ConvertedMime made =
        mixed("--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\n1\n--b\n\n2\n--b--\n.\n");
    EXPECT_EQ(made.items, Lines{"1\n--b\n\n2\n--b--\n"}) << "a leaf looks for the lines of its own level alone";
}

TEST_F(Multiparts, Digest) {
    const ConvertedMime made = process_.convert("multipart/Digest; boundary=b",
                                                "--b\nContent-Type: text/plain; charset=us-ascii\n\n1\n--b--\n.\n");
    EXPECT_EQ(made.records.size(), 1U);
    EXPECT_TRUE(made.records[0].find("text/plain; charset=us-ascii") != std::string::npos) << "a type of its own holds";

    const std::string untyped = "--b\nContent-ID: <i>\n\nSubject: inside\n\ntext\n--b--\n.\n";
    for (const char* subtype : {"digest", "DIGEST", "mixed"}) {
        const std::string type = "multipart/" + std::string(subtype) + "; boundary=b";
        const ConvertedMime message = process_.convert(type, untyped);
        const bool is_message = message.records[0] == "30100 3,-100 subject[inside]";
        EXPECT_EQ(is_message, std::string(subtype) != "mixed") << subtype << ": " << message.records[0];
        EXPECT_EQ(message.items.back(), is_message ? "text" : "Subject: inside\n\ntext") << subtype;
    }
}

TEST_F(Multiparts, ContentLocationIsCarriedOver) {
    const ConvertedMime made = mixed(
        "--b\nContent-Location: one\nContent-ID: <i>\nContent-Disposition: inline; filename=f\n"
        "Content-Transfer-Encoding: base64\nContent-Type: x/y\n\nMQ==\n"
        "--b\nContent-Type: x/y\n\nMQ==\n"
        "--b\nContent-Type: x/y\nContent-Location: two\n\n3\n"
        "--b\nContent-Type: multipart/mixed; boundary=c\nContent-Location: three\n\n"
        "--c\nContent-Type: x/y\n\n4\n--c--\n"
        "--b\nContent-Type: x/y\n\n5\n--b--\n.\n");
    EXPECT_EQ(made.records, (Lines{"30500 0 1 type[x/y] disp[inline] id[i] at[one] file[f] subject[f]",
                                   "30500 0 4 type[x/y] at[one] subject[S]",  //
                                   "30500 0 1 type[x/y] at[two] subject[S]",
                                   "30100 3,-100 type[multipart/mixed; boundary=c] subject[S]",
                                   "30500 0 1 type[x/y] subject[S]",  //
                                   "39000",                           //
                                   "30500 0 1 type[x/y] at[three] subject[S]"}))
        << "from part to part of one level, whatever the part before is; nothing else is";
}

TEST_F(Multiparts, AlternativesHideTheOneBefore) {
    const ConvertedMime made = process_.convert(
        "multipart/alternative; boundary=b",
        "--b\n\none\n--b\nContent-Type: text/html; charset=us-ascii\n\ntwo\n--b\nContent-Type: x/y\n\n3\n--b--\n.\n");
    EXPECT_EQ(made.records, (Lines{"30200", hidden(plain(3)),
                                   hidden("30500 2133 set[IA5] 3 type[text/html; charset=us-ascii] subject[S]"),
                                   "30500 0 1 type[x/y] subject[S]", "39100"}));
    EXPECT_FALSE(ux_mime_state().makeIcalBPDesc);
}

TEST_F(Multiparts, AlternativesThatAreMultiparts) {
    const ConvertedMime made = process_.convert(
        "multipart/alternative; boundary=b",
        "--b\n\none\n--b\nContent-Type: multipart/related; boundary=c\n\n--c\nContent-Type: x/y\n\n2\n--c--\n"
        "--b\nContent-Type: x/z\n\n3\n--b--\n.\n");
    EXPECT_EQ(made.records,
              (Lines{"30200", hidden(plain(3)), "30100 3,-100 flags 24 type[multipart/related; boundary=c] subject[S]",
                     "30500 0 1 type[x/y] subject[S]", "39000", "30500 0 1 type[x/z] subject[S]", "39100"}))
        << "of a package the package is hidden";
}

TEST_F(Multiparts, ACalendarDoesNotHideTheTextBeforeIt) {
    for (const std::string type : {"text/calendar", "TEXT/Calendar; method=REQUEST", "application/ploxen-prop"}) {
        process_.restart();
        ux_mime_state().IcalNowAttachment = true;  // it is only stored: what becomes of the text is not asked here
        const ConvertedMime made = process_.convert("multipart/alternative; boundary=b",
                                                    "--b\n\none\n--b\nContent-Type: " + type + "\n\n2\n--b--\n.\n");
        EXPECT_EQ(made.records[1], plain(3)) << type;
        EXPECT_FALSE(ux_mime_state().makeIcalBPDesc) << type;
    }
}

TEST_F(Multiparts, TheHeaderOfANestedAlternativeIsKeptBehindItsFirstPart) {
    const std::string text =
        "--b\nContent-Type: multipart/alternative; boundary=c\n\n--c\n\none\n--c\nContent-Type: x/y\n\n2\n--c--\n"
        "--b--\n.\n";
    EXPECT_EQ(mixed(text).objects,
              (Lines{"30700 0 inetContentHeader 0", "30700 0 inetMimeAlternative 49", "30700 0 inetContentHeader 19"}));
    process_.GenObjFiles = false;
    EXPECT_EQ(mixed(text).objects, Lines{}) << "or nothing is kept";
}

TEST_F(Multiparts, WithoutParametersNothingIsReadAndTheDepthStays) {
    const ConvertedMime made =
        mixed("--b\nContent-Type: multipart/alternative\n\nnot read by it\n--b\n\n1\n--b--\n.\n");
    EXPECT_EQ(made.items, Lines{"1"}) << "its text, a boundary line included, is taken for the header of the next part";
    EXPECT_EQ(made.objects, Lines{"30700 0 inetContentHeader 21"});
    EXPECT_EQ(made.records, Lines{plain(1)}) << "no group";
    EXPECT_TRUE(made.end_read);
    EXPECT_EQ(ux_mime_state().nestLevel, 1);

    const ConvertedMime empty = process_.convert("multipart/mixed;", "--\n\n1\n----\n.\n");
    EXPECT_EQ(empty.items, Lines{"1"}) << "a semicolon alone is parameters";
    EXPECT_EQ(ux_mime_state().nestLevel, 0) << "a message begins at depth 0";
}

TEST_F(Multiparts, ABoundaryIsNotThatOfWhatEnclosesIt) {
    const std::string inner = "--b\nContent-Type: multipart/mixed; boundary=b\n\n--b\n\n1\n--b--\n--b--\n.\n";
    const LogLines log(5);
    try {
        mixed(inner);
        FAIL() << "not refused";
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.reason(), 1428);
    }
    EXPECT_EQ(log.count("5 100.24071 Reject message with non-unique boundary:  --b"), 1U);

    process_.restart_with("UXI_CHECK_UNIQUE_BOUNDARY = true\n");
    EXPECT_THROW(mixed(inner), er_Escape);

    process_.restart_with("UXI_CHECK_UNIQUE_BOUNDARY = false\nUXI_MIME_CS_AUTODETECT = \"unlabelled\"\n");
    const ConvertedMime made = mixed(inner);
    EXPECT_EQ(made.items, Lines{"1"});
    EXPECT_EQ(made.records, (Lines{"30100 3,-100 type[multipart/mixed; boundary=b] subject[S]", plain(1), "39000"}));
    EXPECT_EQ(log.count("5 100.24071 Accept message with non-unique boundary:  --b"), 1U);
}

TEST_F(Multiparts, OnlyTheNextOneOutAndOnlyTheSameLettersCount) {
    EXPECT_THROW(process_.convert("multipart/mixed; x=y", "--\nContent-Type: multipart/mixed; x=z\n\n.\n"), er_Escape)
        << "two that have none have the same";
    const ConvertedMime case_differs =
        mixed("--b\nContent-Type: multipart/mixed; boundary=B\n\n--B\n\n1\n--B--\n--b--\n.\n");
    EXPECT_EQ(case_differs.items, Lines{"1"});
    const ConvertedMime further_out = mixed(
        "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\nContent-Type: multipart/mixed; boundary=b\n\n"
        "--b\n\n1\n--b--\n--c--\n--b--\n.\n");
    EXPECT_EQ(further_out.items, Lines{"1"});
    EXPECT_EQ(further_out.records.size(), 5U);
}

TEST_F(Multiparts, CalendarsBehindAMultipartAreOnlyStored) {
    mixed("--b--\n.\n");
    EXPECT_TRUE(ux_mime_state().IcalNowAttachment);
    ux_begin_mime_message();
    EXPECT_TRUE(ux_mime_state().IcalNowAttachment) << "for the life of the process";

    process_.restart_with("INET_ICAL_NO_CONV_AFTER_PART_ONE = false\n");
    mixed("--b--\n.\n");
    EXPECT_FALSE(ux_mime_state().IcalNowAttachment);
}

TEST_F(Multiparts, InputThatEndsIsNoEnd) {
    for (const char* text : {"", "preamble\n", "--b\n", "--b\n\n", "--b\n\n1", "--b\n\n1\n--b--\n", "--b\nX: y\n"}) {
        try {
            mixed(text);
            FAIL() << text;
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), 1401) << text;
        }
    }
}

}  // namespace
