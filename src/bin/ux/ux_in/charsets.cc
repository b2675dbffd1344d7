// Character sets of text: see charsets.h.
#include "ux_in/charsets.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "cust/cust.h"
#include "cvc/cvc.h"
#include "cvr/cvr.h"
#include "er/er.h"
#include "inet/subject.h"
#include "ux_mimein/detection.h"

namespace {

constexpr std::string_view kInSteering = "~/sys/unixin.str";
constexpr std::string_view kOutSteering = "~/sys/unixout.str";
constexpr int kScanLimit =
    10240;  // bytes of a part that are looked at, unless UXI_AUTODETECT_SCAN_LIMIT says otherwise

constexpr std::string_view kAutodetectKey = "UXI_MIME_CS_AUTODETECT";

std::string cut(std::string_view name) { return std::string(name.substr(0, kSetNameLimit)); }

// Loads a steering file into the slot that is in force from the start. False: there is no such file.
bool load_steering(std::string_view file) {
    const cvr_Outcome loaded = cvr_InitConvert(file);
    if (loaded.result != kSteeringLoaded && loaded.result != kSteeringMissing)
        er_TracedEscape(loaded.group, loaded.reason, loaded.text);
    return loaded.result == kSteeringLoaded;
}

// The operator has said what unlabelled text is in: the inbound steering file says what becomes of it.
void set_configured(ux_CharsetState& settings, std::string_view charset) {
    settings.FromCharSet = cut(ccs_native_name(charset));
    load_steering(kInSteering);
    settings.GotInSteering = true;
    ux_TargetCharSets targets = ux_InGetTargetCharSets(settings.FromCharSet);
    settings.ToLatinCS = std::move(targets.ToLatinCS);
    settings.ToT61CSInfo = std::move(targets.ToT61CSInfo);
}

std::string outbound_target() {
    const cvr_Target target = cvr_TargetCharSet(kLatin1Set, kPlainText);
    if (target.result == 0) return cut(target.target);
    return std::string(target.result == 1 ? kLatin1Set : kAsciiSet);
}

// Nothing is configured: what leaves this system says what is used here. The inbound steering file, when there is one,
// takes the outbound one's place afterwards, but GotInSteering stays false: whole-file conversions are for systems
// that name their set.
void set_by_outbound_steering(ux_CharsetState& settings) {
    load_steering(kOutSteering);
    settings.FromCharSet = outbound_target();
    const bool is_small = settings.FromCharSet == kLatin1Set || settings.FromCharSet == kAsciiSet;
    const bool has_latin = is_small || cvc_IsMappingAvail(settings.FromCharSet, kLatin1Set);
    settings.ToLatinCS = has_latin ? kLatin1Set : kAsciiSet;
    load_steering(kInSteering);
}

CharsetInfoStruct rich_target(std::string_view target, const ccs_Descriptor* descriptor) {
    return {true, cut(target), cut(ccs_GetInternalCharset(target, 1)), cut(ccs_GetInternalCharset(target, 2)),
            descriptor};
}

// The set that plain text of another than the default set, or of it, is written in.
std::string text_target(std::string_view charset) {
    const ux_CharsetState& settings = ux_charsets();
    const auto choose = [](const CharsetInfoStruct& rich, const std::string& latin) {
        return rich.GotCharsetInfo ? rich.CharsetExtl : latin;
    };
    if (charset == settings.FromCharSet) return choose(settings.ToT61CSInfo, settings.ToLatinCS);
    const ux_TargetCharSets targets = ux_InGetTargetCharSets(charset);
    return choose(targets.ToT61CSInfo, targets.ToLatinCS);
}

// Is the label of a part, or the lack of one, to be doubted?
bool wants_detection(const ux_ContentItem& content) {
    if (!ux::is_text_code(content.FileType)) return false;
    const char setting = ux_InAutodetectSetting();
    if (setting == 'N') return false;
    return setting == 'R' || content.CharSet.empty() || content.CharSet == ux_charsets().FromCharSet ||
           content.CharSet == kLatin1Set;
}

void detect(ux_ContentItem& content) {
    const std::optional<std::string> detected = ux_InAutodetectCharset(content.item, ux::scan_limit());
    if (!detected) return;
    const bool valid = cvc_iconv_recognised_charset(*detected);
    ux::log_detected(valid, "body", *detected, content.CharSet);
    if (valid && !ccs_equal_ignoring_case(*detected, content.CharSet)) content.CharSet = cut(*detected);
}

// Runs the converter; the new item takes the place of the old one when that worked.
bool convert_whole(ux_ContentItem& content) {
    im_Item converted = im_CrNewDataItem();
    if (cvr_VarBlockedConvert(ux_charsets().Converter, content.item, converted).result != 0) return false;
    content.item = std::move(converted);
    return true;
}

// There are values that are neither true nor false, and they have a meaning of their own: false is what reads so.
bool means_false(std::string_view value) {
    return value.empty() || std::string_view("FfNn0").find(value.front()) != std::string_view::npos;
}

void star_high_bytes(std::string& line) {
    for (char& c : line)
        if (static_cast<unsigned char>(c) >= 0x80) c = '*';
}

// A 7-bit subject can hold text only where the default set may come as HZ.
bool may_be_hz(std::string_view charset) {
    constexpr auto kSets = std::to_array<std::string_view>({"HZGB2312", "GB2312", "ISO2022CN"});
    return std::find(kSets.begin(), kSets.end(), charset) != kSets.end();
}

// Encodes a subject in the Latin target. With a target that it cannot be converted to, its bytes stay.
std::string latin_subject(std::string& subject, std::string_view source, std::string_view latin) {
    if (!cvc_IsConvertAvail(source, latin)) latin = kAsciiSet;
    std::string out;
    const auto converted = ux_InTextCharConverter(subject, source, latin, out);
    return inet_Subject_toRfc2047_dstring(converted.value_or(subject), latin, kQuotedMethod);
}

}  // namespace

