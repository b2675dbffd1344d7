// Calendar and property parts in messages: what becomes of the part, of the text beside it and of the records.
#include "ux_mimein/calendar_part.h"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "mapi/calendar_reader.h"
#include "mapi/rich_text.h"
#include "mapi/token_reader.h"
#include "os/module.h"
#include "support/log_lines.h"
#include "support/mime.h"

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kStars = "*~*~*~*~*~*~*~*~*~*";

std::string calendar(std::string_view description = "plain", std::string_view more = "") {
    return "BEGIN:VCALENDAR\nMETHOD:REQUEST\nBEGIN:VEVENT\nUID:a\nDTSTART:20261120T100000Z\nDTEND:"
           "20261120T110000Z\nDESCRIPTION:" +
           std::string(description) + "\n" + std::string(more) + "END:VEVENT\nEND:VCALENDAR\n";
}
std::string told(std::string_view description) {
    return "When: 2026-11-20 10:00 - 11:00 (UTC)\n\n" + std::string(kStars) + "\n\n" + std::string(description) + "\n";
}

constexpr std::string_view kProperties =
    "<ploxen-prop class='IPM.X' flags1='1'><list><prop name='PidTagSubject' type='unicode'>p</prop></list>"
    "<rel flags='2'><prop name='PidTagImportance' type='integer32'>1</prop></rel></ploxen-prop>\n";

class CalendarPart : public testing::Test {
protected:
    // A message body; its address lists, of which there are none here, stand at the beginning of the file.
    ConvertedMime convert(std::string_view type, std::string_view text, std::int64_t list_position = 0) {
        ux_MimePart part;
        part.header.pszSubPartType = type;
        part.bInImmediateMsg = true;
        part.AtTopLevel = true;
        part.tfDistListPos = list_position;
        return process_.convert(std::move(part), text);
    }
    ConvertedMime alternative(std::string_view text, std::string_view calendar_text, std::int64_t list_position = 0) {
        return convert("multipart/alternative; boundary=b",
                       "--b\nContent-Type: text/plain; charset=utf-8\n\n" + std::string(text) +
                           "\n--b\nContent-Type: text/calendar; charset=utf-8\n\n" + std::string(calendar_text) +
                           "\n--b--\n.\n",
                       list_position);
    }
    MimeProcess process_{"UXI_MIME_CS_AUTODETECT = \"unlabelled\"\n"};
};

const std::string kText = "30500 1167 set[IA5] 4 type[text/plain; charset=US-ASCII] subject[S]";
const std::string kHiddenText = "30500 1167 set[IA5] 4 flags 33 type[text/plain; charset=US-ASCII] subject[S]";

TEST_F(CalendarPart, BecomesPropertiesAndADescription) {
    const ConvertedMime made = convert("text/calendar", calendar() + ".\n");
    const std::string rtf = mapi_makeRtfFromUtf8Description(told("plain"), 0);
    EXPECT_EQ(made.records, (Lines{"11200", "30710", "30500 2130 " + std::to_string(rtf.size()) + " subject[S]"}));
    ASSERT_EQ(made.objects.size(), 1U);
    EXPECT_TRUE(made.objects[0].starts_with("30700 1 MAPI.ObjectProperties "));
    EXPECT_EQ(made.items, Lines{rtf});
    EXPECT_TRUE(made.end_read);
}

TEST_F(CalendarPart, AttachmentsAreCounted) {
    const ConvertedMime made = convert("text/calendar", calendar("x", "ATTACH:http://a\nATTACH:http://b\n") + ".\n");
    EXPECT_EQ(made.items, Lines{mapi_makeRtfFromUtf8Description(told("x"), 2)});
}

TEST_F(CalendarPart, BesideATextItHasNoDescription) {
    const ConvertedMime made = alternative("text", calendar());
    EXPECT_EQ(made.records, (Lines{"11200", "30710", "30200", kText, "39100"}));
    EXPECT_EQ(made.items, Lines{"text"});
}

TEST_F(CalendarPart, ADescriptionThatIsAsciiReplacesNothing) {
    const std::string text = told("plain");
    const ConvertedMime made = alternative(text, calendar());
    EXPECT_EQ(made.items, Lines{text});
}

