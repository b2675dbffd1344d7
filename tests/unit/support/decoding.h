// Feeding a decoder the way the gateway does: a body with its line ends becomes lines, lines become pieces, or go in
// blocks as far as the decoder takes them. And the plainest reading of each decoding, to compare with: the body as one
// text, character by character.
#pragma once

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "im/im.h"
#include "mim/decode.h"

namespace decoding {

inline constexpr std::size_t kReaderLimit = 1023;  // bytes of a piece, its line end included

struct Line {
    std::string_view text;  // without its line end
    std::size_t returns = 0;
    bool whole = false;
};

inline std::vector<Line> lines_of(std::string_view body) {
    std::vector<Line> lines;
    while (!body.empty()) {
        const std::size_t end = body.find('\n');
        Line line{body.substr(0, end), 0, end != std::string_view::npos};
        body.remove_prefix(line.whole ? end + 1 : body.size());
        if (line.whole)
            for (; line.text.ends_with('\r'); ++line.returns) line.text.remove_suffix(1);
        lines.push_back(line);
    }
    return lines;
}

struct Job {
    mim_TransferEncoding encoding = mim_TransferEncoding::identity;
    bool text = false;
    bool at_boundary = false;
};

inline std::string content(const im_Item& item) {
    std::string scratch;
    return std::string(item.view(0, static_cast<std::size_t>(item.size()), scratch));
}

// A line in pieces of the lengths that `next_length` gives, the last with its line end; that may be empty.
inline void feed_line(mim_Decoder& decoder, const Line& line, const std::function<std::size_t()>& next_length) {
    std::string_view text = line.text;
    bool at_start = true;
    for (;;) {
        const std::size_t length = next_length();
        if (text.size() <= length) break;
        decoder.piece({text.substr(0, length), at_start, false, 0});
        text.remove_prefix(length);
        at_start = false;
    }
    decoder.piece({text, at_start, line.whole, line.returns});
}

inline std::string in_pieces(const Job& job, std::string_view body, const std::function<std::size_t()>& next_length) {
    im_Item item = im_CrNewDataItem();
    const auto decoder = mim_make_decoder(job.encoding, job.text, item);
    for (const Line& line : lines_of(body)) feed_line(*decoder, line, next_length);
    decoder->finish(job.at_boundary);
    return content(item);
}

inline std::string whole(const Job& job, std::string_view body) {
    return in_pieces(job, body, [] { return std::string::npos; });
}

// Every line cut at one place, when it is long enough.
inline std::string cut_at(const Job& job, std::string_view body, std::size_t place) {
    im_Item item = im_CrNewDataItem();
    const auto decoder = mim_make_decoder(job.encoding, job.text, item);
    for (const Line& line : lines_of(body)) {
        std::size_t length = place;
        feed_line(*decoder, line, [&] { return std::exchange(length, std::string::npos); });
    }
    decoder->finish(job.at_boundary);
    return content(item);
}

// As a reader feeds it: at a line's start what lies in its buffer (`block` bytes of the body at a time) is offered as a
// whole; what is not taken comes as one line in pieces.
inline std::string in_blocks(const Job& job, std::string_view body, std::size_t block) {
    im_Item item = im_CrNewDataItem();
    const auto decoder = mim_make_decoder(job.encoding, job.text, item);
    while (!body.empty()) {
        const std::size_t taken = decoder->lines(body.substr(0, block));
        if (taken > std::min(block, body.size()) || (taken != 0 && body[taken - 1] != '\n')) return "took too much";
        body.remove_prefix(taken);
        if (taken != 0 || body.empty()) continue;
        const std::string_view line = body.substr(0, body.find('\n') + 1);
        const std::string_view rest = line.empty() ? body : line;
        feed_line(*decoder, lines_of(rest).front(), [] { return kReaderLimit; });
        body.remove_prefix(rest.size());
    }
    decoder->finish(job.at_boundary);
    return content(item);
}

inline std::string joined_line_ends(std::string_view text) {
    std::string out;
    for (const char c : text) {
        if (c == '\n' && out.ends_with('\r')) out.pop_back();
        out += c;
    }
    return out;
}

inline std::string plain_identity(const Job& job, std::string_view body) {
    std::string out;
    for (const Line& line : lines_of(body)) {
        out += line.text;
        if (line.whole && !job.text) out.append(line.returns, '\r');
        if (line.whole) out += '\n';
    }
    const std::vector<Line> lines = lines_of(body);
    if (job.at_boundary && !lines.empty() && lines.back().whole)
        out.resize(out.size() - 1 - (job.text ? 0 : lines.back().returns));
    return out;
}

inline std::string plain_base64(const Job& job, std::string_view body) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    unsigned held = 0, bits = 0;
    for (const char c : body) {
        if (c == '=') held = bits = 0;
        const std::size_t value = digits.find(c);
        if (value == std::string_view::npos) continue;
        held = (held << 6 | static_cast<unsigned>(value)) & 0xFFFFFF;
        bits += 6;
        if (bits >= 8) out += static_cast<char>(held >> (bits -= 8));
    }
    return job.text ? joined_line_ends(out) : out;
}

