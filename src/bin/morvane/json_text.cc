// JSON for people's terminals and programs alike: see json_text.h.
#include "morvane/json_text.h"

#include <array>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace morvane {

std::string json_text(const nlohmann::ordered_json& value, int indent) {
    const std::string dumped = value.dump(indent, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
    std::string text;
    text.reserve(dumped.size());
    // Outside of strings JSON is ASCII, so what is found here stands in a string.
    for (std::size_t i = 0; i < dumped.size(); ++i) {
        const auto byte = static_cast<unsigned char>(dumped[i]);
        const auto next = static_cast<unsigned char>(i + 1 < dumped.size() ? dumped[i + 1] : 0);
        const bool c1 = byte == 0xC2 && next < 0xA0;
        if (byte != 0x7F && !c1) {
            text += dumped[i];
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\u%04x", c1 ? next : byte);
        text += escape.data();
        i += c1 ? 1 : 0;
    }
    return text;
}

}  // namespace morvane
