// Canonical names of properties ([MS-OXPROPS]): PidTag... by identifier, PidLid... by set and number, PidName... by set
// and text. The tables are constants; the index by name is made when a name is first looked up.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "dstring/constant_text.h"
#include "mapi/property.h"

// Property sets ([MS-OXPROPS], section 1.3.2).
inline constexpr mapi_Guid kPsMapi = mapi_ole_guid(0x00020328);
inline constexpr mapi_Guid kPsPublicStrings = mapi_ole_guid(0x00020329);
inline constexpr mapi_Guid kPsInternetHeaders = mapi_ole_guid(0x00020386);
inline constexpr mapi_Guid kPsetidAppointment = mapi_ole_guid(0x00062002);
inline constexpr mapi_Guid kPsetidTask = mapi_ole_guid(0x00062003);
inline constexpr mapi_Guid kPsetidAddress = mapi_ole_guid(0x00062004);
inline constexpr mapi_Guid kPsetidCommon = mapi_ole_guid(0x00062008);
inline constexpr mapi_Guid kPsetidLog = mapi_ole_guid(0x0006200A);
inline constexpr mapi_Guid kPsetidNote = mapi_ole_guid(0x0006200E);
inline constexpr mapi_Guid kPsetidSharing = mapi_ole_guid(0x00062040);
inline constexpr mapi_Guid kPsetidPostRss = mapi_ole_guid(0x00062041);
inline constexpr mapi_Guid kPsetidMeeting =
    mapi_make_guid(0x6ED8DA90, 0x450B, 0x101B, {0x98, 0xDA, 0x00, 0xAA, 0x00, 0x3F, 0x13, 0x05});
inline constexpr mapi_Guid kPsetidCalendarAssistant =
    mapi_make_guid(0x11000E07, 0xB51B, 0x40D6, {0xAF, 0x21, 0xCA, 0xA8, 0x5E, 0xDA, 0xB1, 0xD0});

using mapi_NameText = dstring_Constant<71>;

struct mapi_TagRow {
    std::uint16_t id;
    mapi_NameText name;
};
struct mapi_LidRow {
    mapi_Guid set;
    std::uint32_t lid;
    mapi_NameText name;
};
struct mapi_TextRow {
    mapi_Guid set;
    mapi_NameText text;
    mapi_NameText name;
};
std::span<const mapi_TagRow> mapi_tag_rows();    // in ascending order of id
std::span<const mapi_LidRow> mapi_lid_rows();    // grouped by set, in ascending order of lid within it
std::span<const mapi_TextRow> mapi_text_rows();  // in any order

// The canonical name; empty when the property has none.
std::string_view mapi_canonical_name(const mapi_Property& property);

// The property that a canonical name means, without type and values; nothing for a name that is not known.
std::optional<mapi_Property> mapi_find_name(std::string_view name);
