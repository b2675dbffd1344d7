// Property parts: see properties.h.
#include "ux_mimein/properties.h"

#include "dstring/ascii.h"
#include "er/er.h"

bool ux_IsPotentialMapiPropsSrcBP(std::string_view pPartType) {
    const er_Trace trace("ux_IsPotentialMapiPropsSrcBP");
    return dstring_starts_ignoring_case(pPartType, "text/calendar") ||
           dstring_starts_ignoring_case(pPartType, "application/ploxen-prop");
}
