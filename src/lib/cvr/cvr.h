// Steering: the rules of a mail system for what becomes of text and of whole parts (see steering.h for the files), and
// the converters that the rules name, run as child processes (see child.h).
//
// Rules are loaded into slots. Slot 0 is loaded by cvr_InitConvert and always there; the others hold alternatives, and
// one slot at a time is in force.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

class im_Item;  // im/im.h

inline constexpr int kSteeringLoaded = 0;
inline constexpr int kSteeringMissing = 3;
inline constexpr int kSteeringUnusable = 4;
inline constexpr int kSteeringSlots = 8;

// How an operation ended; unless it went well, the error's group, reason and text.
struct cvr_Outcome {
    int result = 0;
    int group = 0;
    int reason = 0;
    std::string text;
};

// Loads a steering file ("~/..." is below the home) into slot 0 and puts it in force. 0 loaded; 3 there is no such
// file, and nothing has changed; any other result: it cannot be read or used, which is also logged at level 3 with
// file, line and key (group 1, reason errno, EINVAL for what it says), and nothing has changed either.
cvr_Outcome cvr_InitConvert(std::string_view file);
// The same for slot 1 to 7; it does not put the slot in force.
cvr_Outcome cvr_InitAltSteering(std::string_view file, int slot);
void cvr_TidyUp();  // unloads all

// Puts a slot in force. A slot into which nothing was loaded is passed over: what was in force stays. Slot 0 is never.
void cvr_SetSteeringFile(int slot);
int cvr_GetSteeringFile();
// Does the slot in force have any rule? If not, no text has a target and no part a conversion.
bool cvr_has_rules();

// What text of a set and file type is turned into: 0 the set `target`; 1 it stays in its set; 2 no rule.
struct cvr_Target {
    int result = 2;
    std::string target;
};
cvr_Target cvr_TargetCharSet(std::string_view charset, std::int32_t type);

// What is to be done with a whole part: 0 it is converted; 1 nothing; 2 it is thrown away.
struct cvr_ConvertDetails {
    int result = 1;
    std::int32_t to_type = 0;
    std::string to_charset;
    std::string converter;
};
cvr_ConvertDetails cvr_GetConvertDetails(std::int32_t type, std::string_view charset);

// An environment variable of a converter.
struct cvr_Substitution {
    std::string_view name, value;
};

// Runs a converter of the slot in force on `in`, its output appended to `out`. 0 success; -1 it cannot be run; 10 it
// failed: another exit status than 0, a signal, or out of time. After a failure `out` is to be dropped. `in` becomes a
// file. Raises what placing `in` and writing `out` raises.
cvr_Outcome cvr_VarBlockedConvert(std::string_view converter, im_Item& in, im_Item& out,
                                  std::span<const cvr_Substitution> substitutions = {});

// Converts a part as the rules say. As above, and: 1 the rules leave it as it is; 2 they throw it away; 3 they say
// nothing about it.
struct cvr_FileOutcome {
    cvr_Outcome outcome;
    std::int32_t to_type = 0;  // with result 0
    std::string to_charset;
};
cvr_FileOutcome cvr_BlConvertFile(std::span<const cvr_Substitution> substitutions, im_Item& in, std::int32_t type,
                                  std::string_view charset, im_Item& out);
