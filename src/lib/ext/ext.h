// Signals and identity of the process.
#pragma once

// Sets what a signal does: `action` 1 ignores it, 0 is the default action.
void ext_signal(int signal, int action);

// Becomes the mail server's own account, the owner of the home: its groups, its group, then its user, for good. A
// process that cannot (started by neither root nor, through the set-user-id bit, that account) stays what it is.
// Raises the system's reason when root fails to become the owner.
void ext_SetUidToMorvane();
