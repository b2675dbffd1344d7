// Character sets of parts: see part_charset.h.
#include "ux_mimein/part_charset.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "ccs/ccs.h"
#include "cust/cust.h"
#include "cvc/cvc.h"
#include "cvr/autodetect.h"
#include "cvr/cvr.h"
#include "er/er.h"
#include "inet/legacy_subject.h"
#include "mim/content_type.h"
#include "ux_in/charsets.h"
#include "ux_mimein/conversion.h"
#include "ux_mimein/detection.h"
#include "ux_mimein/mime_part.h"

namespace {

constexpr char kNever = 'N';
constexpr char kAlways = 'R';
constexpr std::size_t kTypeLimit = 1023;

struct Profile {
    std::string_view configured, profile;
};
constexpr auto kProfiles = std::to_array<Profile>({
    {"GB2312", "GB2312"},
    {"ISO2022CN", "GB2312"},
    {"KSC5601", "KSC5601"},
    {"ISO2022KR", "KSC5601"},
});

// Sets that mailers declare without looking at the text.
bool means_little(std::string_view charset) {
    return charset == kAsciiSet || charset == kLatin1Set || charset == "UTF7";
}

// Where the set of one text part comes from.
class CharsetSettler {
public:
    explicit CharsetSettler(ux_LeafPart& part)
        : part_(part), setting_(ux_InAutodetectSetting()), TryAutodetect_(setting_ != kNever) {}
    void settle();

private:
    void detect();
    void validate();
    void check_label();
    void detect_whole();
    void check_supplied();
    bool is_ascii() const { return ccs_Is7BitAsciiFile(part_.item); }

    ux_LeafPart& part_;
    char setting_;
    bool TryAutodetect_;
    bool recognisedTextCharset_ = false;
    bool csetChanged_ = false;
};

void CharsetSettler::settle() {
    if (TryAutodetect_ && (part_.Used8bitDefCS || setting_ == kAlways)) detect();
    if (!recognisedTextCharset_) validate();
    if (csetChanged_) {
        part_.pszMIMEContentType = part_.lQNFileCode == kHtmlText ? "text/html" : "text/plain";
        ux_RelabelPart(part_, std::string(part_.QNCharSet));
    }
    if (recognisedTextCharset_) TryAutodetect_ = false;
    if (TryAutodetect_) check_label();
    if (TryAutodetect_) detect_whole();
    check_supplied();
}

void CharsetSettler::detect() {
    const std::optional<std::string> detected = ux_InAutodetectCharset(part_.item, ux::scan_limit());
    if (!detected) return;
    recognisedTextCharset_ = cvc_iconv_recognised_charset(*detected);
    ux::log_detected(recognisedTextCharset_, "body", *detected, part_.QNCharSet);
    if (!recognisedTextCharset_ || ccs_equal_ignoring_case(*detected, part_.QNCharSet)) return;
    part_.QNCharSet = *detected;
    csetChanged_ = true;
}

void CharsetSettler::validate() {
    const ux_TextValidity validity = ux_validateTextFileCharset(part_.item, part_.QNCharSet);
    recognisedTextCharset_ = validity.valid;
    csetChanged_ = csetChanged_ || validity.pCsetChanged;
}

// The message itself declared a set that says something: it is believed, but ASCII is called ASCII.
void CharsetSettler::check_label() {
    if (part_.Used8bitDefCS || means_little(part_.QNCharSet)) return;
    TryAutodetect_ = false;
    if (is_ascii()) ux_RelabelPart(part_, kAsciiSet);
}

void CharsetSettler::detect_whole() {
    const inet_LegacySubjects subject = inet_2047SubjectToLegacies(part_.rfc2047subject);
    const cvr_Autodetected found = cvr_autodetectCS(part_.item, -1, subject.t61SubjCharset, part_.CSautoDetectProfile);
    const std::string name = found.names.substr(0, found.names.find(','));
    const ccs_Descriptor* set = ccs_GetCSDescriptor(name);
    if (set != nullptr && (set->flags & kInterchangeSet) != 0) return;
    if (!name.empty())
        ux_RelabelPart(part_, name);
    else if (!found.Is8bit && part_.Used8bitDefCS && is_ascii())
        ux_RelabelPart(part_, kAsciiSet);
}

// Without detection a supplied set says nothing about text that is all ASCII.
void CharsetSettler::check_supplied() {
    if (part_.Used8bitDefCS && setting_ == kNever && is_ascii()) ux_RelabelPart(part_, kAsciiSet);
}

bool has_steering() {
    std::optional<bool>& known = ux_mime_state().HaveSteering;
    if (!known) known = os_fexists("~/sys/mimein.str") || os_fexists("~/sys/unixin.str");
    return *known;
}

// A conversion that has been made, before the part takes it over.
struct Converted {
    im_Item item = im_CrNewDataItem();
    std::int32_t code = 0;
    std::string charset = {};
};

std::optional<Converted> by_converter(ux_LeafPart& part) {
    Converted out;
    StandardConverterResult result =
        standardConverter(part.item, out.item, {.ItemType = part.lQNFileCode, .pFromCharSet = part.QNCharSet});
    if (!result.converted) return std::nullopt;
    out.code = result.pToItemType;
    out.charset = std::move(result.pToCharSet);
    return out;
}

// Latin-1 holds what ASCII does, and accents besides.
std::string raised(std::string target, std::string_view source) {
    return target == kAsciiSet && cvc_IsMappingAvail(source, kLatin1Set) ? std::string(kLatin1Set) : target;
}

std::optional<Converted> by_target(const ux_LeafPart& part) {
    if (!ux::is_text_code(part.lQNFileCode)) return std::nullopt;
    cvr_Target target = cvr_TargetCharSet(part.QNCharSet, part.lQNFileCode);
    if (target.result != 0 || target.target.empty()) return std::nullopt;
    Converted out;
    out.charset = raised(std::move(target.target), part.QNCharSet);
    if (out.charset == part.QNCharSet) return std::nullopt;
    out.code = out.charset == kLatin1Set ? kPlainText : kOtherText;
    if (part.lQNFileCode == kHtmlText) out.code = kHtmlText;
    const int result = cvc_enhConvertFile(part.item, out.item, part.QNCharSet, out.charset);
    if (result != kConverted && result != kConvertedWithLoss) return std::nullopt;
    return out;
}

// The record's set and the label of the content type may differ: they are the internal names for two readers.
void take_over(ux_LeafPart& part, Converted converted) {
    converted.charset = ccs_GetInternalCharset(converted.charset, 0);
    if (!part.pszMIMEContentType.empty())
        part.pszMIMEContentType = mim_InsertNewCSName(part.pszMIMEContentType, converted.charset).substr(0, kTypeLimit);
    if (converted.code == kOtherText) converted.charset = ccs_GetInternalCharset(converted.charset, 1);
    part.item = std::move(converted.item);
    part.lQNFileCode = converted.code;
    part.QNCharSet = std::move(converted.charset);
}

}  // namespace

