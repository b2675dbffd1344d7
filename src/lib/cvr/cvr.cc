// Steering and converters: see cvr.h.
#include "cvr/cvr.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <optional>

#include "ccs/ccs.h"
#include "cvr/child.h"
#include "cvr/steering.h"
#include "er/er.h"
#include "im/im.h"
#include "os/os.h"

namespace {

constexpr std::size_t kFileLimit = std::size_t{1} << 20;

struct State {
    std::array<std::optional<Steering>, kSteeringSlots> slots;
    int in_force = 0;
};

State& state() {
    static State the_state;
    return the_state;
}

const Steering& in_force() {
    static const Steering nothing;
    const std::optional<Steering>& slot = state().slots[static_cast<std::size_t>(state().in_force)];
    return slot ? *slot : nothing;
}

// "file:line: what", the form that editors and people know.
std::string place(std::string_view file, const SteeringError& error) {
    return os_HomePath(file) + ":" + std::to_string(error.line) + ": " + error.what;
}

cvr_Outcome unusable(int group, int reason, std::string text) {
    er_LogMsg(3, kGatewayGroup, 0, text);
    return {kSteeringUnusable, group, reason, std::move(text)};
}

// The text of a file; nothing when there is none. Raises.
std::optional<std::string> read_file(std::string_view file) {
    const os_Fd fd = os_open_if_there(file, O_RDONLY);
    if (!fd) return std::nullopt;
    std::string text;
    for (;;) {
        constexpr std::size_t kBlock = std::size_t{16} << 10;
        const std::size_t before = text.size();
        text.resize(before + kBlock);
        const std::size_t got = os_read(fd.get(), text.data() + before, kBlock);
        text.resize(before + got);
        if (got == 0) return text;
        if (text.size() > kFileLimit) er_SystemEscape(EFBIG, std::string(file));
    }
}

cvr_Outcome load(std::string_view file, std::optional<Steering>& slot) {
    std::optional<std::string> text;
    try {
        const er_StatusKeeper status;  // a failure is the result here, not an escape under way
        text = read_file(file);
    } catch (const er_Escape& escape) {
        return unusable(escape.group(), escape.reason(), place(file, {0, escape.what()}));
    }
    if (!text) return {kSteeringMissing, kSystemGroup, ENOENT, os_HomePath(file)};
    SteeringError error;
    std::vector<SteeringError> warnings;
    std::optional<Steering> steering = parse_steering(*text, error, warnings);
    for (const SteeringError& warning : warnings) er_LogMsg(5, kGatewayGroup, 0, place(file, warning));
    if (!steering) return unusable(kSystemGroup, EINVAL, place(file, error));
    slot = std::move(steering);
    return {};
}

const ConvertRow* find_convert(std::int32_t type, std::string_view charset) {
    const auto& rows = in_force().converts;
    const auto row =
        std::find_if(rows.begin(), rows.end(), [&](const ConvertRow& r) { return r.match.covers(type, charset); });
    return row == rows.end() ? nullptr : &*row;
}

bool is_discarded(std::int32_t type, std::string_view charset) {
    const auto& rows = in_force().discards;
    return std::any_of(rows.begin(), rows.end(),
                       [&](const SteeringMatch& match) { return match.covers(type, charset); });
}

cvr_Outcome outcome_of(ChildResult result) {
    if (result.end == ChildResult::End::exited) return {};
    return {result.end == ChildResult::End::not_run ? -1 : 10, kSystemGroup, result.reason, std::move(result.text)};
}

}  // namespace

cvr_Outcome cvr_InitConvert(std::string_view file) {
    cvr_Outcome outcome = load(file, state().slots[0]);
    if (outcome.result == kSteeringLoaded) state().in_force = 0;
    return outcome;
}

cvr_Outcome cvr_InitAltSteering(std::string_view file, int slot) {
    if (slot < 1 || slot >= kSteeringSlots) return {kSteeringUnusable, kSystemGroup, EINVAL, "steering slot"};
    return load(file, state().slots[static_cast<std::size_t>(slot)]);
}

void cvr_TidyUp() { state() = State{}; }

void cvr_SetSteeringFile(int slot) {
    if (slot < 0 || slot >= kSteeringSlots) return;
    if (slot == 0 || state().slots[static_cast<std::size_t>(slot)]) state().in_force = slot;
}

int cvr_GetSteeringFile() { return state().in_force; }

bool cvr_has_rules() {
    const Steering& rules = in_force();
    return !rules.targets.empty() || !rules.converts.empty() || !rules.discards.empty();
}

cvr_Target cvr_TargetCharSet(std::string_view charset, std::int32_t type) {
    for (const TargetRow& row : in_force().targets) {
        if (!row.match.covers(type, charset)) continue;
        if (ccs_same_set(row.to, charset)) return {1, {}};
        return {0, row.to};
    }
    return {};
}

cvr_ConvertDetails cvr_GetConvertDetails(std::int32_t type, std::string_view charset) {
    if (const ConvertRow* row = find_convert(type, charset)) return {0, row->to_type, row->to, row->converter};
    return {is_discarded(type, charset) ? 2 : 1, 0, {}, {}};
}

cvr_Outcome cvr_VarBlockedConvert(std::string_view converter, im_Item& in, im_Item& out,
                                  std::span<const cvr_Substitution> substitutions) {
    const auto& converters = in_force().converters;
    const auto found = converters.find(converter);
    if (found == converters.end()) return {-1, kSystemGroup, ENOENT, "no converter " + std::string(converter)};
    ChildCommand command{found->second.command, found->second.timeout, {}};
    for (const cvr_Substitution& entry : substitutions) command.environment.emplace_back(entry.name, entry.value);
    return outcome_of(run_child(command, in, out));
}

cvr_FileOutcome cvr_BlConvertFile(std::span<const cvr_Substitution> substitutions, im_Item& in, std::int32_t type,
                                  std::string_view charset, im_Item& out) {
    const ConvertRow* row = find_convert(type, charset);
    if (row == nullptr) return {{is_discarded(type, charset) ? 2 : 3, 0, 0, {}}, 0, {}};
    const bool stays = row->to_type == type && ccs_same_set(row->to, charset);
    if (stays) return {{1, 0, 0, {}}, 0, {}};
    return {cvr_VarBlockedConvert(row->converter, in, out, substitutions), row->to_type, row->to};
}
