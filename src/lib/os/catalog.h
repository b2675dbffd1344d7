// Message catalogs (catopen(3), catgets(3)): the replies and log texts of message set 102 and the shared
// log texts of set 100, in the language that LANG chooses.
#pragma once

#include <string>
#include <string_view>

// Opens "~/nls/<language>/unix.cat" for `set`. A catalog that cannot be read is not an error here: every text of
// it is then empty, and whoever needs a text has a fallback.
void os_MCOpen(int set);
void os_MCClose();
// The text of a message of the opened set, or of `set`; empty when the catalog or the number is missing. The view is
// good until os_MCClose or the next os_MCOpen.
std::string_view os_MCGetMessage(int number);
std::string_view os_MCGetMessage(int set, int number);
// Where catalogs come from for this LANG: "de_DE.UTF-8" gives the first of nls/de_DE.UTF-8, nls/de_DE, nls/de,
// nls/C that exists below the home. Returns the folder's name. LC_ALL and LC_MESSAGES are not consulted.
std::string ext_langtodir(std::string_view lang);