ux_CharsetState& ux_charsets() {
    static ux_CharsetState state;
    return state;
}

void ux_reset_charsets() { ux_charsets() = ux_CharsetState{}; }

bool ux::is_text_code(std::int32_t code) { return code == kPlainText || code == kOtherText || code == kHtmlText; }

int ux::scan_limit() {
    std::optional<int>& limit = ux_charsets().Limit;
    if (!limit) limit = cust_GetInteger("UXI_AUTODETECT_SCAN_LIMIT", kScanLimit, 0, 0);
    return *limit;
}

void ux::log_detected(bool valid, std::string_view what, std::string_view name, std::string_view current) {
    const auto [level, number, word] = valid ? std::tuple(11, 24070, "Valid ") : std::tuple(7, 24071, "Invalid ");
    if (!er_Wanted(level)) return;
    const std::string text = std::string(word).append(what) + " charset detected=";
    er_LogMsg(level, kSharedGroup, number, text, name, ", default=", current);
}

void ux_InGetDefaultCharsets() {
    const er_Trace trace("ux_InGetDefaultCharsets");
    ux_CharsetState& settings = ux_charsets();
    settings.ToT61CSInfo = {};
    settings.GotInSteering = false;
    if (const auto charset = cust_GetCustomiseInfo("UXI_UNIX_MAIL_CHARSET"))
        set_configured(settings, *charset);
    else
        set_by_outbound_steering(settings);
    const CharsetInfoStruct& rich = settings.ToT61CSInfo;
    er_LogMsg(11, kGatewayGroup, 1525, settings.FromCharSet, settings.ToLatinCS, rich.CharsetExtl, rich.CharsetInT61,
              rich.CharsetInO61);
}

ux_TargetCharSets ux_InGetTargetCharSets(std::string_view pFromCS) {
    const er_Trace trace("ux_InGetTargetCharSets");
    const cvr_Target steered = cvr_TargetCharSet(pFromCS, kPlainText);
    const std::string target = cut(steered.result == 0 ? steered.target : pFromCS);
    if (steered.result != 0 && steered.result != 1) return {std::string(kAsciiSet), {}};
    if (target == kLatin1Set) return {std::string(kLatin1Set), {}};
    const ccs_Descriptor* descriptor = ccs_GetCSDescriptor2(target, 2);
    const bool reachable = target == pFromCS || cvc_IsMappingAvail(pFromCS, target);
    if (target == kAsciiSet || descriptor == nullptr || !reachable) return {std::string(kAsciiSet), {}};
    const bool has_latin = cvc_IsMappingAvail(pFromCS, kLatin1Set);
    return {std::string(has_latin ? kLatin1Set : kAsciiSet), rich_target(target, descriptor)};
}

