// The encoder and the reader of properties: mirrors of each other, and the bytes themselves.
#include "tnef/encode.h"

#include <cerrno>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "mapi/names.h"
#include "support/bytes.h"
#include "support/home.h"
#include "support/tnef_bytes.h"
#include "tnef/check.h"
#include "tnef/format.h"

namespace {

using namespace tnef_bytes;

std::string content(const im_Item& item) {
    std::string scratch;
    return std::string(item.view(0, static_cast<std::size_t>(item.size()), scratch));
}

std::string encoded(std::string_view item_class, const std::vector<mapi_Property>& properties) {
    im_Item out = im_CrNewDataItem();
    tnef_Encode(out, item_class, properties);
    return content(out);
}

// Class and properties of a stream, which must be in order.
struct Read {
    std::string item_class;
    std::vector<mapi_Property> properties;
};
Read read(std::string_view stream) {
    im_Item item = im_CrNewDataItem();
    item.write(stream);
    tnef_check(item, 1);
    tnef_Source source(item);
    tnef_Cursor attributes = tnef_open_stream(source, {0, item.size()});
    Read result;
    tnef_AttributeHead head;
    while (tnef_next_attribute(attributes, head)) {
        tnef_Cursor in(source, head.data);
        if (head.id == 0x00078008)
            result.item_class = std::string(in.take(static_cast<std::size_t>(head.data.size() - 1)));
        if (head.id != 0x00069003) continue;
        for (std::uint32_t count = in.take32(); count != 0; --count) {
            const tnef_Property property = tnef_take_property(in);
            result.properties.push_back(tnef_read_values(source, property, "WIN1252"));
        }
    }
    return result;
}

mapi_Property with(std::uint16_t id, mapi_Type type, std::vector<mapi_Value> values, bool multiple = false) {
    mapi_Property property;
    property.id = id;
    property.type = type;
    property.multiple = multiple;
    property.values = std::move(values);
    return property;
}

TEST(Encoder, AnEmptyMessageByteForByte) {
    EXPECT_EQ(hex(encoded("IPM.Note", {})), hex(bytes("789F3E22 0100"
                                                      "01 06900800 04000000 00000100 0100"
                                                      "01 08800700 09000000 'IPM.Note' 00 AA02"
                                                      "01 03900600 04000000 00000000 0000")));
}

TEST(Encoder, PropertiesByteForByte) {
    const std::string stream =
        encoded("", {mapi_unicode("PidTagSubject", "Hi"), mapi_boolean("PidLidReminderSet", true),
                     mapi_unicodes("PidNameKeywords", {"a"}), mapi_integer16("PidTagImportance", -2),
                     mapi_binary("PidTagSearchKey", "abc")});
    const std::string list = stream.substr(stream.find(bytes("0390 0600")) + 8);
    EXPECT_EQ(hex(list.substr(0, list.size() - 2)),
              hex(bytes("05000000"
                        "1F003700 01000000 06000000 4800 6900 0000 0000"
                        "0B000080 08200600 00000000 C0000000 00000046 00000000 03850000 01000000"
                        "1F100180 29030200 00000000 C0000000 00000046 01000000 12000000"
                        "4B006500 79007700 6F007200 64007300 0000 0000"
                        "01000000 04000000 61000000"
                        "02001700 FEFF0000"
                        "02010B30 01000000 03000000 61626300")));
}

TEST(Encoder, TypesOfAStreamComeBackAsTheyWere) {
    using enum mapi_Type;
    const std::string id(kPsetidCommon.bytes.begin(), kPsetidCommon.bytes.end());
    const std::vector<mapi_Property> properties = {
        with(0x6001, integer16, {{.number = -32768, .bytes = {}}}),
        with(0x6002, integer32, {{.number = -2147483648LL, .bytes = {}}}),
        with(0x6003, floating32, {{.real = -0.5, .bytes = {}}}),
        with(0x6004, floating64, {{.real = 1e300, .bytes = {}}}),
        with(0x6005, currency, {{.number = -12345, .bytes = {}}}),
        with(0x6006, floating_time, {{.real = 36526.25, .bytes = {}}}),
        with(0x6007, error, {{.number = 0x8004010F, .bytes = {}}}),
        with(0x6008, boolean, {{.number = 1, .bytes = {}}}),
        with(0x6009, object, {{.bytes = std::string(16, 'i') + "object"}}),
        with(0x600A, integer64, {{.number = INT64_MIN, .bytes = {}}}),
        with(0x600B, unicode, {{.bytes = "\xE2\x82\xAC \xF0\x9F\x98\x80"}}),
        with(0x600C, time, {{.number = 0x0CB34557A3DD4000, .bytes = {}}}),
        with(0x600D, mapi_Type::guid, {{.bytes = id}}),
        with(0x600E, binary, {{.bytes = std::string("\0\1\2", 3)}}),
        with(0x600F, unicode, {}, true),
        with(0x6010, integer16, {{.number = 1, .bytes = {}}, {.number = -1, .bytes = {}}}, true),
        with(0x6011, binary, {{.bytes = ""}, {.bytes = "12345"}}, true),
        with(0x6012, mapi_Type::guid, {{.bytes = id}, {.bytes = id}}, true),
    };
    const Read back = read(encoded("IPM.X", properties));
    EXPECT_EQ(back.item_class, "IPM.X");
    ASSERT_EQ(back.properties.size(), properties.size());
    for (std::size_t i = 0; i < properties.size(); ++i)
        EXPECT_EQ(back.properties[i], properties[i]) << properties[i].id;
}

TEST(Encoder, TextInACodePageBecomesUnicode) {
    const Read back = read(encoded("", {with(0x0037, mapi_Type::string8, {{.bytes = "\xC3\xA9"}})}));
    EXPECT_EQ(back.properties.at(0), with(0x0037, mapi_Type::unicode, {{.bytes = "\xC3\xA9"}}));
}

TEST(Encoder, NamedPropertiesAreNumberedFromTheFirst) {
    mapi_Property numbered = mapi_integer32("PidLidBusyStatus", 2);
    numbered.id = 0x9000;
    const Read back =
        read(encoded("", {mapi_unicode("PidLidLocation", "x"), numbered, mapi_unicode("PidLidWhere", "y")}));
    ASSERT_EQ(back.properties.size(), 3U);
    EXPECT_EQ(back.properties[0].id, 0x8000);
    EXPECT_EQ(back.properties[1].id, 0x9000) << "one that has a number keeps it";
    EXPECT_EQ(back.properties[2].id, 0x8001);
    EXPECT_EQ(back.properties[2].name, (mapi_Name{kPsetidMeeting, 2, {}}));
}

TEST(Encoder, NumbersOfNamedPropertiesBeginAgain) {
    im_Item out = im_CrNewDataItem();
    const TestHome home;
    tnef_Encoder encoder(out, "");
    for (int i = 0; i < 0x7FFF + 1; ++i) encoder.put(mapi_boolean("PidLidReminderSet", true));
    encoder.finish();
    const Read back = read(content(out));
    EXPECT_EQ(back.properties[0x7FFE].id, 0xFFFE);
    EXPECT_EQ(back.properties[0x7FFF].id, 0x8000);
}

TEST(Encoder, WhatNoStreamCanHoldIsRefused) {
    using enum mapi_Type;
    const std::vector<mapi_Property> bad = {
        with(0x0037, unspecified, {{}}), with(0x0037, static_cast<mapi_Type>(0xFB), {{}}),
        with(0x8000, unicode, {{}}),     with(0xFFFF, integer32, {{}}),
        with(0x0037, unicode, {}),       with(0x0037, unicode, {{}, {}})};
    for (const mapi_Property& property : bad) {
        im_Item out = im_CrNewDataItem();
        tnef_Encoder encoder(out, "IPM.Note");
        const std::uint64_t size = out.size();
        EXPECT_THROW(encoder.put(property), er_Escape);
        EXPECT_EQ(er_GetReason(), EINVAL);
        EXPECT_EQ(out.size(), size) << "nothing was written";
        encoder.finish();
        EXPECT_EQ(content(out), encoded("IPM.Note", {}));
    }
}

mapi_Value random_value(std::mt19937& random, mapi_Type type) {
    using enum mapi_Type;
    const auto number = [&] { return static_cast<std::int64_t>(std::uint64_t{random()} << 32 | random()); };
    const auto text = [&](std::size_t size) {
        std::string out;
        while (out.size() < size)
            out += random() % 4 == 0 ? "\xF0\x9F\x98\x80" : std::string(1, static_cast<char>('a' + random() % 26));
        return out;
    };
    const auto some_bytes = [&](std::size_t size) {
        std::string out;
        while (out.size() < size) out += static_cast<char>(random());
        return out;
    };
    switch (type) {
        case integer16: return {.number = static_cast<std::int16_t>(random()), .bytes = {}};
        case integer32: return {.number = static_cast<std::int32_t>(random()), .bytes = {}};
        case boolean: return {.number = static_cast<std::int64_t>(random() % 2), .bytes = {}};
        case error: return {.number = static_cast<std::int64_t>(random()), .bytes = {}};
        case floating32: return {.real = static_cast<float>(random()), .bytes = {}};
        case floating64:
        case floating_time: return {.real = static_cast<double>(random()) / 3, .bytes = {}};
        case unicode: return {.bytes = text(random() % 30)};
        case guid: return {.bytes = some_bytes(16)};
        case binary:
        case object: return {.bytes = some_bytes(random() % 30)};
        default: return {.number = number(), .bytes = {}};
    }
}

mapi_Property random_property(std::mt19937& random) {
    using enum mapi_Type;
    constexpr mapi_Type types[] = {integer16, integer32, floating32, floating64, currency, floating_time, error,
                                   boolean,   object,    integer64,  unicode,    time,     guid,          binary};
    mapi_Property property;
    property.type = types[random() % std::size(types)];
    property.id = static_cast<std::uint16_t>(random());
    if (property.id >= kMapiFirstNamed) {
        property.name = mapi_Name{mapi_ole_guid(static_cast<std::uint32_t>(random())), 0, {}};
        if (random() % 2 == 0)
            property.name->lid = static_cast<std::uint32_t>(random());
        else
            property.name->text = std::string(1 + random() % 9, 'n');
    }
    property.multiple = random() % 3 == 0;
    for (auto i = property.multiple ? random() % 4 : 1; i > 0; --i)
        property.values.push_back(random_value(random, property.type));
    return property;
}

TEST(Encoder, AnyPropertiesComeBack) {
    for (unsigned seed = 0; seed < 5000; ++seed) {
        std::mt19937 random(seed);
        std::vector<mapi_Property> properties;
        for (auto i = random() % 6; i > 0; --i) properties.push_back(random_property(random));
        const std::string stream = encoded("IPM.Note", properties);
        ASSERT_EQ(read(stream).properties, properties) << seed;
    }
}

// --- from another stream --------------------------------------------------------------------------------------------

// The stream of the one property, put as it stands in a stream.
std::string copied(const PropertyBytes& list, std::string_view set, bool& large) {
    im_Item in = im_CrNewDataItem(), out = im_CrNewDataItem();
    in.write(list.str());
    tnef_Source source(in);
    tnef_Cursor cursor(source, {4, in.size()});
    const tnef_Property property = tnef_take_property(cursor);
    large = property.is_large();
    tnef_Encoder encoder(out, "");
    encoder.put(source, property, set);
    encoder.finish();
    return content(out);
}

TEST(Copying, ALargeValueIsWhatItWas) {
    const TestHome home;
    for (const std::size_t size : {32'759, 32'760, 32'761, 32'764, 32'765, 200'000, 1'000'001}) {
        std::string value;
        while (value.size() < size) value += static_cast<char>(value.size() * 31 >> 3);
        bool large = false;
        const std::string stream = copied(PropertyBytes().variable(0x300B0102, value), "WIN1252", large);
        EXPECT_EQ(large, padded(value).size() + 4 > kTnefLargeValue) << size;
        const Read back = read(stream);
        ASSERT_EQ(back.properties.size(), 1U);
        EXPECT_TRUE(back.properties[0].values.at(0).bytes == value) << size;
    }
}

TEST(Copying, LargeTextOfACodePageBecomesUnicode) {
    const TestHome home;
    for (const std::size_t size : {20, 40'000, 300'000}) {
        std::string latin, utf8;
        while (latin.size() < size) {
            latin += "ab\xE9";
            utf8 += "ab\xC3\xA9";
        }
        bool large = false;
        const Read back = read(copied(PropertyBytes().text8(0x1000, latin), "WIN1252", large));
        EXPECT_EQ(large, size > 30'000);
        EXPECT_EQ(back.properties.at(0).type, mapi_Type::unicode);
        EXPECT_TRUE(back.properties.at(0).values.at(0).bytes == utf8) << size;
    }
}

TEST(Copying, LargeTextThatIsNotOfItsCodePageIsReadAsUtf8OrLatin1) {
    const TestHome home;
    const std::string filler(40'000, 'x');
    bool large = false;
    Read back = read(copied(PropertyBytes().text8(0x1000, filler + "\xC3\xA9"), "IA5", large));
    EXPECT_TRUE(back.properties.at(0).values.at(0).bytes == filler + "\xC3\xA9");
    back = read(copied(PropertyBytes().text8(0x1000, filler + "\xE9"), "IA5", large));
    EXPECT_TRUE(back.properties.at(0).values.at(0).bytes == filler + "\xC3\xA9");
}

TEST(Copying, LargeTextEndsAtItsFirstNul) {
    bool large = false;
    const Read back =
        read(copied(PropertyBytes().text8(0x1000, "short" + std::string(50'000, '\0')), "WIN1252", large));
    EXPECT_TRUE(large);
    EXPECT_EQ(back.properties.at(0).values.at(0).bytes, "short");
}

TEST(Copying, SeveralLargeTexts) {
    const TestHome home;
    const std::string first(20'000, 'a'), second(20'001, 'b');
    const auto value = [](const std::string& text) { return u32(text.size() + 1) + padded(zero_ended(text)); };
    bool large = false;
    const Read back =
        read(copied(PropertyBytes().raw(0x1000101E, u32(3) + value(first) + value("") + value(second)), "UTF8", large));
    ASSERT_TRUE(large);
    ASSERT_EQ(back.properties.at(0).values.size(), 3U);
    EXPECT_TRUE(back.properties[0].values[0].bytes == first && back.properties[0].values[2].bytes == second);
    EXPECT_EQ(back.properties[0].values[1].bytes, "");
}

TEST(Copying, ManyNumbers) {
    const TestHome home;
    std::string values = u32(50'000);
    for (std::uint32_t i = 0; i < 50'000; ++i) values += u32(i);
    bool large = false;
    const Read back = read(copied(PropertyBytes().raw(0x60001003, values), "UTF8", large));
    ASSERT_TRUE(large);
    ASSERT_EQ(back.properties.at(0).values.size(), 50'000U);
    EXPECT_EQ(back.properties[0].values[49'999].number, 49'999);
}

TEST(Reading, OddValuesOfOne) {
    bool large = false;
    Read back = read(copied(PropertyBytes().raw(0x0037001F, u32(0)), "UTF8", large));
    EXPECT_EQ(back.properties.at(0), with(0x0037, mapi_Type::unicode, {{}})) << "none becomes an empty one";
    back =
        read(copied(PropertyBytes().raw(0x0037001F, u32(2) + u32(4) + wide("a") + u32(4) + wide("b")), "UTF8", large));
    EXPECT_EQ(back.properties.at(0).values.at(0).bytes, "a") << "of two the first";
    back = read(copied(PropertyBytes().raw(0x0C17000B, u32(0xABCD0000)), "UTF8", large));
    EXPECT_EQ(back.properties.at(0).values.at(0).number, 0) << "padding is no truth";
}

TEST(Reading, ANameHasABound) {
    for (const std::uint32_t length : {kTnefNameLimit, kTnefNameLimit + 2}) {
        std::string name;
        while (name.size() < length) name += bytes("6E00");
        im_Item in = im_CrNewDataItem();
        in.write(u32(0x80000003) + kCommonSet + u32(1) + u32(length) + padded(name) + u32(5));
        tnef_Source source(in);
        tnef_Cursor cursor(source, {0, in.size()});
        if (length > kTnefNameLimit)
            EXPECT_THROW(tnef_take_property(cursor), er_Escape);
        else
            EXPECT_EQ(tnef_take_property(cursor).head.name->text.size(), kTnefNameLimit / 2);
    }
}

}  // namespace
