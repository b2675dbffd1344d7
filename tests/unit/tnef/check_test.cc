// The check of a whole stream: what is damaged is told, wherever the damage is, in linear time and with little memory.
#include "tnef/check.h"

#include <cerrno>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "support/home.h"
#include "support/tnef_bytes.h"

namespace {

using namespace tnef_bytes;

constexpr std::size_t kDepth = 10'000;

// What the check says: "" when all is well.
std::string verdict(std::string_view stream, std::size_t depth = kDepth) {
    im_Item item = im_CrNewDataItem();
    item.write(stream);
    try {
        tnef_check(item, depth);
    } catch (const er_Escape& escape) {
        EXPECT_EQ(escape.group(), kSystemGroup);
        EXPECT_EQ(escape.reason(), EBADMSG);
        return escape.detail();
    }
    return {};
}

PropertyBytes every_shape() {
    return PropertyBytes()
        .number(0x00170003, 1)
        .raw(0x00390040, u64(5))
        .raw(0x00480048, std::string(16, 'g'))
        .text(0x0037, "Hi")
        .text8(0x0038, "odd")
        .variable(0x300B0102, "12345")
        .raw(0x60001003, u32(2) + u32(7) + u32(8))
        .raw(0x6001101F, u32(2) + u32(4) + wide("a") + u32(6) + padded(wide("bc")))
        .raw(0x80000003, kCommonSet + u32(0) + u32(0x8501) + u32(15))
        .raw(0x8001000B, kCommonSet + u32(1) + u32(8) + wide("abc") + u32(1));
}

std::string whole_stream() {
    const std::string inner = TnefBytes().item_class("IPM.Note").properties(every_shape()).str();
    return TnefBytes()
        .item_class("IPM.Note")
        .codepage(1252)
        .attribute(1, 0x00069004, u32(1) + every_shape().str())
        .properties(every_shape())
        .begin_attachment()
        .title("a.txt")
        .data("content")
        .attachment_properties(every_shape())
        .embedded(inner)
        .str();
}

TEST(Check, AStreamInOrder) {
    EXPECT_EQ(verdict(TnefBytes().str()), "");
    EXPECT_EQ(verdict(whole_stream()), "");
}

TEST(Check, AStreamInAFileIsCheckedLikewise) {
    const TestHome home;
    const std::string stream = TnefBytes().begin_attachment().data(std::string(300'000, 'x')).str();
    EXPECT_EQ(verdict(stream), "");
    EXPECT_EQ(verdict(stream.substr(0, stream.size() - 1)), "TNEF: a length beyond the end");
}

TEST(Check, CutAtEveryByte) {
    const std::string stream = whole_stream();
    std::size_t whole = 0;
    for (std::size_t size = 0; size < stream.size(); ++size) whole += verdict(stream.substr(0, size)).empty() ? 1 : 0;
    // Only between two attributes is what is left a stream of its own: after the head and before each of the 10.
    EXPECT_EQ(whole, 10U);
}

TEST(Check, EveryByteChanged) {
    const std::string stream = whole_stream();
    std::size_t unnoticed = 0;
    for (std::size_t at = 0; at < stream.size(); ++at) {
        std::string changed = stream;
        changed[at] = static_cast<char>(changed[at] ^ 0x55);
        unnoticed += verdict(changed).empty() ? 1 : 0;
    }
    // The key of each stream, an attribute's identifier whose data is of no shape, and a message class with its
    // checksum are all that may change unnoticed.
    const std::size_t keys = 4, identifiers = 4 * 7, classes = 2 * (9 + 2);
    EXPECT_LE(unnoticed, keys + identifiers + classes);
    EXPECT_GE(unnoticed, keys);
}

struct BadRow {
    std::string stream;
    const char* verdict;
};

TEST(Check, WhatIsWrong) {
    const std::string head = TnefBytes().str();
    const auto list = [](const std::string& bytes) { return TnefBytes().attribute(1, 0x00069003, bytes).str(); };
    const auto table = [](const std::string& bytes) { return TnefBytes().attribute(1, 0x00069004, bytes).str(); };
    const std::vector<BadRow> rows = {
        {"", "a length beyond the end"},
        {"x\x9F\x3E\x22\x01\0", "a length beyond the end"},
        {u32(0x223E9F79) + u16(1), "another signature"},
        {u32(0x223E9F78) + "k", "a length beyond the end"},
        {head + "\1", "a length beyond the end"},
        {head + std::string(1, '\0'), "an unknown level"},
        {head + "\3" + u32(0) + u32(0) + u16(0), "an unknown level"},
        {head + "\1" + u32(0x00018004) + u32(0xFFFFFFFF) + "abc", "a length beyond the end"},
        {head + "\1" + u32(0x00018004) + u32(3) + "abc", "a length beyond the end"},
        {TnefBytes().attribute(1, 0x00018004, "abc", 0x127).str(), "a wrong checksum"},
        {TnefBytes().attribute(2, 0x0006800F, "", 1).str(), "a wrong checksum"},
        {list(""), "a length beyond the end"},
        {list(u32(1)), "a length beyond the end"},
        {list(u32(0) + "x"), "properties shorter than their attribute"},
        {list(u32(0xFFFFFFFF) + u32(0x00170003) + u32(1)), "a length beyond the end"},
        {list(u32(1) + u32(0x00170000)), "an unknown type"},
        {list(u32(1) + u32(0x001700FB)), "an unknown type"},
        {list(u32(1) + u32(0x00172003) + u32(1)), "an unknown type"},
        {list(u32(1) + u32(0x00371003) + u32(0xFFFFFFFF) + u32(1)), "a length beyond the end"},
        {list(u32(1) + u32(0x0037001F) + u32(1) + u32(0xFFFFFFFF)), "a length beyond the end"},
        {list(u32(1) + u32(0x0037001F) + u32(0xFFFFFFFF) + u32(0)), "a length beyond the end"},
        {list(u32(1) + u32(0x80000003) + kCommonSet + u32(2) + u32(0) + u32(0)), "an unknown kind of name"},
        {list(u32(1) + u32(0x80000003) + kCommonSet + u32(1) + u32(0xFFFFFFFF)), "a length beyond the end"},
        {list(u32(1) + u32(0x80000003) + u32(0)), "a length beyond the end"},
        {table(""), "a length beyond the end"},
        {table(u32(0xFFFFFFFF) + u32(0)), "a length beyond the end"},
        {table(u32(1) + u32(0) + u32(0)), "properties shorter than their attribute"},
        {TnefBytes().embedded("").str(), "a length beyond the end"},
        {TnefBytes().embedded("no stream").str(), "another signature"},
        {TnefBytes().embedded(TnefBytes().attribute(1, 0x00018004, "a", 1).str()).str(), "a wrong checksum"},
        {TnefBytes().embedded(TnefBytes().subject("a").str() + "\1").str(), "a length beyond the end"},
    };
    for (const BadRow& row : rows) EXPECT_EQ(verdict(row.stream), std::string("TNEF: ") + row.verdict) << row.verdict;
}

TEST(Check, WhatIsTolerated) {
    EXPECT_EQ(verdict(TnefBytes().attribute(1, 0x00078008, "IPM", 9).attribute(1, 0x00070006, "IPM", 9).str()), "")
        << "old writers sum classes wrongly";
    EXPECT_EQ(verdict(TnefBytes().attribute(1, 0x12345678, "?").str()), "") << "an attribute that is not known";
    EXPECT_EQ(verdict(TnefBytes().attribute(1, 0x00069003, u32(1) + u32(0x300B0102) + u32(1) + u32(1) + "x").str()), "")
        << "no padding at the end of a list";
    EXPECT_EQ(verdict(TnefBytes().properties(PropertyBytes().raw(0x0037001F, u32(0))).str()), "") << "no value at all";
    EXPECT_EQ(verdict(TnefBytes()
                          .begin_attachment()
                          .attachment_properties(PropertyBytes().variable(0x3701000D, kStorageIid + "anything"))
                          .str()),
              "")
        << "an object of another kind";
    EXPECT_EQ(
        verdict(
            TnefBytes().begin_attachment().attachment_properties(PropertyBytes().variable(0x3701000D, "short")).str()),
        "")
        << "an object without an interface";
    EXPECT_EQ(verdict(TnefBytes().properties(PropertyBytes().variable(0x3701000D, kMessageIid + "no stream")).str()),
              "")
        << "messages are embedded in attachments alone";
}

// Streams within streams: each is head, one attribute, one property, one object.
std::string nested(std::size_t depth) {
    std::vector<std::uint32_t> sizes(depth, 6);  // of each stream, the innermost last
    constexpr std::uint32_t around = 9 + 4 + 4 + 4 + 4 + 16 + 2;
    for (std::size_t i = depth - 1; i-- > 0;) sizes[i] = 6 + around + sizes[i + 1] + (4 - sizes[i + 1] % 4) % 4;
    std::string front, back;
    std::vector<std::uint32_t> sums(depth);
    for (std::size_t i = 0; i < depth; ++i) {
        front += u32(0x223E9F78) + u16(1);
        if (i + 1 == depth) break;
        const std::uint32_t object = 16 + sizes[i + 1];
        const std::uint32_t padding = (4 - object % 4) % 4;
        front += '\2' + u32(0x00069005) + u32(4 + 4 + 4 + 4 + object + padding);
        front += u32(1) + u32(0x3701000D) + u32(1) + u32(object) + kMessageIid;
    }
    // The sums, from the inside out: a stream's bytes less its attribute's head and checksum.
    std::uint32_t inner = checksum(front.substr(front.size() - 6));
    std::size_t at = front.size() - 6;
    for (std::size_t i = depth - 1; i-- > 0;) {
        constexpr std::size_t data_head = 4 + 4 + 4 + 4 + 16, attribute_head = 9, stream_head = 6;
        const std::uint32_t object = 16 + sizes[i + 1];
        const std::uint32_t data = checksum(front.substr(at - data_head, data_head)) + inner;
        back += std::string((4 - object % 4) % 4, '\0') + u16(data & 0xFFFF);
        at -= data_head + attribute_head + stream_head;
        inner = data + checksum(front.substr(at, attribute_head + stream_head)) + checksum(u16(data & 0xFFFF));
    }
    return front + back;
}

TEST(Check, TenThousandDeep) {
    const TestHome home;
    for (const std::size_t depth : {2UL, 3UL, 10'000UL, 50'000UL}) {
        const std::string stream = nested(depth);
        EXPECT_EQ(verdict(stream, depth), "") << depth;
        EXPECT_EQ(verdict(stream, 5), "") << "what lies deeper is bytes";
        std::string broken = stream;
        broken[stream.size() / 2] = static_cast<char>(broken[stream.size() / 2] ^ 1);
        EXPECT_NE(verdict(broken, depth), "") << depth;
    }
}

TEST(Check, DamageBelowTheDepthIsSeenByTheSumAroundIt) {
    std::string stream = nested(10);
    const std::size_t innermost = stream.rfind(u32(0x223E9F78));
    stream[innermost] = 'y';
    EXPECT_EQ(verdict(stream, 10), "TNEF: another signature");
    EXPECT_EQ(verdict(stream, 3), "TNEF: a wrong checksum");
}

}  // namespace