ux_FileConvDetails ux_InGetFileConvDetails(std::int32_t InType, std::string& pInCharSet, bool DoLog) {
    const er_Trace trace("ux_InGetFileConvDetails");
    ux_CharsetState& settings = ux_charsets();
    settings.Converter.clear();
    if (pInCharSet.empty() && (InType == kPlainText || InType == kOtherText)) pInCharSet = settings.FromCharSet;
    ux_FileConvDetails details{false, InType, pInCharSet, false};
    if (settings.GotInSteering) {
        cvr_ConvertDetails steered = cvr_GetConvertDetails(InType, pInCharSet);
        details.Trash = steered.result == 2;
        if (steered.result == 0) {
            settings.Converter = std::move(steered.converter);
            return {true, steered.to_type, cut(steered.to_charset), false};
        }
    }
    if (InType != kPlainText) return details;
    details.OutCharSet = text_target(pInCharSet);
    if (DoLog && details.OutCharSet != pInCharSet) er_LogMsg(11, kGatewayGroup, 1526, pInCharSet, details.OutCharSet);
    return details;
}

void ux_InConvertContentItem(ux_ContentItem& content, bool AsciiFile) {
    const er_Trace trace("ux_InConvertContentItem");
    if (wants_detection(content)) detect(content);
    std::string working = content.CharSet.empty() ? ux_charsets().FromCharSet : content.CharSet;
    er_LogMsg(11, kGatewayGroup, 1521, content.FileType, working);
    ux_FileConvDetails details = ux_InGetFileConvDetails(content.FileType, working, false);
    content.Trash = details.Trash;
    // HZ text is 7-bit and must be converted all the same.
    const bool to_text = details.OutType == kPlainText || details.OutType == kOtherText;
    if (AsciiFile && to_text && working != kHzSet) {
        details.applies = false;
        details.OutType = kPlainText;
    }
    if (!details.applies)
        details.OutCharSet = AsciiFile ? std::string(kAsciiSet) : content.CharSet;
    else if (!convert_whole(content))
        details.OutType = kPlainText;
    content.FileType = details.OutType;
    content.CharSet.clear();
    if (details.OutType == kOtherText) content.CharSet = cut(ccs_GetInternalCharset(details.OutCharSet, 1));
    if (details.OutType == kPlainText) content.CharSet = details.OutCharSet;
    er_LogMsg(11, kGatewayGroup, 1522, content.FileType, content.CharSet);
}

std::optional<std::string_view> ux_InTextCharConverter(std::string& line, std::string_view pFromCharSet,
                                                       std::string_view pToCharSet, std::string& out) {
    const er_Trace trace("ux_InTextCharConverter");
    if (pFromCharSet == kAsciiSet || pFromCharSet == pToCharSet) return std::nullopt;
    if (cvc_is_usable(cvc_ConvertString(line, pFromCharSet, pToCharSet, out))) return out;
    if (pToCharSet == kAsciiSet) star_high_bytes(line);
    return std::nullopt;
}

std::string ux_InBuildSubject(std::string_view pInSubject) {
    const er_Trace trace("ux_InBuildSubject");
    const ux_CharsetState& settings = ux_charsets();
    if (pInSubject.empty()) return {};
    std::string subject(pInSubject);
    if (ccs_Is7BitAscii(subject)) {
        if (may_be_hz(settings.FromCharSet)) return inet_Subject_toRfc2047_dstring(subject, kHzSet, kBase64Method);
        return latin_subject(subject, kAsciiSet, kAsciiSet);
    }
    if (settings.ToT61CSInfo.GotCharsetInfo) {
        const std::string& rich = settings.ToT61CSInfo.CharsetInO61;
        std::string out;
        if (const auto converted = ux_InTextCharConverter(subject, settings.FromCharSet, rich, out))
            return inet_Subject_toRfc2047_dstring(*converted, rich, kBase64Method);
    }
    return latin_subject(subject, settings.FromCharSet, settings.ToLatinCS);
}

char ux_InAutodetectSetting() {
    const er_Trace trace("ux_InAutodetectSetting");
    char& setting = ux_charsets().DoCSAutoDetect;
    if (setting != 'U') return setting;
    const std::optional<std::string> value = cust_GetCustomiseInfo(kAutodetectKey);
    if (!value || cust_PresentAndTrue(kAutodetectKey))
        setting = 'R';
    else
        setting = means_false(*value) ? 'N' : 'Y';
    return setting;
}