TEST_F(CalendarPart, APoorTextIsReplaced) {
    const ConvertedMime made = alternative(told("Gespr?ch"), calendar("Gespräch"));
    EXPECT_EQ(made.items, Lines{told("Gespräch")}) << "nothing of the old text stays";
    EXPECT_EQ(made.records, (Lines{"11200", "30710", "30200",
                                   "30500 1167 set[UTF8] " + std::to_string(told("Gespräch").size()) +
                                       " type[text/plain; charset=UTF-8] subject[S]",
                                   "39100"}));
}

TEST_F(CalendarPart, ByRichTextWhenThereAreAttachments) {
    const ConvertedMime made = alternative(told("Gespr?ch"), calendar("Gespräch", "ATTACH:http://a\n"));
    const std::string rtf = mapi_makeRtfFromUtf8Desc_dstring(told("Gespräch"), 1);
    EXPECT_EQ(made.items, Lines{rtf});
    EXPECT_EQ(made.records.at(3), "30500 2130 " + std::to_string(rtf.size()) + " subject[S]");
}

TEST_F(CalendarPart, ATextWithoutTheSeparatorIsKept) {
    EXPECT_EQ(alternative("text", calendar("Gespräch")).items, Lines{"text"});
    process_.restart();
    const std::string no_line = "x" + std::string(kStars) + "\n";
    EXPECT_EQ(alternative(no_line, calendar("Gespräch")).items, Lines{no_line}) << "it is a line of its own";
}

TEST_F(CalendarPart, AnAlternativeOfSeveralFilesIsKept) {
    const auto convert_with = [this](std::string_view more) {
        process_.restart_with("INET_ICAL_NO_CONV_AFTER_PART_ONE = false\n");
        return convert("multipart/alternative; boundary=b",
                       "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\nContent-Type: text/plain\n\n" +
                           told("Gespr?ch") + "\n" + std::string(more) +
                           "--c--\n--b\nContent-Type: text/calendar; charset=utf-8\n\n" + calendar("Gespräch") +
                           "\n--b--\n.\n");
    };
    const auto files = [](const ConvertedMime& made) {
        return std::count_if(made.records.begin(), made.records.end(),
                             [](const std::string& line) { return line.starts_with("30500 "); });
    };
    const ConvertedMime two = convert_with("--c\nContent-Type: image/png\n\nimage\n");
    EXPECT_EQ(two.items, (Lines{told("Gespr?ch"), "image"}));
    EXPECT_EQ(files(two), 2) << "a record for each";
    const ConvertedMime one = convert_with("");
    EXPECT_EQ(one.items, Lines{told("Gespräch")});
    EXPECT_EQ(files(one), 1);
}

TEST_F(CalendarPart, AThirdPartReplacesNothing) {
    const ConvertedMime made = convert("multipart/alternative; boundary=b",
                                       "--b\nContent-Type: text/plain\n\n" + told("poor") +
                                           "\n--b\nContent-Type: text/html\n\n<b>x</b>\n--b\nContent-Type: "
                                           "text/calendar; charset=utf-8\n\n" +
                                           calendar("Gespräch") + "\n--b--\n.\n");
    EXPECT_EQ(made.items, (Lines{told("poor"), "<b>x</b>"}));
}

TEST_F(CalendarPart, WithoutPropertiesItHidesTheTextAndIsAttached) {
    for (const std::string& text :
         {std::string("no calendar"), std::string("BEGIN:VCALENDAR\nBEGIN:VJOURNAL\nEND:VJOURNAL\nEND:VCALENDAR\n"),
          calendar().substr(0, 60)}) {
        process_.restart();
        const ConvertedMime made = alternative("text", text);
        ASSERT_EQ(made.records.size(), 4U) << text;
        EXPECT_EQ(made.records[1], kHiddenText);
        EXPECT_TRUE(made.records[2].starts_with("30500 2191 ")) << made.records[2];
        EXPECT_EQ(made.items.size(), 2U);
    }
}

TEST_F(CalendarPart, InAnEncapsulatedMessageItIsKeptAndHidesNothing) {
    const ConvertedMime made = alternative("text", calendar(), -1);
    EXPECT_EQ(made.records.at(1), kText);
    EXPECT_TRUE(made.records.at(2).starts_with("30500 2191 "));
    const ConvertedMime properties = convert("application/ploxen-prop", std::string(kProperties) + ".\n", -1);
    EXPECT_TRUE(properties.records.at(0).starts_with("30500 3100 "));
}

