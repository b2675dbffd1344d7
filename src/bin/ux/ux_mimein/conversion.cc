// Conversion of MIME text parts: see conversion.h.
#include "ux_mimein/conversion.h"

#include <algorithm>
#include <array>
#include <memory>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "cvr/cvr.h"
#include "er/er.h"
#include "im/im.h"

namespace {

constexpr std::uint64_t kInMemoryBelow = 1'048'576;  // bytes; larger items are converted item to item
constexpr std::size_t kErrorTextLimit = 2048;        // of what is logged about a failed converter

// What reading the item as its set, and writing it as ASCII, has given.
struct AsciiForm {
    cvc_FileResult result;
    bool ascii = true;        // what came out is 7-bit
    bool same_bytes = false;  // the item is that already
    std::string text;         // of a small item
    im_Item scratch;          // of a large one
};

// A 7-bit item in a set in which 7-bit bytes are ASCII need not be converted to know what comes out.
bool is_ascii_already(const im_Item& item, std::string_view charset) {
    const ccs_Descriptor* set = ccs_GetCSDescriptor2(charset);
    return set != nullptr && set->extends_ascii() && ccs_Is7BitAsciiFile(item);
}

AsciiForm small_to_ascii(const im_Item& item, std::string_view charset, std::string_view from, std::string_view to) {
    AsciiForm form;
    er_LogMsg(11, kSharedGroup, 24070, "ux_validateTextFileCharset: cvc_iconvConvertFile2 Fr=", from, " To=", to);
    form.same_bytes = is_ascii_already(item, charset);
    if (form.same_bytes) return form;
    form.result = cvc_iconvConvertFile2(item, form.text, charset, to);
    form.ascii = ccs_Is7BitAscii(form.text);
    return form;
}

AsciiForm large_to_ascii(const im_Item& item, std::string_view charset, std::string_view to) {
    AsciiForm form;
    form.same_bytes = is_ascii_already(item, charset);
    if (form.same_bytes) return form;
    form.scratch = im_create(im_Domain::temporary, kScratchItem);
    form.result = cvc_iconvConvertFile(item, form.scratch, charset, to);
    form.ascii = ccs_Is7BitAsciiFile(form.scratch);
    return form;
}

void copy_item(const im_Item& from, im_Item& to) {
    constexpr std::size_t kBlock = std::size_t{64} << 10;
    const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
    for (std::uint64_t at = 0; at < from.size();) {
        const std::size_t got = from.read(at, block.get(), kBlock);
        if (got == 0) return;
        to.write(std::string_view(block.get(), got));
        at += got;
    }
}

// Gives the item the bytes of its ASCII form; it keeps its name.
void rewrite(im_Item& item, const AsciiForm& form) {
    if (form.same_bytes) return;
    item.truncate(0);
    if (form.scratch)
        copy_item(form.scratch, item);
    else
        item.write(std::string_view(form.text));
}

void log_failure(const cvr_FileOutcome& converted, im_Item& in, std::string_view charset) {
    if (!er_Wanted(5)) return;
    std::string text = " input-file '" + im_ItemRef2FName(in.ref()) + "'\n input-charset '" + std::string(charset) +
                       "'\n output-charset '" + converted.to_charset + "'\n error-text '" + converted.outcome.text +
                       "'";
    if (text.size() > kErrorTextLimit) text.resize(kErrorTextLimit);
    er_LogMsg(5, kSharedGroup, 24071, "Failed to convert part of a message:\n", text);
}

}  // namespace

ux_TextValidity ux_validateTextFileCharset(im_Item& item, std::string& qnCharSet) {
    const er_Trace trace("ux_validateTextFileCharset");
    if (qnCharSet == kHzSet) return {true, false};
    const std::string_view from = cvc_iconvCharsetEquiv(qnCharSet, cvc_Direction::from);
    const std::string_view to = cvc_iconvCharsetEquiv(kAsciiSet, cvc_Direction::to);
    const AsciiForm form =
        item.size() < kInMemoryBelow ? small_to_ascii(item, qnCharSet, from, to) : large_to_ascii(item, qnCharSet, to);
    if (form.result.code == kUnknownSet || form.result.code == kInvalidText) return {false, false};
    if (form.result.code != 0 || form.result.lost != 0) return {true, false};
    if (!form.ascii) return {false, false};
    if (from == to) return {true, false};
    rewrite(item, form);
    qnCharSet = kAsciiSet;
    return {true, true};
}

StandardConverterResult standardConverter(im_Item& in, im_Item& out, const StandardConverterPart& part) {
    const er_Trace trace("standardConverter");
    const std::array<cvr_Substitution, 3> substitutions{
        {{"SUBJECT", part.pSubject}, {"CHARSET", part.pSubjCharSet}, {"MIMETYPE", part.pMimeType}}};
    cvr_FileOutcome converted = cvr_BlConvertFile(substitutions, in, part.ItemType, part.pFromCharSet, out);
    const cvr_Outcome& outcome = converted.outcome;
    if (outcome.result == 0) return {true, false, converted.to_type, std::move(converted.to_charset)};
    if (outcome.result == -1) er_LogMsg(3, outcome.group, outcome.reason, outcome.text);
    if (outcome.result == 10) log_failure(converted, in, part.pFromCharSet);
    const bool keep = outcome.result == 1 || outcome.result == -1 || outcome.result == 10;
    return {false, keep, 0, {}};
}
