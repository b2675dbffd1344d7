// Whole sessions: whatever the agent writes, the dialogue ends, every queued message is complete, nothing that is not
// queued stays in the store, and what comes of it does not depend on how the input was cut on its way through a pipe.
#include <cstdint>
#include <string>

#include "session_room.h"

using namespace session_room;

// The first byte chooses how the input is cut. One that begins with "!" is a message text, the envelope goes without
// saying.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    make_home();
    if (size < 2) return 0;
    std::string dialogue(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (dialogue.front() == '!')
        dialogue = "MAIL FROM:<s@x>\nRCPT TO:<r@x>\nDATA\n" + dialogue.substr(1) + "\n.\nQUIT\n";
    const Outcome whole = run_whole(dialogue);
    require(!whole.replies.empty() && whole.replies.back() == '\n');
    require(store_is_empty());
    require(whole == run_in_pieces(dialogue, 1 + data[0] % 61 + dialogue.size() / 128));
    return 0;
}
