// Subjects in RFC 2047 form: see subjects.h.
#include "ux_mimein/subjects.h"

#include <optional>
#include <utility>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "cvr/cvr.h"
#include "er/er.h"
#include "inet/subject.h"
#include "mim/encoded_words.h"
#include "ux_in/charsets.h"
#include "ux_mimein/detection.h"
#include "ux_mimein/mail_input.h"

namespace {

constexpr int kPlainSteering = 0;  // the slot that plain subjects are steered by
constexpr char kUnknown = 'U';

// The detection setting as this module knows it: read once, "U" before.
char& cached_setting() {
    static char setting = kUnknown;
    return setting;
}

// Puts a steering slot in force for the life of an object.
class SteeringInForce {
public:
    explicit SteeringInForce(int slot) : before_(cvr_GetSteeringFile()) { cvr_SetSteeringFile(slot); }
    ~SteeringInForce() { cvr_SetSteeringFile(before_); }
    SteeringInForce(const SteeringInForce&) = delete;
    SteeringInForce& operator=(const SteeringInForce&) = delete;

private:
    int before_;
};

bool holds(std::string_view text, std::string_view piece) { return text.find(piece) != std::string_view::npos; }

std::string encode(std::string_view text, std::string_view charset) {
    return inet_Subject_toRfc2047_dstring(text, charset, kShorterMethod);
}

std::string build_plain(std::string_view subject) {
    const SteeringInForce steering(kPlainSteering);
    return ux_InBuildSubject(subject);
}

// An encoded subject stays as it is. Before any MIME entity it also settles that MIME input has begun.
std::string keep_encoded(std::string_view subject) {
    ux_MimeInputState& input = ux_mime_input();
    if (!std::exchange(input.GotMimeSteering, true)) input.mimfp = nullptr;  // the dialogue's own input
    return std::string(subject);
}

// Relabels a subject whose text is in another set than it declares. `plain` is the text of a subject that came without
// encoded words.
void detect(std::string& subject, std::optional<std::string_view> plain) {
    const mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(subject);
    const std::string_view text = plain.value_or(decoded.text);
    const std::optional<std::string> detected = ux_InAutodetectCharset(text);
    if (!detected) return;
    const bool valid = cvc_iconv_recognised_charset(*detected);
    ux::log_detected(valid, "subject", *detected, decoded.declared);
    if (valid && !ccs_equal_ignoring_case(*detected, decoded.charset)) subject = encode(text, *detected);
}

// Turns the subject's text into another set; it stays as it is when it cannot be converted.
void convert(std::string& subject, std::string_view charset) {
    const mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(subject, charset);
    if (decoded.converted) subject = encode(decoded.text, charset);
}

// What the steering file wants text of the subject's set to be in.
void steer(std::string& subject) {
    const std::string declared = mim_2047_to_string_and_cset_dstring(subject).declared;
    const cvr_Target target = cvr_TargetCharSet(declared, kPlainText);
    const bool differs =
        target.result == 0 && !target.target.empty() && !ccs_equal_ignoring_case(target.target, declared);
    if (differs) convert(subject, target.target);
}

}  // namespace

std::string ux_InBuildMimeSubject(std::string_view pInSubject) {
    const er_Trace trace("ux_InBuildMimeSubject");
    if (pInSubject.empty()) return {};
    const bool is_encoded = holds(pInSubject, "=?") && holds(pInSubject, "?=");
    std::string subject = is_encoded ? keep_encoded(pInSubject) : build_plain(pInSubject);

    char& setting = cached_setting();
    if (setting == kUnknown) setting = ux_InAutodetectSetting();
    if (setting != 'N' && (!is_encoded || setting == 'R'))
        detect(subject, is_encoded ? std::nullopt : std::optional(pInSubject));

    if (holds(subject, "hz-gb-2312") || holds(subject, "HZ-GB-2312")) convert(subject, "GB2312");
    steer(subject);
    return subject;
}

void ux_reset_subjects() { cached_setting() = kUnknown; }