inline int hex_digit(char c) {
    const std::size_t value = std::string_view("0123456789ABCDEFabcdef").find(c);
    return value == std::string_view::npos ? -1 : static_cast<int>(value < 16 ? value : value - 6);
}

inline std::string plain_quoted(const Job& job, std::string_view body) {
    std::string out;
    const std::vector<Line> lines = lines_of(body);
    for (std::size_t number = 0; number < lines.size(); ++number) {
        std::string_view text = lines[number].text;
        bool soft = false;
        if (lines[number].whole) {
            while (text.ends_with(' ') || text.ends_with('\t')) text.remove_suffix(1);
            soft = text.ends_with('=');
            if (soft) text.remove_suffix(1);
        }
        for (std::size_t at = 0; at < text.size(); ++at) {
            const bool room = at + 2 < text.size() && text[at] == '=';
            const int high = room ? hex_digit(text[at + 1]) : -1, low = room ? hex_digit(text[at + 2]) : -1;
            out += high >= 0 && low >= 0 ? static_cast<char>(high * 16 + low) : text[at];
            if (high >= 0 && low >= 0) at += 2;
        }
        const bool of_boundary = job.at_boundary && number + 1 == lines.size();
        if (!lines[number].whole || soft || of_boundary) continue;
        if (!job.text) out.append(lines[number].returns, '\r');
        out += '\n';
    }
    return job.text ? joined_line_ends(out) : out;
}

// The bytes of a uuencoded line, six bits at a time; what it lacks is zero bits.
inline std::string plain_uu_line(std::string_view line) {
    if (line.empty()) return {};
    const unsigned count = (static_cast<unsigned char>(line[0]) - 0x20U) & 63U;
    std::string bytes;
    unsigned held = 0, bits = 0;
    for (std::size_t at = 1; bytes.size() < count; ++at) {
        const unsigned value = at < line.size() ? (static_cast<unsigned char>(line[at]) - 0x20U) & 63U : 0;
        held = (held << 6 | value) & 0xFFFFFF;
        bits += 6;
        if (bits >= 8) bytes += static_cast<char>(held >> (bits -= 8));
    }
    return bytes;
}

inline bool is_uu_begin(std::string_view line) {
    return line.size() >= 9 && line.starts_with("begin ") &&
           line.substr(6, 3).find_first_not_of("01234567") == std::string_view::npos;
}

inline std::string plain_uuencode(const Job& job, std::string_view body) {
    std::string out;
    bool inside = false;
    for (const Line& line : lines_of(body)) {
        if (inside && line.text == "end") return job.text ? joined_line_ends(out) : out;
        if (inside)
            out += plain_uu_line(line.text);
        else
            inside = is_uu_begin(line.text);
    }
    if (!inside) return plain_identity(job, body);
    return job.text ? joined_line_ends(out) : out;
}

inline std::string plainly(const Job& job, std::string_view body) {
    switch (job.encoding) {
        case mim_TransferEncoding::base64: return plain_base64(job, body);
        case mim_TransferEncoding::quoted_printable: return plain_quoted(job, body);
        case mim_TransferEncoding::uuencode: return plain_uuencode(job, body);
        case mim_TransferEncoding::identity: break;
    }
    return plain_identity(job, body);
}

}  // namespace decoding
