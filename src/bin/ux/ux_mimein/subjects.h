// Subjects as native records carry them: in RFC 2047 form.
#pragma once

#include <string>
#include <string_view>

// The RFC 2047 form of a subject or name. One that is encoded already is kept, any other is taken to be in the default
// set; then the set is detected from the text (the key UXI_MIME_CS_AUTODETECT), HZ becomes GB2312, and the set's target
// in the steering file in force holds. An empty subject stays empty. Raises what reading configuration raises.
//
// An encoded subject that comes before the first MIME entity of the process sets GotMimeSteering, so that the
// alternative steering files are never loaded: records of one process are then all steered alike.
std::string ux_InBuildMimeSubject(std::string_view pInSubject);

void ux_reset_subjects();  // forgets the cached setting; for tests
