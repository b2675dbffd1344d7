// Commands of the dialogue (RFC 5321, section 4.1, without extensions) and lines of the form keyword, colon, value.
#pragma once

#include <string_view>

// Codes of the commands.
enum ux_CommandType : int {
    kHelo = 1,
    kMailFrom = 2,
    kRcptTo = 3,
    kData = 4,
    kQuit = 5,
    kRset = 6,
    kNoop = 7,
    kEhlo = 8,
    kNotRecognised = 10,  // or malformed
};

struct ux_MailCommand {
    int Type = kNotRecognised;
    std::string_view pArgument;  // what followed the command; good until the next line is read
};

// Reads one command line and classifies it; one longer than 2,048 characters is not recognised. Raises 102/1402 at
// the end of input.
ux_MailCommand ux_InReadMailCommand();
// Classifies a command line that has no line end.
ux_MailCommand ux_InGetSMTPCommand(std::string_view pCommandLine);

struct ux_KeywordLine {
    bool found = false;          // there was a ":"
    std::string_view pCommand;   // the text before the first ":", or the whole line
    std::string_view pArgument;  // the text after it; nothing is trimmed
};
// Splits a line at its first ":" before its first LF or NUL.
ux_KeywordLine ux_InParseCommandLine(std::string_view pInputBuff);

// Loads the primary name delimiter from "~/sys/config": the low byte of the 16-bit value in machine order at offset
// 476, "/" when it is 0. Raises 102/1421 (the position cannot be reached), 102/1420 (fewer than two bytes there) or the
// system's reason when the file cannot be opened.
void ux_InSetDelimChars();