void ux_SetDefaultCharset(ux_LeafPart& part) {
    const std::optional<std::string> configured = cust_GetCustomiseInfo("UXI_UNIX_MAIL_CHARSET");
    part.ConfigDefCS = configured ? configured->substr(0, kSetNameLimit) : std::string(kAsciiSet);
    const auto* const row = std::find_if(kProfiles.begin(), kProfiles.end(),
                                         [&](const Profile& one) { return one.configured == part.ConfigDefCS; });
    if (row != kProfiles.end()) part.CSautoDetectProfile = row->profile;
}

void ux_RelabelPart(ux_LeafPart& part, std::string_view native_set) {
    part.pszMIMEContentType = mim_InsertNewCSName(part.pszMIMEContentType, native_set);
    mim_QNType mapped = mim_MimeToQNType(part.pszMIMEContentType, part.pOrigFileName);
    part.lQNFileCode = mapped.lQNFileCode;
    part.QNCharSet = std::move(mapped.QNCharSet);
}

void ux_SettleCharset(ux_LeafPart& part) {
    if (ux::is_text_code(part.lQNFileCode)) CharsetSettler(part).settle();
}

// Without rules there is nothing to be done whatever files there are: most systems have none, and their messages need
// not look for them.
void ux_ConvertPart(ux_LeafPart& part) {
    if (part.lQNFileCode == kPlainText && part.QNCharSet == kAsciiSet) return;
    if (!cvr_has_rules() || !has_steering()) return;
    try {
        std::optional<Converted> converted = by_converter(part);
        if (!converted) converted = by_target(part);
        if (converted) take_over(part, *std::move(converted));
    } catch (const er_Escape&) {
        er_Accept(5);
        if (er_GetLive()) throw;
    }
}
