// Body parts that carry the message store's own properties rather than content.
#pragma once

#include <string_view>

// Could a part of this content type become native properties: "text/calendar" or "application/ploxen-prop", any case?
bool ux_IsPotentialMapiPropsSrcBP(std::string_view pPartType);
