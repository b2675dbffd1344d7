// Hiding superseded alternatives in the transfer file. Alternatives nest, and each level hides everything of the part
// before it, what levels below have hidden already included: what is marked is remembered and passed over, so that the
// cost is linear in the records whatever their depth.
#pragma once

#include <cstdint>
#include <vector>

#include "tf/file.h"

namespace ux {

// Which stretches of a transfer file are marked, from front to back.
class HiddenRecords {
public:
    struct Stretch {
        std::int64_t begin, end;
        bool has_package;
    };
    // Takes out and returns the last stretch when it begins at `position` or after it.
    bool take_last(std::int64_t position, Stretch& stretch);
    void add(const Stretch& stretch) { stretches_.push_back(stretch); }
    // The file was cut at `position`; or `bytes` were put in front of the record there.
    void cut_at(std::int64_t position);
    void moved(std::int64_t position, std::int64_t bytes);

private:
    std::vector<Stretch> stretches_;
};

}  // namespace ux

// Marks the records of a superseded alternative hidden: from lPrevSubPartTFPos the content-file records before the
// first package, and every package, to the end of the file. Raises what reading and writing the file raises.
void ux_InMarkPrevPartHidden(tf_File& pTfHandle, std::int64_t lPrevSubPartTFPos, ux::HiddenRecords& hidden);
