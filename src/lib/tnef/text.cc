// Text in TNEF streams: see text.h.
#include "tnef/text.h"

#include <algorithm>
#include <array>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "cvc/utf8.h"
#include "dstring/constant_text.h"
#include "mapi/property.h"

namespace {

struct CodepageRow {
    std::uint32_t codepage;
    dstring_Constant<15> set;
};

// clang-format off
constexpr auto kCodepages = std::to_array<CodepageRow>({
    {874, "ISO8859_11"},  {932, "SJIS"},        {936, "GBK"},         {949, "KSC5601"},     {950, "BIG5"},
    {1200, "UTF-16LE"},   {1201, "UTF-16BE"},
    {1250, "WIN1250"},    {1251, "WIN1251"},    {1252, "WIN1252"},    {1253, "WIN1253"},    {1254, "WIN1254"},
    {1255, "WIN1255"},    {1256, "WIN1256"},    {1257, "WIN1257"},    {1258, "WIN1258"},
    {10000, "MACINTOSH"}, {20127, "IA5"},       {20866, "KOI8_R"},    {20932, "EUCJP"},     {21866, "KOI8_U"},
    {28591, "ISO8859_1"}, {28592, "ISO8859_2"}, {28593, "ISO8859_3"}, {28594, "ISO8859_4"}, {28595, "ISO8859_5"},
    {28596, "ISO8859_6"}, {28597, "ISO8859_7"}, {28598, "ISO8859_8"}, {28599, "ISO8859_9"}, {28603, "ISO8859_13"},
    {28605, "ISO8859_15"},{38598, "ISO8859_8"}, {50220, "ISO2022JP"}, {50221, "ISO2022JP"}, {50222, "ISO2022JP"},
    {50225, "ISO2022KR"}, {50227, "ISO2022CN"}, {51932, "EUCJP"},     {51936, "GB2312"},    {51949, "KSC5601"},
    {52936, "HZGB2312"},  {54936, "GB18030"},   {65000, "UTF7"},      {65001, "UTF8"},
});
// clang-format on
constexpr std::string_view kDefaultSet = "WIN1252";

// Converts a whole text, block by block; false when it is not in the set.
bool convert(tnef_Source& source, tnef_Span span, std::string_view set,
             const std::function<void(std::string_view)>& out) {
    cvc_Converter converter(set, kUtf8Set);
    if (!converter.available()) return false;
    std::string piece;
    for (bool more = true; more && !span.empty();) {
        const std::string_view block = source.block(span);
        const std::string_view text = block.substr(0, block.find('\0'));
        more = text.size() == block.size();
        piece.clear();
        if (!converter.convert(text, piece)) return false;
        out(piece);
    }
    piece.clear();
    if (!converter.finish(piece)) return false;
    out(piece);
    return true;
}

// Blocks are cut at even places of the text, wherever that begins.
void convert_unicode(tnef_Source& source, tnef_Span span, const std::function<void(std::string_view)>& out) {
    std::string piece;
    char16_t high = 0;
    bool more = true;
    while (more && !span.empty()) {
        std::string_view block = source.block(span);
        if (block.size() % 2 != 0 && !span.empty()) {
            block.remove_suffix(1);
            --span.begin;
        }
        piece.clear();
        more = mapi_append_utf8(piece, block, high);
        out(piece);
    }
    if (high == 0) return;
    piece.clear();
    append_utf8(piece, 0xFFFD);
    out(piece);
}

// Two bytes for every character: a NUL byte ends nothing there.
bool is_wide(std::string_view set) { return set.starts_with("UTF-16"); }

}  // namespace

std::string tnef_set_of(std::uint32_t codepage) {
    const auto row = std::lower_bound(kCodepages.begin(), kCodepages.end(), codepage,
                                      [](const CodepageRow& r, std::uint32_t number) { return r.codepage < number; });
    if (row != kCodepages.end() && row->codepage == codepage) return std::string(std::string_view(row->set));
    std::string name = "CP" + std::to_string(codepage);
    return codepage != 0 && cvc_iconv_recognised_charset(name) ? name : std::string(kDefaultSet);
}

std::string tnef_utf8(std::string_view bytes, const tnef_TextKind& kind) {
    if (kind.is_unicode) return mapi_utf8(bytes);
    if (!is_wide(kind.set)) bytes = bytes.substr(0, bytes.find('\0'));
    if (!is_wide(kind.set) && ccs_Is7BitAscii(bytes) && ccs_GetCSDescriptor(kind.set) != nullptr &&
        ccs_GetCSDescriptor(kind.set)->extends_ascii())
        return std::string(bytes);
    std::string out;
    if (cvc_is_usable(cvc_ConvertString(bytes, kind.set, kUtf8Set, out))) return out.substr(0, out.find('\0'));
    if (check_utf8(bytes).valid == bytes.size()) return std::string(bytes);
    cvc_ConvertString(bytes, kLatin1Set, kUtf8Set, out);
    return out;
}

void tnef_read_text(tnef_Source& source, tnef_Span span, const tnef_TextKind& kind,
                    const std::function<void(std::string_view)>& out, const std::function<void()>& again) {
    if (kind.is_unicode || kind.set == "UTF-16LE") return convert_unicode(source, span, out);
    for (const std::string_view set : {kind.set, kUtf8Set, kLatin1Set}) {
        if (convert(source, span, set, out)) return;
        again();
    }
}
