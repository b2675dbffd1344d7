// Conversion of strings and items: see cvc.h.
#include "cvc/cvc.h"

#include <algorithm>
#include <memory>

#include "ccs/ccs.h"
#include "cvc/iconv_pool.h"
#include "im/im.h"

namespace {

constexpr std::size_t kBlock = std::size_t{64} << 10;

bool extends_ascii(std::string_view name) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(name);
    return set != nullptr && set->extends_ascii();
}

int result_of(const cvc_FileResult& result) {
    if (result.code != 0) return result.code == kUnknownSet ? kNoConversion : kNotInSet;
    return result.lost == 0 ? kConverted : kConvertedWithLoss;
}

// Feeds an item to a converter; `take` gets each piece of the output.
template <class Take>
cvc_FileResult convert_item(const im_Item& in, std::string_view from, std::string_view to, Take&& take) {
    cvc_Converter converter(from, to);
    if (!converter.available()) return {kUnknownSet, 0};
    const auto block = std::make_unique_for_overwrite<char[]>(std::min<std::uint64_t>(kBlock, in.size() + 1));
    std::string piece;
    for (std::uint64_t at = 0; at < in.size();) {
        const std::size_t got = in.read(at, block.get(), std::min<std::uint64_t>(kBlock, in.size() - at));
        if (got == 0) break;
        piece.clear();
        if (!converter.convert({block.get(), got}, piece)) return {kInvalidText, 0};
        take(piece);
        at += got;
    }
    piece.clear();
    if (!converter.finish(piece)) return {kInvalidText, 0};
    take(piece);
    return {0, converter.lost()};
}

}  // namespace

int cvc_ConvertString(std::string_view text, std::string_view from, std::string_view to, std::string& out) {
    out.clear();
    // The common case: ASCII under two names for it, and nothing to look up at iconv's.
    const bool same = ccs_same_set(from, to) || (ccs_Is7BitAscii(text) && extends_ascii(from) && extends_ascii(to));
    if (same) {
        out = text;
        return kConverted;
    }
    cvc_Converter converter(from, to);
    if (!converter.available()) return kNoConversion;
    if (!converter.convert(text, out) || !converter.finish(out)) {
        out.clear();
        return kNotInSet;
    }
    return converter.lost() == 0 ? kConverted : kConvertedWithLoss;
}

bool cvc_IsMappingAvail(std::string_view from, std::string_view to) { return cvc_Converter(from, to).available(); }

bool cvc_IsConvertAvail(std::string_view from, std::string_view to) { return cvc_IsMappingAvail(from, to); }

bool cvc_iconv_recognised_charset(std::string_view name) { return cvc_IsMappingAvail(name, kUtf8Set); }

std::string_view cvc_iconvCharsetEquiv(std::string_view name, cvc_Direction) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(name);
    return set == nullptr ? name : set->iconv;
}

cvc_FileResult cvc_iconvConvertFile2(const im_Item& in, std::string& out, std::string_view from, std::string_view to) {
    out.clear();
    return convert_item(in, from, to, [&](const std::string& piece) { out += piece; });
}

cvc_FileResult cvc_iconvConvertFile(const im_Item& in, im_Item& out, std::string_view from, std::string_view to) {
    return convert_item(in, from, to, [&](const std::string& piece) { out.write(std::string_view(piece)); });
}

int cvc_enhConvertFile(const im_Item& in, im_Item& out, std::string_view from, std::string_view to) {
    return result_of(cvc_iconvConvertFile(in, out, from, to));
}

void cvc_Reset() { reset_iconv_pool(); }
