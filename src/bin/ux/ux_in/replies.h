// Replies: the numbered answers to the agent. Their texts, and so whether a refusal is temporary (4xx) or permanent
// (5xx), come from message set 102 of the catalog.
#pragma once

// Reply numbers of the dialogue. 1401, 1402 and 1428 are reasons of escapes as well.
enum ux_Reply : int {
    kReplyEndOfText = 1401,      // input ended inside the message text
    kReplyEndOfCommands = 1402,  // input ended while a command was awaited
    kReplyGreeting = 1403,
    kReplyHello = 1404,
    kReplyBadSequence = 1405,
    kReplyOk = 1406,
    kReplyStartInput = 1407,
    kReplyNotRecognised = 1408,
    kReplyClosing = 1409,
    kReplyLocalError = 1424,
    kReplyNoExtendedHello = 1426,
    kReplyRefused = 1428,  // a message refused for good
};

// Writes the reply of a catalog number to standard output with write(2), at most 2049 characters and a line end.
// A refusal (4..., 5...) names the host. Without a catalog the closing reply is "221 Closing connection" and every
// other one says 451 and which catalog is missing. Raises 102/1024 when the agent does not take it all.
void ux_InWriteMailReply(int MessNum);
