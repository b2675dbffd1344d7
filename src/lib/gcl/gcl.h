// Which mail system a process works for: an instance is a name and the home directory that belongs to it. They stand in
// /etc/morvane/systems.toml:
//
//   default = "main"              # the instance that is meant when nobody says which
//
//   [system.main]
//   home = "/var/lib/morvane"     # absolute
//
// $MORVANE_SYSTEMS names another systems file and $MORVANE_HOME a home; a process that runs with more rights than
// its invoker sees neither (secure_getenv). The systems file is opened only when its content decides something.
//
// Both selections end in os_SetHome. A systems file that cannot be read raises the system's errno; one that is no TOML,
// or in which a key has a wrong value, raises group 1, EINVAL, whose detail reads "file:line: key ...: what". There is
// no home then, so no log either: whoever catches it tells the person at the terminal.
#pragma once

#include <string_view>

// Selects instance `name`; false when the systems file does not have it (or does not exist).
bool gcl_setSystemByName(std::string_view name);

// Selects what is meant without a name: $MORVANE_HOME, else the `default` of the systems file, else /var/lib/morvane.
void gcl_setDefaultSystem();

// Writes the instances that exist to standard error, for the person who named one that does not.
void ext_ReportWhichQnSystem();
