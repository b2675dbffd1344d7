// Name mapping.
#include "mim/mapping.h"

#include <optional>

#include "cust/cust.h"
#include "dr/dr.h"
#include "er/er.h"
#include "mim/mim.h"
#include "nm/nm.h"

namespace {

constexpr int kSharedWarning = 24071;

}  // namespace

bool mim_ChkMappingConfig(std::string_view key, mim_Mapping& mapping) {
    const std::optional<std::string> setting = cust_GetCustomiseInfo(key);
    if (!setting) return false;
    const std::string_view text = *setting;
    const std::size_t colon = text.find(':');
    const std::string_view directory = mim_SpaceTrimming(text.substr(0, colon)).substr(0, kDirectoryNameLimit);
    const std::string_view attribute =
        colon == std::string_view::npos ? "" : mim_SpaceTrimming(text.substr(colon + 1)).substr(0, kAttributeLimit);
    if (attribute.empty() || !dr_good_name(directory)) {
        er_LogMsg(5, kSharedGroup, kSharedWarning, "mim_ChkMappingConfig: ", key, "='", text, "'");
        return false;
    }
    mapping.MapDirName = directory;
    mapping.MapAttribId = attribute;
    mapping.MapDirHandle = dr_open_directory(mapping.DirHandle, directory);
    return mapping.MapDirHandle != 0;
}

std::int16_t mim_CloseMapDir(std::int16_t MapDirHandle, std::int16_t /*DirHandle*/) {
    return dr_close_directory(MapDirHandle);
}

bool mim_RoutableToUnix(std::string_view pORN) { return nm_has_field(nm_ParseORN(pORN), kNmRfc822); }
