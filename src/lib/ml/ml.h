// Process priority.
#pragma once

// Sets the priority for a kind of server process (4: inbound gateway) from the key UX_NICE, -20 to 19; without the key,
// or when the system does not allow it, the priority stays as it is.
void ml_SetSSNiceValue(int kind);
