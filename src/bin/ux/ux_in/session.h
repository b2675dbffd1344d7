// The dialogue with the mail transfer agent: commands in, one numbered reply each, until QUIT.
#pragma once

#include <string>
#include <string_view>

// Runs the session on standard input and output. A non-empty pActualSender takes the place of every sender that the
// agent names. Returns whether a protocol error happened. What it does not handle escapes: the end of input (102/1401,
// 102/1402), a reply that cannot be written (102/1024) and every failed conversion but a dropped loop (102/1544).
bool ux_InUnixToMorvaneMapper(std::string_view pActualSender);

// The canonical name of this host, at most 256 characters; looked up once.
const std::string& localHostName();
