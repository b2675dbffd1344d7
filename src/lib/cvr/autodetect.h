// The set of text whose label is missing or proven wrong.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

class im_Item;  // im/im.h

struct cvr_Autodetected {
    std::string names;    // native names, the likeliest first, separated by ","; empty: nothing was recognised
    bool Is8bit = false;  // there are 8-bit bytes in what was looked at
};

// Looks at the first `limit` bytes of an item (-1: all of it). What the detector recognises comes first; then, for
// 8-bit text, `profile`, the set that is customary here (empty: none), and the set that the subject came in. 7-bit text
// is what the detector recognises by its escapes, or nothing. Raises what reading the item raises.
cvr_Autodetected cvr_autodetectCS(const im_Item& item, std::int64_t limit, std::string_view subject_charset,
                                  std::string_view profile);
