// The conversion of one message: from the text in the dialogue to a native message on the "ROUTER" queue.
#pragma once

#include <string>

// What the envelope said of the message.
struct ux_Envelope {
    std::string pArpaSender;  // reverse path, qualified; becomes "Postmaster" when nobody else can be named
    std::string pEnvid;
    bool ROCWanted = true;
};

// Process-wide settings of the conversion.
struct ux_DriverState {
    bool GenObjFiles = true;  // store Internet headers as object files
};
ux_DriverState& ux_driver();
void ux_reset_driver();

// Reads the message text from the dialogue and queues the message; the recipients are those of the envelope list. A
// report about a message of this mail system is queued as the native reports that it is turned into, in one entry.
// When it returns, what is queued is durable and the text has been read to its end line. When it raises, nothing is
// queued and nothing is left in the store: 102/1401 text that ends too early, 102/1544 a mail loop that was dropped,
// and what the header parser, the body converters, the stores and the queue raise.
void ux_InConvUnixMsgToMorvane(ux_Envelope& envelope);