TEST_F(CalendarPart, SettingsThatKeepIt) {
    process_.restart_with("INET_ICAL_2_MAPI = false\n");
    EXPECT_TRUE(convert("text/calendar", calendar() + ".\n").records.at(0).starts_with("30500 2191 "));
    EXPECT_EQ(alternative("text", calendar()).records.at(1), kText) << "and the text beside it";
    process_.restart_with("UXI_RETAIN_PLOXEN_PROPS = true\n");
    const ConvertedMime made = convert("text/calendar", calendar() + ".\n");
    ASSERT_EQ(made.records.size(), 4U);
    EXPECT_EQ(made.records[0], "11200");
    EXPECT_TRUE(made.records[2].starts_with("30500 2130 ")) << "the description";
    EXPECT_TRUE(made.records[3].starts_with("30500 2191 ")) << "and the part";
    EXPECT_EQ(made.items.at(1), calendar());
}

TEST_F(CalendarPart, OnlyTheFirstOneIsConverted) {
    const std::string part = "--b\nContent-Type: text/calendar\n\n" + calendar() + "\n";
    const ConvertedMime made = convert("multipart/mixed; boundary=b", part + part + "--b--\n.\n");
    ASSERT_EQ(made.records.size(), 4U);
    EXPECT_EQ(made.records[0], "11200");
    EXPECT_TRUE(made.records[3].starts_with("30500 2191 ")) << made.records[3];
}

TEST_F(CalendarPart, AfterTheFirstMultipartCalendarsAreStored) {
    const std::string nested = "--b\nContent-Type: multipart/alternative; boundary=c\n\n--c\n\ntext\n--c--\n";
    const std::string part = "--b\nContent-Type: text/calendar\n\n" + calendar() + "\n--b--\n.\n";
    EXPECT_TRUE(convert("multipart/mixed; boundary=b", nested + part).records.back().starts_with("30500 2191 "));
    process_.restart_with("INET_ICAL_NO_CONV_AFTER_PART_ONE = false\n");
    EXPECT_EQ(convert("multipart/mixed; boundary=b", nested + part).records.front(), "11200");
}

TEST_F(CalendarPart, InALabelledSet) {
    const ConvertedMime made = convert("text/calendar; charset=iso-8859-1", calendar("Gespr\xE4"
                                                                                     "ch") +
                                                                                ".\n");
    EXPECT_EQ(made.items, Lines{mapi_makeRtfFromUtf8Description(told("Gespräch"), 0)});
    const ConvertedMime greek = convert("text/calendar; charset=iso-8859-7", calendar("\xE1") + ".\n");
    EXPECT_EQ(greek.items, Lines{mapi_makeRtfFromUtf8Description(told("α"), 0)});
}

TEST_F(CalendarPart, APropertyPart) {
    const ConvertedMime made = convert("Application/ploxen-prop; x=y", std::string(kProperties) + ".\n");
    EXPECT_EQ(made.records, (Lines{"11200", "30710", "30710"}));
    EXPECT_EQ(made.items, Lines{});
    EXPECT_EQ(made.objects.size(), 1U);
}

TEST_F(CalendarPart, PropertiesStandInFrontOfWhatCameBefore) {
    const ConvertedMime made =
        convert("multipart/mixed; boundary=b", "--b\n\ntext\n--b\nContent-Type: application/ploxen-prop\n\n" +
                                                   std::string(kProperties) + "--b\n\ntext\n--b--\n.\n");
    EXPECT_EQ(made.records, (Lines{"11200", "30710", "30710", kText, kText}));
}

// The position of the text alternative has moved when the HTML text hides it.
TEST_F(CalendarPart, SavedPositionsMoveWithTheRecords) {
    process_.restart_with("INET_ICAL_NO_CONV_AFTER_PART_ONE = false\n");
    const ConvertedMime made =
        convert("multipart/alternative; boundary=b",
                "--b\n\ntext\n--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\nContent-Type: "
                "application/ploxen-prop\n\n" +
                    std::string(kProperties) + "--c\n\ntext\n--c--\n--b\nContent-Type: text/html\n\nhtml\n--b--\n.\n");
    ASSERT_EQ(made.records.size(), 10U);
    EXPECT_EQ(made.records[4], kHiddenText) << "hidden by the multipart";
    EXPECT_TRUE(made.records[5].starts_with("30100 3,-100 flags 24 "))
        << "hidden by the HTML text: " << made.records[5];
    EXPECT_EQ(made.records[6], kText);
    EXPECT_TRUE(made.records[8].starts_with("30500 2133 ")) << made.records[8];
}

