// A compressor of RTF ([MS-OXRTFCP], section 3.1): the decompressor's mirror, for tests. It looks for the longest match
// of all, plainly.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tnef_bytes.h"

inline std::uint32_t rtf_crc(std::string_view contents) {
    std::uint32_t crc = 0;
    for (const char c : contents) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320U : 0U);
    }
    return crc;
}

inline std::string with_rtf_head(const std::string& contents, std::size_t raw_size) {
    using tnef_bytes::u32;
    return u32(contents.size() + 12) + u32(raw_size) + "LZFu" + u32(rtf_crc(contents)) + contents;
}

class RtfCompressor {
public:
    std::string compress(std::string_view text) {
        for (std::size_t at = 0; at < text.size();) {
            const Match match = longest(text.substr(at));
            if (match.length >= 2) {
                reference(match.place, match.length);
                for (std::size_t i = 0; i < match.length; ++i) remember(text[at + i]);
                at += match.length;
            } else {
                begin_item(false);
                contents_ += text[at];
                remember(text[at++]);
            }
        }
        reference(next_, 2);  // the end
        return with_rtf_head(contents_, text.size());
    }

private:
    struct Match {
        std::size_t place = 0, length = 0;
    };

    // Places that hold the next two bytes, the last few that were written.
    Match longest(std::string_view text) const {
        Match best;
        if (text.size() < 2) return best;
        for (const std::uint16_t place : places_[static_cast<unsigned char>(text[0])]) {
            if (place == next_) continue;
            std::size_t length = 0;
            while (length < std::min<std::size_t>(17, text.size()) && (place + length) % 4096 != next_ &&
                   ring_[(place + length) % 4096] == text[length])
                ++length;
            // Up to where the ring is written next, the match goes on into itself.
            if ((place + length) % 4096 == next_ && length != 0)
                while (length < std::min<std::size_t>(17, text.size()) &&
                       text[length] == text[length - (next_ + 4096U - place) % 4096])
                    ++length;
            if (length > best.length) best = {place, length};
        }
        return best;
    }

    void begin_item(bool is_reference) {
        if (items_++ % 8 == 0) {
            control_at_ = contents_.size();
            contents_ += '\0';
        }
        if (is_reference) contents_[control_at_] = static_cast<char>(contents_[control_at_] | 1 << ((items_ - 1) % 8));
    }
    void reference(std::size_t place, std::size_t length) {
        begin_item(true);
        contents_ += static_cast<char>(place >> 4);
        contents_ += static_cast<char>((place & 15) << 4 | (length - 2));
    }
    void remember(char c) {
        std::vector<std::uint16_t>& old = places_[static_cast<unsigned char>(ring_[next_])];
        old.erase(std::remove(old.begin(), old.end(), static_cast<std::uint16_t>(next_)), old.end());
        ring_[next_] = c;
        std::vector<std::uint16_t>& now = places_[static_cast<unsigned char>(c)];
        now.push_back(static_cast<std::uint16_t>(next_));
        if (now.size() > 32) now.erase(now.begin());
        next_ = (next_ + 1) % 4096;
    }

    static constexpr std::string_view kStart =
        "{\\rtf1\\ansi\\mac\\deff0\\deftab720{\\fonttbl;}{\\f0\\fnil \\froman \\fswiss \\fmodern \\fscript \\fdecor MS "
        "Sans SerifSymbolArialTimes New RomanCourier{\\colortbl\\red0\\green0\\blue0\r\n\\par "
        "\\pard\\plain\\f0\\fs20\\b\\i\\u\\tab\\tx";

    std::array<char, 4096> ring_ = [] {
        std::array<char, 4096> ring{};
        std::copy(kStart.begin(), kStart.end(), ring.begin());
        return ring;
    }();
    std::array<std::vector<std::uint16_t>, 256> places_ = [] {
        std::array<std::vector<std::uint16_t>, 256> places;
        for (std::uint16_t i = 0; i < kStart.size(); ++i) places[static_cast<unsigned char>(kStart[i])].push_back(i);
        return places;
    }();
    std::size_t next_ = kStart.size();
    std::string contents_;
    std::size_t items_ = 0, control_at_ = 0;
};

inline std::string compress_rtf(std::string_view text) { return RtfCompressor().compress(text); }
