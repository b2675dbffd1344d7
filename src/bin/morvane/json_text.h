// JSON as the tool writes it: UTF-8 whatever the values hold, and nothing in it that a terminal acts on.
#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

namespace morvane {

// `indent` -1: one line. Control characters (DEL and the C1 set, too, which JSON allows as they are) are \uNNNN.
std::string json_text(const nlohmann::ordered_json& value, int indent = -1);

}  // namespace morvane
