// Audit trail: one JSON line in "~/logs/audit.jsonl" for every transaction that was ended. Abandoned transactions
// leave no line. A line that cannot be written is logged at level 3 and raises nothing: mail goes before its record.
// A line that a full disk cut short is closed by the next one, which begins a line of its own.
#pragma once

#include <string>
#include <string_view>

inline constexpr int kAudNone = -1;  // no transaction

void aud_GetSetLogConfig(int);  // whether auditing is on (key AUDIT, default true) is read at the next start
int aud_StartTransaction(
    int type);  // returns a handle; only one transaction is open at a time: an older one is dropped
// Entries. A handle whose transaction is not open (any more) takes none.
void aud_LogCurrentTime(int handle, int code);  // whole seconds
void aud_LogStr(int handle, int code, std::string_view text);
void aud_LogORNandInet(int handle, int code, std::string_view name, std::string_view inet);
void aud_EndTransaction(int& handle);    // writes the line; the handle becomes kAudNone
void aud_AbortTransaction(int& handle);  // drops it; the handle becomes kAudNone

// The JSON string (quotes included) of a text: bytes that are not UTF-8 become the character of their Latin-1 code.
std::string aud_json_string(std::string_view text);
