// Steering files: any text is either refused with a reason or read into rows that hold what they promise.
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "cvr/steering.h"

namespace {

void must(bool holds) {
    if (!holds) std::abort();
}

void check(const Steering& steering) {
    for (const TargetRow& row : steering.targets)
        must(!row.match.from.empty() && row.match.type >= 0 && !row.to.empty());
    for (const SteeringMatch& match : steering.discards) must(!match.from.empty() && match.type >= 0);
    for (const ConvertRow& row : steering.converts) {
        must(!row.to.empty() && row.to_type >= 0 && row.converter.size() <= kConverterNameLimit);
        must(steering.converters.contains(row.converter));
    }
    for (const auto& [name, converter] : steering.converters) {
        must(name.size() <= kConverterNameLimit && !converter.command.empty() && !converter.command.front().empty());
        must(converter.timeout.count() >= 1 && converter.timeout.count() <= 3600);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    SteeringError error;
    std::vector<SteeringError> warnings;
    const auto steering = parse_steering({reinterpret_cast<const char*>(data), size}, error, warnings);
    if (steering)
        check(*steering);
    else
        must(!error.what.empty());
    return 0;
}
