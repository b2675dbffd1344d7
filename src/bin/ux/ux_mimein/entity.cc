// The MIME entity dispatcher: see entity.h.
#include "ux_mimein/entity.h"

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "cvr/cvr.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "mim/decode.h"
#include "mim/mim.h"
#include "ux_in/nesting.h"
#include "ux_mimein/leaf.h"
#include "ux_mimein/mail_input.h"
#include "ux_mimein/multipart.h"
#include "ux_mimein/submessage.h"

namespace {

constexpr int kMimeSteering = 6;     // "~/sys/mimein.str"
constexpr int kInboundSteering = 7;  // "~/sys/unixin.str", when there is no other
constexpr int kKeptWhole = 24071;

// Entities in progress, the innermost last. Popped from the back, so that what is inside ends first.
class Frames {
public:
    ~Frames() {
        while (!frames_.empty()) frames_.pop_back();
    }
    int depth() const { return static_cast<int>(frames_.size()); }
    ux_MimeFrame& back() { return *frames_.back(); }
    void push(std::unique_ptr<ux_MimeFrame> frame) { frames_.push_back(std::move(frame)); }
    void pop() { frames_.pop_back(); }

private:
    std::vector<std::unique_ptr<ux_MimeFrame>> frames_;
};

// Slot 6 when the first of these is there, else slot 7.
constexpr auto kSteeringFiles = std::to_array<std::pair<std::string_view, int>>({
    {"~/sys/mimein.str", kMimeSteering},
    {"~/sys/unixin.str", kInboundSteering},
});

// Once a process: the steering of MIME text is looked for, whether or not there is any. One that cannot be used
// refuses the message for a time, and the next message asks again.
void load_mime_steering() {
    bool& looked_for = ux_mime_input().GotMimeSteering;
    if (looked_for) return;
    for (const auto& [file, slot] : kSteeringFiles) {
        const cvr_Outcome loaded = cvr_InitAltSteering(file, slot);
        if (loaded.result == kSteeringMissing) continue;
        if (loaded.result != kSteeringLoaded) er_TracedEscape(loaded.group, loaded.reason, loaded.text);
        break;
    }
    looked_for = true;
}

bool is_too_deep(const Frames& frames) {
    if (frames.depth() < ux::max_depth()) return false;
    er_LogMsg(5, kSharedGroup, kKeptWhole, "Entity kept whole: it is nested deeper than ", frames.depth());
    return true;
}

// A message in a transfer encoding, which RFC 2046, section 5.2.1, forbids, cannot be read where it stands: it is a
// leaf, so that what is kept of it is the decoded message.
bool is_encoded(const ux_MimePart& part) {
    return mim_transfer_encoding(part.header.pszSubPartEncoding) != mim_TransferEncoding::identity;
}

// The frame of an entity that holds others; none for a leaf.
std::unique_ptr<ux_MimeFrame> frame_for(ux_MimeConversion& conversion, ux_MimePart& part, const Frames& frames) {
    const ux_ContentTypeParts type = ux_split_content_type(part.header.pszSubPartType);
    const bool multipart = dstring_equal_ignoring_case(type.type, "multipart");
    const bool message = dstring_equal_ignoring_case(type.type, "message") &&
                         dstring_equal_ignoring_case(type.subtype, "rfc822") && !is_encoded(part);
    if ((!multipart && !message) || is_too_deep(frames)) return nullptr;
    return multipart ? ux_InParseMimeMultiPart(conversion, part, type.subtype, type.parameters)
                     : ux_InParseMimeSubMsg(conversion, part);
}

// Converts a leaf at once, or opens a frame for what holds other entities.
void begin(ux_MimeConversion& conversion, ux_MimePart& part, Frames& frames) {
    if (conversion.pbEndOfMsg) return;
    load_mime_steering();
    cvr_SetSteeringFile(kInboundSteering);
    cvr_SetSteeringFile(kMimeSteering);
    if (ux_mime_state().nestLevel == 0) ux_mime_state().havePnPropsForMsg = false;

    std::unique_ptr<ux_MimeFrame> frame = frame_for(conversion, part, frames);
    if (!frame) return ux_InParseMimeFile(conversion, part);
    // Its header waits for the end of what is in it: ten thousand levels must not hold as many buffers.
    if (part.pContentHdrRef != nullptr) part.pContentHdrRef->set_aside();
    frames.push(std::move(frame));
}

}  // namespace

ux_ContentTypeParts ux_split_content_type(std::string_view content_type) {
    const std::size_t slash = content_type.find('/');
    if (slash == std::string_view::npos) return {"text", "plain", std::nullopt};
    ux_ContentTypeParts parts;
    parts.type = mim_SpaceTrimming(content_type.substr(0, slash));
    const std::string_view rest = content_type.substr(slash + 1);
    const std::size_t semicolon = rest.find(';');
    const std::string_view subtype = mim_SpaceTrimming(rest.substr(0, semicolon));
    parts.subtype = subtype.substr(0, subtype.find_first_of(" \r\t"));
    if (semicolon != std::string_view::npos) parts.parameters = mim_SpaceTrimming(rest.substr(semicolon + 1));
    return parts;
}

void ux_InParseMimeContent(ux_MimeConversion& conversion, ux_MimePart& part) {
    const er_Trace trace("ux_InParseMimeContent");
    conversion.ConvertEntity = ux_InParseMimeContent;
    Frames frames;
    begin(conversion, part, frames);
    while (frames.depth() > 0) {
        if (ux_MimePart* const next = frames.back().next())
            begin(conversion, *next, frames);
        else
            frames.pop();
    }
    if (part.pHeaderRef != nullptr) part.pHeaderRef->unlink();  // nobody needs the header any more; it never raises
}
