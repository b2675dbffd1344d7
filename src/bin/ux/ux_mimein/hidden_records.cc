// Hiding records: see hidden_records.h.
#include "ux_mimein/hidden_records.h"

#include <algorithm>

#include "er/er.h"
#include "tf/record.h"

namespace {

// Bits that hide a content file and a package.
constexpr std::size_t kContentFlagsAt = 24;
constexpr std::int32_t kHiddenContent = 0x01 | 0x20;
constexpr std::size_t kPackageStringsAt = 24;
constexpr int kPackageStrings = 3;
constexpr std::int32_t kHiddenPackage = 0x08 | 0x10;

void hide_package(tf_File& file, const tf_RecordHead& head) {
    tf_Record record;
    file.read_at(head, record);
    std::size_t flags_at = kPackageStringsAt;
    for (int i = 0; i < kPackageStrings; ++i) flags_at += record.get_string(flags_at).size() + 1;
    file.set_bits(head, flags_at, kHiddenPackage);
}

// Marks the records of one stretch that nobody has marked; `package_met`: a package stands before it. True when one has
// been met by its end.
bool hide_stretch(tf_File& file, std::int64_t begin, std::int64_t end, bool package_met) {
    tf_RecordHead head;
    tf_GotoRecord(file, begin);
    while (begin < end && file.read_head(head)) {
        begin = head.position + head.size;
        if (head.type == TFREC_content_file_type && !package_met) file.set_bits(head, kContentFlagsAt, kHiddenContent);
        if (head.type != TFREC_start_package_type) continue;
        package_met = true;
        hide_package(file, head);
    }
    return package_met;
}

}  // namespace

bool ux::HiddenRecords::take_last(std::int64_t position, Stretch& stretch) {
    if (stretches_.empty() || stretches_.back().begin < position) return false;
    stretch = stretches_.back();
    stretches_.pop_back();
    return true;
}

void ux::HiddenRecords::cut_at(std::int64_t position) {
    while (!stretches_.empty() && stretches_.back().begin >= position) stretches_.pop_back();
    if (!stretches_.empty()) stretches_.back().end = std::min(stretches_.back().end, position);
}

void ux::HiddenRecords::moved(std::int64_t position, std::int64_t bytes) {
    for (Stretch& stretch : stretches_) {
        if (stretch.begin >= position) stretch.begin += bytes;
        if (stretch.end > position) stretch.end += bytes;
    }
}

void ux_InMarkPrevPartHidden(tf_File& pTfHandle, std::int64_t lPrevSubPartTFPos, ux::HiddenRecords& hidden) {
    const er_Trace trace("ux_InMarkPrevPartHidden");
    // From front to back, because a package in front decides what is hidden behind it.
    std::vector<ux::HiddenRecords::Stretch> marked;
    for (ux::HiddenRecords::Stretch stretch{}; hidden.take_last(lPrevSubPartTFPos, stretch);) marked.push_back(stretch);
    bool package_met = false;
    std::int64_t at = lPrevSubPartTFPos;
    for (auto stretch = marked.rbegin(); stretch != marked.rend(); ++stretch) {
        package_met = hide_stretch(pTfHandle, at, stretch->begin, package_met) || stretch->has_package;
        at = stretch->end;
    }
    package_met = hide_stretch(pTfHandle, at, pTfHandle.end(), package_met);
    hidden.add({lPrevSubPartTFPos, pTfHandle.end(), package_met});
}
