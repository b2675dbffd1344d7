// Property XML: what is read, what is refused, what is written and read again.
#include "mapi/property_xml.h"

#include <cerrno>
#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "er/er.h"
#include "mapi/property_text.h"
#include "mapi/property_xml_writer.h"
#include "support/home.h"
#include "tnef/encode.h"

namespace {

std::string content(const im_Item& item) {
    std::string scratch;
    return std::string(item.head(std::size_t{1} << 24, scratch));
}

class PropertyXml : public testing::Test {
protected:
    MSGSTORE_MAPI_INFO read(std::string_view xml) {
        im_Item tnef = im_create(im_Domain::temporary, kScratchItem);
        MSGSTORE_MAPI_INFO info = mapi_CreateMapiInfoFromXml(xml, tnef);
        tnef_ = content(tnef);
        return info;
    }
    // Why it is refused; empty when it is not.
    std::string refusal(std::string_view xml) {
        try {
            read(xml);
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.group(), kSystemGroup);
            EXPECT_EQ(escape.reason(), EINVAL);
            return escape.detail().empty() ? "refused" : escape.detail();
        }
        return {};
    }

    TestHome home_;
    std::string tnef_;
};

TEST_F(PropertyXml, Everything) {
    const MSGSTORE_MAPI_INFO info = read(
        "<?xml version='1.0'?>\n<!-- a comment -->\n"
        "<ploxen-prop class=\"IPM.Note.X\" flags1=\"1\" flags2=\"4294967295\" other=\"x\">\n"
        "  <subject>S &amp; T</subject><description>one\ntwo</description>\n"
        "  <list><prop name=\"PidLidLocation\" type=\"unicode\">Room &lt;1&gt;</prop><other/>\n"
        "    <prop type=\"integer32\" name=\"PidTagImportance\">2</prop>"
        "<prop name=\"PidNameKeywords\" type=\"multiple-unicode\">a\\;b</prop></list>\n"
        "  <comp><prop name=\"PidTagSensitivity\" type=\"integer32\">1</prop></comp>\n"
        "  <rel flags=\"7\"><prop name=\"0x3001001F\" type=\"unicode\">r</prop></rel>\n"
        "</ploxen-prop>\n");
    EXPECT_EQ(info.itemClass, "IPM.Note.X");
    EXPECT_EQ(info.flags1, 1U);
    EXPECT_EQ(info.flags2, 0xFFFFFFFFU);
    EXPECT_EQ(info.relFlags, 7U);
    EXPECT_EQ(info.utf8Subject, "S & T");
    EXPECT_EQ(info.utf8Description, "one\ntwo");
    EXPECT_EQ(info.compProps, "PidTagSensitivity:integer32=1\n");
    EXPECT_EQ(info.relProps, "PidTagDisplayName:unicode=r\n");
    EXPECT_EQ(info.listProps.substr(0, 34), "PidLidLocation:unicode=Room <1>\nPi");
    EXPECT_NE(info.listProps.find("PidNameKeywords:multiple-unicode=a\\;b\n"), std::string::npos);
    EXPECT_FALSE(info.isException);
    EXPECT_EQ(info.next, nullptr);
}

TEST_F(PropertyXml, TheObjectHoldsListAndRelations) {
    read(
        "<ploxen-prop class='C'><list><prop name='PidTagSubject' type='unicode'>s</prop></list>"
        "<comp><prop name='PidTagImportance' type='integer32'>1</prop></comp>"
        "<rel><prop name='PidTagSensitivity' type='integer32'>2</prop></rel></ploxen-prop>");
    im_Item expected = im_create(im_Domain::temporary, kScratchItem);
    tnef_Encode(expected, "C", {mapi_unicode("PidTagSubject", "s"), mapi_integer32("PidTagSensitivity", 2)});
    EXPECT_EQ(tnef_, content(expected));
    EXPECT_TRUE(tnef_.starts_with("\x78\x9F\x3E\x22"));
}

TEST_F(PropertyXml, TheLeast) {
    const MSGSTORE_MAPI_INFO info = read("<ploxen-prop/>");
    EXPECT_EQ(info.itemClass, "");
    EXPECT_EQ(info.listProps, "");
    EXPECT_EQ(info.flags1, 0U);
    EXPECT_EQ(read("<ploxen-prop flags1=''><list/></ploxen-prop>").flags1, 0U);
}

TEST_F(PropertyXml, AnExceptionSaysWhichOccurrence) {
    const MSGSTORE_MAPI_INFO info = read(
        "<ploxen-prop><list><prop name='PidLidExceptionReplaceTime' "
        "type='time'>2026-11-20T09:00:00Z</prop></list></ploxen-prop>");
    EXPECT_TRUE(info.isException);
    EXPECT_EQ(info.utcRecurrenceIdTime, "2026-11-20T09:00:00Z");
}

TEST_F(PropertyXml, ValuesAsTheyStand) {
    EXPECT_EQ(
        read("<ploxen-prop><list><prop name='PidTagSubject' type='unicode'>a\\b</prop></list></ploxen-prop>").listProps,
        "PidTagSubject:unicode=a\\\\b\n")
        << "one value has no escapes";
    EXPECT_EQ(read("<ploxen-prop><list><prop name='PidTagSubject' "
                   "type='unicode'><![CDATA[<&>]]>&#228;</prop></list></ploxen-prop>")
                  .listProps,
              "PidTagSubject:unicode=<&>ä\n");
    EXPECT_EQ(
        read("<ploxen-prop><list><prop name='PidTagSubject' type='unicode'>  </prop></list></ploxen-prop>").listProps,
        "PidTagSubject:unicode=  \n");
    EXPECT_EQ(read("<ploxen-prop><list><prop name='PidTagSubject' type='unicode'/></list></ploxen-prop>").listProps,
              "PidTagSubject:unicode=\n");
}

