// Text from mail: see text.h.
#include "morvane/text.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <cstring>

#include "cvc/converter.h"
#include "cvc/utf8.h"
#include "mim/address.h"
#include "mim/encoded_words.h"
#include "morvane/printer.h"
#include "nm/nm.h"

namespace morvane {
namespace {

constexpr std::size_t kPreviewBytes = std::size_t{8} << 10;
constexpr std::uint64_t kDelimiterAt = 476;
constexpr std::string_view kUtf8 = "UTF8";

// The printable form of RFC 2156, section 4.4 (appendix of string encodings): "(a)" is "@" and so on.
struct Escape {
    std::string_view text;
    char byte;
};
constexpr Escape kPrintableEscapes[] = {
    {"(a)", '@'}, {"(p)", '%'}, {"(b)", '!'}, {"(q)", '"'}, {"(u)", '_'}, {"(l)", '('}, {"(r)", ')'},
};

std::string from_printable(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto escape = std::find_if(std::begin(kPrintableEscapes), std::end(kPrintableEscapes),
                                         [&](const Escape& row) { return text.starts_with(row.text); });
        if (escape != std::end(kPrintableEscapes)) {
            out += escape->byte;
            text.remove_prefix(escape->text.size());
        } else if (text.size() >= 5 && text[0] == '(' && text[4] == ')' &&
                   std::all_of(text.begin() + 1, text.begin() + 4, [](char c) { return c >= '0' && c <= '9'; })) {
            out += static_cast<char>((text[1] - '0') * 100 + (text[2] - '0') * 10 + (text[3] - '0'));
            text.remove_prefix(5);
        } else {
            out += text.front();
            text.remove_prefix(1);
        }
    }
    return out;
}

struct Fields {
    explicit Fields(std::string_view text) : native(text), status(nm_ParseORN(text)) {}
    std::string get(int number) const { return nm_get_field(native, status, number); }
    std::string_view native;
    NM_PARSE_STATUS status;
};

// The display name: CN, else the parts of a personal name.
std::string person(const Fields& fields) {
    std::string name = fields.get(kNmCommonName);
    if (!name.empty()) return name;
    for (const int part : {kNmGivenName, kNmInitials, kNmSurname, kNmGeneration}) {
        const std::string value = fields.get(part);
        if (!value.empty()) name += (name.empty() ? "" : " ") + value;
    }
    return name;
}

void split_lines(std::string_view text, std::size_t most_lines, Preview& found) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        while (line.ends_with('\r')) line.remove_suffix(1);
        const bool leading_blank = found.lines.empty() && line.find_first_not_of(" \t") == std::string_view::npos;
        if (!leading_blank && found.lines.size() == most_lines) {
            found.more = true;
            return;
        }
        if (!leading_blank) found.lines.emplace_back(line);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
}

}  // namespace

std::string readable_subject(std::string_view encoded) { return mim_DecodeMimeCharStr(encoded); }

std::string readable_name(std::string_view native) {
    const Fields fields(native);
    std::string address;
    std::string name = person(fields);
    const std::string internet = fields.get(kNmInternetAddress);
    const mim_Address parts = mim_parse_address(internet);
    if (parts.kind == mim_AddressKind::address) {
        mim_append_addr_spec(address, parts, false);
        if (!parts.phrase.empty()) name = readable_subject(parts.phrase);
    } else if (!internet.empty()) {
        address = internet;
    } else {
        address = from_printable(fields.get(kNmRfc822));
    }
    if (address.empty()) return name;
    return name.empty() ? address : name + " <" + address + '>';
}

std::string without_address(std::string_view native) {
    NM_PARSE_STATUS status = nm_ParseORN(native);
    if (!nm_has_field(status, kNmInternetAddress)) return std::string(native);
    std::string name(native);
    nm_PutFieldStr(name, status, kNmInternetAddress, {});
    return name;
}

void load_name_delimiter() {
    nm_state().inet_PrimDelim = '/';
    const os_Fd file = os_open_if_there("~/sys/config", O_RDONLY);
    std::uint16_t value = 0;  // in machine order, as the servers on this host write it
    std::array<char, sizeof value> bytes{};
    if (!file || os_pread(file.get(), bytes.data(), bytes.size(), kDelimiterAt) < bytes.size()) return;
    std::memcpy(&value, bytes.data(), sizeof value);
    if ((value & 0xFF) != 0) nm_state().inet_PrimDelim = static_cast<char>(value & 0xFF);
}

std::string to_utf8(std::string_view bytes, std::string_view set) {
    if (set.empty()) return std::string(bytes);
    cvc_Converter converter(set, kUtf8);
    std::string out;
    if (!converter.available() || !converter.convert(bytes, out)) return std::string(bytes);
    return out;  // what a cut-off character left behind is not asked for
}

bool is_utf8(std::string_view bytes) { return check_utf8(bytes).valid == bytes.size(); }

std::string lenient_utf8(std::string_view bytes) {
    std::string out;
    while (!bytes.empty()) {
        const std::size_t valid = check_utf8(bytes).valid;
        out += bytes.substr(0, valid);
        bytes.remove_prefix(valid);
        if (bytes.empty()) break;
        append_utf8(out, static_cast<unsigned char>(bytes.front()));
        bytes.remove_prefix(1);
    }
    return out;
}

Preview preview(ByteFile& file, std::uint64_t start, std::uint64_t length, std::string_view set,
                std::size_t most_lines) {
    Preview found;
    const std::string_view bytes =
        file.bytes(start, static_cast<std::size_t>(std::min<std::uint64_t>(length, kPreviewBytes)));
    split_lines(to_utf8(bytes, set), most_lines, found);
    found.more = found.more || bytes.size() < length;
    return found;
}

}  // namespace morvane