TEST_F(CalendarPart, BadPropertiesAreLoggedAndTheRestGoesOn) {
    const LogLines log;
    const ConvertedMime made =
        convert("multipart/mixed; boundary=b",
                "--b\nContent-Type: application/ploxen-prop\n\n<ploxen-prop>\n--b\n\ntext\n--b--\n.\n");
    EXPECT_EQ(made.records, Lines{kText});
    EXPECT_EQ(log.count("5 102.1550"), 1U);
    EXPECT_EQ(log.count("11 102.1548"), 1U);
}

TEST_F(CalendarPart, AModuleThatIsMissingKeepsTheCalendar) {
    const LogLines log;
    forget_properties_module();
    os_set_module_folder("/nowhere");
    const ConvertedMime made = convert("text/calendar", calendar() + ".\n");
    const ConvertedMime properties = convert("application/ploxen-prop", std::string(kProperties) + ".\n");
    forget_properties_module();
    os_set_module_folder(std::nullopt);
    EXPECT_TRUE(made.records.at(0).starts_with("30500 2191 "));
    EXPECT_EQ(made.items, Lines{calendar()});
    EXPECT_EQ(properties.items, Lines{std::string(kProperties)}) << "a property part too";
}

TEST_F(CalendarPart, APartWithoutANumberIsNotConverted) {
    const LogLines log;
    ux_MimePart part;
    part.header.pszSubPartType = "application/ploxen-prop";
    part.tfDistListPos = 0;
    part.partNumber = 0;
    ux_mime_state().makeIcalBPDesc = false;
    EXPECT_EQ(process_.convert(std::move(part), std::string(kProperties) + ".\n").records, Lines{});
    EXPECT_EQ(log.count("5 102.1551"), 1U);
    EXPECT_TRUE(ux_mime_state().makeIcalBPDesc) << "the next calendar may have a description again";
}

TEST(ConvertPloxenProps, WrapsInsideMessagesNestedTwoDeep) {
    const TestHome home;
    ux_reset_mime_state();
    tf_File file = tf_CreateFile();
    const std::int64_t position = file.append(tf_Record(TFREC_end_package));
    ux_mime_state().msgNestLevel = 1;
    tf_File once = tf_CreateFile();
    EXPECT_GT(ux_ConvertPloxenProps(once, kProperties, true, 0), 0);
    ux_mime_state().msgNestLevel = 2;
    const std::int64_t bytes = ux_ConvertPloxenProps(file, kProperties, true, position);
    EXPECT_TRUE(ux_mime_state().havePnPropsForMsg);
    tf_Record plain, wrapped;
    for (int records = 0; tf_ReadRecord(once, plain); ++records) {
        ASSERT_TRUE(tf_ReadRecord(file, wrapped));
        EXPECT_EQ(wrapped.type(), TFREC_wrapped);
        EXPECT_EQ(wrapped.bytes().substr(16), plain.bytes()) << records;
    }
    ASSERT_TRUE(tf_ReadRecord(file, wrapped));
    EXPECT_EQ(wrapped.type(), TFREC_end_package);
    EXPECT_EQ(file.end(), position + bytes + 16);
    ux_reset_mime_state();
}

TEST(ConvertPloxenProps, NothingWithoutXmlOrPlace) {
    const TestHome home;
    ux_reset_mime_state();
    tf_File file = tf_CreateFile();
    EXPECT_EQ(ux_ConvertPloxenProps(file, "", true, 0), 0);
    EXPECT_EQ(ux_ConvertPloxenProps(file, kProperties, true, -1), 0);
    EXPECT_FALSE(ux_mime_state().havePnPropsForMsg);
    EXPECT_EQ(file.end(), 0);
    EXPECT_GT(ux_ConvertPloxenProps(file, "<ploxen-prop/>", true, 0), 0) << "the object alone";
    tf_Record record;
    tf_UnreadFile(file);
    ASSERT_TRUE(tf_ReadRecord(file, record));
    EXPECT_EQ(record.type(), TFREC_object_file);
    EXPECT_FALSE(tf_ReadRecord(file, record)) << "no class, no list, no relations";
    ux_reset_mime_state();
}

TEST(CnvFileToString, Bounds) {
    const TestHome home;
    const LogLines log;
    im_Item item = im_CrNewDataItem();
    item.write(std::string(kLargestTextFile, 'x'));
    EXPECT_EQ(ux_CnvFileToString(item)->size(), kLargestTextFile);
    item.write('x');
    EXPECT_FALSE(ux_CnvFileToString(item));
    EXPECT_EQ(log.count("5 100.24071"), 1U);
}

}  // namespace