TEST_F(PropertyXml, WhatIsRefused) {
    for (const std::string_view xml :
         {"",
          "text",
          "<",
          "<ploxen-prop>",
          "<ploxen-prop></x>",
          "<other/>",
          "<Ploxen-prop/>",
          "<ploxen-prop/><ploxen-prop/>",
          "<ploxen-prop flags1='x'/>",
          "<ploxen-prop flags1='-1'/>",
          "<ploxen-prop flags2='4294967296'/>",
          "<ploxen-prop flags1='1 '/>",
          "<ploxen-prop><rel flags='0x1'/></ploxen-prop>",
          "<ploxen-prop><list><prop type='unicode'/></list></ploxen-prop>",
          "<ploxen-prop><list><prop name='PidTagSubject'/></list></ploxen-prop>",
          "<ploxen-prop><list><prop name='PidTagNothing' type='unicode'/></list></ploxen-prop>",
          "<ploxen-prop><list><prop name='PidTagSubject' type='text'/></list></ploxen-prop>",
          "<ploxen-prop><list><prop name='PidTagImportance' type='integer32'>high</prop></list></ploxen-prop>",
          "<ploxen-prop><comp><prop name='PidTagImportance' type='boolean'>2</prop></comp></ploxen-prop>",
          "<ploxen-prop><rel><prop name='' type='unicode'/></rel></ploxen-prop>"})
        EXPECT_NE(refusal(xml), "") << xml;
    EXPECT_EQ(refusal("<ploxen-prop><unknown><deeper/></unknown></ploxen-prop>"), "")
        << "what is not known is passed over";
}

TEST_F(PropertyXml, EntityBombs) {
    std::string bomb = "<!DOCTYPE x [<!ENTITY a 'aaaaaaaaaa'>";
    for (char c = 'b'; c <= 'z'; ++c) {
        bomb += std::string("<!ENTITY ") + c + " '";
        for (int i = 0; i < 10; ++i) bomb += std::string("&") + static_cast<char>(c - 1) + ";";
        bomb += "'>";
    }
    bomb += "]><ploxen-prop><subject>&z;</subject></ploxen-prop>";
    const std::string subject = refusal(bomb).empty() ? read(bomb).utf8Subject : std::string();
    EXPECT_LE(subject.size(), 3U) << "nothing that a document declares is expanded";
    EXPECT_EQ(refusal("<!DOCTYPE x SYSTEM 'file:///etc/passwd' [<!ENTITY e SYSTEM "
                      "'file:///etc/passwd'>]><ploxen-prop>&e;</ploxen-prop>"),
              "");
}

TEST_F(PropertyXml, DeepAndLarge) {
    const auto nested = [](int depth) {
        std::string xml = "<ploxen-prop>";
        for (int i = 1; i < depth; ++i) xml += "<a>";
        for (int i = 1; i < depth; ++i) xml += "</a>";
        return xml + "</ploxen-prop>";
    };
    EXPECT_EQ(refusal(nested(256)), "");
    EXPECT_EQ(refusal(nested(257)), "elements are nested too deeply");
    EXPECT_NE(refusal(nested(1'000'000)), "");
    EXPECT_NE(refusal("<ploxen-prop>" + std::string(4 << 20, '<')), "");
    std::string wide = "<ploxen-prop><list>";
    for (int i = 0; i < 20'000; ++i) wide += "<prop name='PidTagSubject' type='unicode'>x</prop>";
    EXPECT_EQ(read(wide + "</list></ploxen-prop>").listProps.size(),
              20'000 * std::string("PidTagSubject:unicode=x\n").size());
}

TEST_F(PropertyXml, CutAnywhereItIsRefused) {
    const std::string xml = write_property_xml("IPM.Note", "s", "d", {mapi_unicode("PidTagSubject", "x & y")});
    EXPECT_EQ(refusal(xml), "");
    for (std::size_t size = 0; size + 1 < xml.size(); ++size) EXPECT_NE(refusal(xml.substr(0, size)), "") << size;
}

TEST_F(PropertyXml, WrittenAndReadAgain) {
    const std::string odd = "<a> & \"b\" \\ ;\r\n\t ä 🎂";
    const std::vector<mapi_Property> list = {mapi_unicode("PidTagSubject", odd),
                                             mapi_unicodes("PidNameKeywords", {"a;b", "c\\;", odd}),
                                             mapi_binary("PidLidGlobalObjectId", std::string("\0\xFF", 2)),
                                             mapi_boolean("PidLidPrivate", true),
                                             mapi_time("PidLidCommonStart", mapi_time_of(1'800'000'000)),
                                             mapi_integer32("PidTagImportance", -1)};
    std::string lines;
    for (const mapi_Property& property : list) mapi_append_line(lines, property);
    const MSGSTORE_MAPI_INFO info = read(write_property_xml("C<\">", odd, odd, list));
    EXPECT_EQ(info.listProps, lines);
    EXPECT_EQ(info.itemClass, "C<\">");
    EXPECT_EQ(info.utf8Subject, odd);
    EXPECT_EQ(info.utf8Description, odd);
    EXPECT_EQ(read(write_property_xml("C", std::string("a\x01\0b\xEF\xBF\xBFz", 8), "", {})).utf8Subject, "abz")
        << "what XML cannot hold";
}

}  // namespace
