// Compressed RTF: see rtf.h.
#include "tnef/rtf.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "er/er.h"

namespace {

constexpr std::uint32_t kCompressed = 0x75465A4C;  // "LZFu"
constexpr std::uint32_t kAsItIs = 0x414C454D;      // "MELA"
constexpr std::uint32_t kFieldsCounted = 12;       // of the head, in its first field
constexpr std::size_t kDictionarySize = 4096;
constexpr std::size_t kLongestReference = 17;
constexpr std::size_t kFlushAt = std::size_t{32} << 10;

// [MS-OXRTFCP], section 2.1.2.1.
constexpr std::string_view kDictionaryStart =
    "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript \\fdecor MS "
    "Sans "
    "SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
    "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab"
    "\\tx";
static_assert(kDictionaryStart.size() == 207);

constexpr std::array<std::uint32_t, 256> make_crc_table() {
    std::array<std::uint32_t, 256> table{};
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        std::uint32_t value = i;
        for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ ((value & 1) != 0 ? 0xEDB88320U : 0U);
        table[i] = value;
    }
    return table;
}
constexpr auto kCrcTable = make_crc_table();

// The contents byte by byte, their CRC running along: begun with 0 and not turned at the end.
class Contents {
public:
    Contents(tnef_Source& source, tnef_Span span) : source_(source), span_(span) {}
    bool at_end() const { return block_.empty() && span_.empty(); }
    std::uint8_t take() {
        if (block_.empty()) block_ = source_.block(span_);
        if (block_.empty()) tnef_damaged("compressed RTF ends early");
        const auto byte = static_cast<std::uint8_t>(block_.front());
        block_.remove_prefix(1);
        crc_ = kCrcTable[(crc_ ^ byte) & 0xFF] ^ crc_ >> 8;
        return byte;
    }
    std::uint32_t crc_of_all() {
        while (!at_end()) take();
        return crc_;
    }

private:
    tnef_Source& source_;
    tnef_Span span_;
    std::string_view block_;
    std::uint32_t crc_ = 0;
};

// What is put out: into the item, in blocks, and into the dictionary.
class Output {
public:
    Output(im_Item& item, std::uint32_t most) : item_(item), most_(most) {
        std::copy(kDictionaryStart.begin(), kDictionaryStart.end(), dictionary_.begin());
    }
    std::size_t next_place() const { return next_; }
    std::uint64_t size() const { return written_ + pending_.size(); }

    void put(char byte) {
        if (size() == most_) tnef_damaged("compressed RTF is larger than it says");
        pending_ += byte;
        dictionary_[next_] = byte;
        next_ = (next_ + 1) % kDictionarySize;
    }
    // The bytes may overlap what they themselves put out.
    void put_again(std::size_t place, std::size_t length) {
        for (; length != 0; --length, place = (place + 1) % kDictionarySize) put(dictionary_[place]);
        if (pending_.size() >= kFlushAt) flush();
    }
    void flush() {
        item_.write(pending_);
        written_ += pending_.size();
        pending_.clear();
    }

private:
    im_Item& item_;
    std::uint64_t most_;
    std::uint64_t written_ = 0;
    std::string pending_;
    std::array<char, kDictionarySize> dictionary_{};
    std::size_t next_ = kDictionaryStart.size();
};

// False at the end reference.
bool decompress_item(Contents& in, Output& out, bool is_reference) {
    if (!is_reference) {
        out.put(static_cast<char>(in.take()));
        return true;
    }
    const unsigned high = in.take(), low = in.take();
    const std::size_t place = high << 4 | low >> 4;
    if (place == out.next_place()) return false;
    out.put_again(place, (low & 15) + 2);
    return true;
}

void decompress(Contents& in, Output& out) {
    static_assert(kLongestReference == 15 + 2);
    while (!in.at_end()) {
        const unsigned control = in.take();
        for (unsigned bit = 0; bit < 8 && !in.at_end(); ++bit)
            if (!decompress_item(in, out, (control >> bit & 1) != 0)) return;
        if (out.size() > kFlushAt) out.flush();
    }
}

}  // namespace

void tnef_DecompressRtf(tnef_Source& source, tnef_Span compressed, im_Item& out) {
    const er_Trace trace("tnef_DecompressRtf");
    tnef_Cursor head(source, compressed);
    const std::uint32_t size = head.take32(), raw_size = head.take32(), kind = head.take32(), crc = head.take32();
    if (size < kFieldsCounted) tnef_damaged("compressed RTF has a wrong size");
    const tnef_Span contents = head.take_span(size - kFieldsCounted);
    if (kind == kAsItIs) {
        if (contents.size() < raw_size) tnef_damaged("RTF is shorter than it says");
        return source.copy({contents.begin, contents.begin + raw_size}, out);
    }
    if (kind != kCompressed) tnef_damaged("compressed RTF of another kind");
    Contents in(source, contents);
    Output text(out, raw_size);
    decompress(in, text);
    text.flush();
    if (text.size() != raw_size) tnef_damaged("compressed RTF is smaller than it says");
    if (in.crc_of_all() != crc) tnef_damaged("compressed RTF has a wrong CRC");
}
