// An entity that holds other entities, on the entity dispatcher's stack.
#pragma once

#include "ux_mimein/mime_part.h"

class ux_MimeFrame {
public:
    ux_MimeFrame() = default;
    virtual ~ux_MimeFrame() = default;
    ux_MimeFrame(const ux_MimeFrame&) = delete;
    ux_MimeFrame& operator=(const ux_MimeFrame&) = delete;
    // The next part to convert, owned by the frame; none: the entity is done. The part before is done by then.
    virtual ux_MimePart* next() = 0;
};
