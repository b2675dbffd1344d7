// Writing a TNEF stream of message properties, the decoder's mirror: what "MAPI.ObjectProperties" holds.
//
//   signature key attTnefVersion attMessageClass attMAPIProps
//
// Text is written as Unicode: the stream needs no code page.
#pragma once

#include <cstdint>
#include <string_view>

#include "im/im.h"
#include "mapi/property.h"
#include "tnef/properties.h"
#include "tnef/source.h"

class tnef_Encoder {
public:
    // Begins the stream at the end of `out`, which must outlive it and be written by nobody else meanwhile.
    tnef_Encoder(im_Item& out, std::string_view message_class);
    tnef_Encoder(const tnef_Encoder&) = delete;
    tnef_Encoder& operator=(const tnef_Encoder&) = delete;

    // One property. A named one without a number of its own is given the next one from 0x8000. EINVAL, with nothing
    // written: one that no stream can hold (of no type, or numbered 0x8000 and above without a name, or a single one
    // that has not one value).
    void put(const mapi_Property& property);
    // One property of another stream; values of any size go in blocks. `set` is the code page of that stream.
    void put(tnef_Source& source, const tnef_Property& property, std::string_view set);
    // A text of any size in `set`, under the identifier or name of `head`.
    void put_text(const mapi_Property& head, tnef_Source& source, tnef_Span text, std::string_view set);
    // Ends the stream. EFBIG: it is larger than its own length fields can tell.
    void finish();

private:
    void write(std::string_view bytes);
    void write32(std::uint32_t value);
    void pad(std::uint64_t length);
    std::uint64_t begin_length();
    void end_length(std::uint64_t at);
    void patch32(std::uint64_t at, std::uint64_t value);
    void write_head(const mapi_Property& head, mapi_Type type);
    void write_value(mapi_Type type, const mapi_Value& value);
    void write_text(tnef_Source& source, tnef_Span text, std::string_view set);
    void begin_attribute(std::uint32_t id);
    void end_attribute();

    im_Item& out_;
    std::uint64_t length_at_ = 0;  // of the open attribute
    std::uint64_t count_at_ = 0;   // of the properties
    std::uint32_t count_ = 0;
    std::uint32_t sum_ = 0;  // of the open attribute's data
    std::uint16_t next_named_ = kMapiFirstNamed;
};

// A whole stream of properties.
void tnef_Encode(im_Item& out, std::string_view message_class, const std::vector<mapi_Property>& properties);
