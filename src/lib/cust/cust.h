// Configuration: the keys of "~/sys/gateway.toml" (top level, KEY = value). The file is read once, when a key is
// first asked for; a missing file has no keys. A file that cannot be read as TOML, or a key whose value is a
// table, an array, a date or a fraction, is logged at level 3 with file, line and key and raises (group 1, EINVAL):
// mail is then refused for a time rather than handled by half a configuration. Nothing is remembered of such a file:
// whoever asks next reads it again.
//
// True is: true, an integer other than 0, a text that begins with T, t, Y, y or 1.
#pragma once

#include <optional>
#include <string>
#include <string_view>

bool cust_PresentAndTrue(std::string_view key);
bool cust_PresentAndFalse(std::string_view key);
// The value of `key` as a truth, `missing` when it is not set. The two further arguments are a tuning hint of
// the service's interface and are 0.
bool cust_GetBoolean(std::string_view key, bool missing, int = 0, int = 0);
// The value of `key` as a number: an integer, or a text that is one. Anything else is logged at level 5 with file,
// line and key and counts as missing.
int cust_GetInteger(std::string_view key, int missing, int = 0, int = 0);
// The value of `key` as text (a truth is "true" or "false", a number its decimal form); nothing when not set.
std::optional<std::string> cust_GetCustomiseInfo(std::string_view key);

// Forgets what was read, and reads `path` instead of the home's file when one is given; for tests and tools.
void cust_Reset(std::string path = {});
