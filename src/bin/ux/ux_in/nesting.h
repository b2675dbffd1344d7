// How deep messages are taken apart.
#pragma once

#include "cust/cust.h"

namespace ux {

// Multiparts and encapsulated messages that stand deeper are kept whole, as one attached item.
inline int max_depth() { return cust_GetInteger("UX_MAX_DEPTH", 10'000); }

}  // namespace ux
