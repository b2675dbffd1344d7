// Header fields that have parameters (RFC 2045, section 5.1; RFC 2183), and parameters in sections and in other
// character sets (RFC 2231).
//
//   field     = value *( ";" parameter )
//   parameter = name [ "*" section ] [ "*" ] "=" ( token / quoted-string )
//
// Read as mail has them, not as they should be:
//
//   blanks, comments   between any two things; comments nest. Inside an unquoted value they are text:
//                      filename=my file (1).txt; behind it they are not: charset=us-ascii (plain text)
//   unquoted values    run to the next ";", with blanks and every other character in them
//   quoted values      a backslash stands before a quote or a backslash; before anything else it is text, as in
//                      "C:\new\file.txt". A quote that is not closed opens an unquoted value
//   a missing ";"      after a quoted value, or between the field's value and its first parameter, is put in
//   a missing value    filename=a.txt alone is a parameter of a field without a value
//   sections           come in any order, with gaps, some percent-encoded, some not; an escape may be cut in two by
//                      them. Bad percent escapes are text
//   duplicates         the first holds
//
// A comment that is not closed is text, and after it there are no comments. A field's cost is linear in its text,
// and of a field with more than kMostParameters parameters the rest is not read.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

inline constexpr std::size_t kMostParameters = 1000;

struct msl_Parameter {
    std::string value;     // without quotes and escapes; of RFC 2231: its sections joined, "%41" as the byte
    std::string charset;   // RFC 2231: the label of those bytes, as written; empty when there is none
    std::string language;  // RFC 2231: likewise
    // Where it stands in the field's text: from its name to the end of its value, quotes included. Of a parameter in
    // sections: where its first section stands.
    std::size_t name_begin = 0, value_begin = 0, value_end = 0;
};

class msl_Field {
public:
    msl_Field() = default;
    explicit msl_Field(std::string_view text);

    // What stands before the parameters, trimmed, without comments and without a pair of quotes around it.
    const std::string& value() const { return value_; }
    // The parameter of this name, in any case. "name" is the plain one, "name*" the one in the form of RFC 2231: with a
    // character set, in sections, or both.
    std::optional<msl_Parameter> parameter(std::string_view name) const;

private:
    friend class msl_FieldReader;
    // One "name=value" of the text, which for RFC 2231 may be one section of a parameter.
    struct Section {
        std::size_t name_begin, name_end;  // the stars are not part of the name
        std::size_t value_begin, value_end;
        int number;     // of a section; kNoSections when there are none
        bool starred;   // has the form of RFC 2231
        bool extended;  // is percent-encoded
    };
    static constexpr int kNoSections = -1;

    std::vector<const Section*> sections(std::string_view name, bool starred) const;
    std::string text_of(const Section& section) const;

    std::string text_;
    std::string value_;
    std::vector<Section> sections_;
};

// The value of an RFC 2231 parameter as header text in the form of RFC 2047: printable ASCII as it stands, anything
// else as encoded words labelled with the set's MIME name. A set that is not known keeps its label and its bytes,
// but what reads as ASCII in it stands as it is. Without a label, 8-bit text is UTF-8 when it reads as such, else of an
// unknown set, and encoded words in it stay as they are.
std::string msl_convert2231to2047(const msl_Parameter& parameter);

// The header of one part: its fields by their code.
enum class msl_FieldCode { content_type = 68, content_disposition = 71 };

struct msl_Header {
    msl_Field content_type;
    msl_Field content_disposition;
};
msl_Header msl_newHeader();
void msl_addMimeHeader(msl_Header& header, msl_FieldCode code, std::string_view text);
// A field of the header; one that was not added has neither value nor parameters.
const msl_Field& msl_field(const msl_Header& header, msl_FieldCode code);
// The field's value.
const std::string& msl_getMimeHeader(const msl_Header& header, msl_FieldCode code);
