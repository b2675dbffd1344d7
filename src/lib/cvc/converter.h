// Conversion of text between character sets, in pieces cut anywhere. Every conversion goes through UTF-8: what cannot
// be read is thereby told from what cannot be written. IA5, ISO8859_1 and UTF8 are read and written here, HZGB2312 is
// over GB 2312, the rest is iconv(3)'s.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class cvc_Converter {
public:
    // Sets by any name that ccs knows, or that iconv knows.
    cvc_Converter(std::string_view from, std::string_view to);
    ~cvc_Converter();
    cvc_Converter(const cvc_Converter&) = delete;
    cvc_Converter& operator=(const cvc_Converter&) = delete;

    // Is there such a conversion? If not, nothing else may be called.
    bool available() const;
    // Appends the conversion of `input` to `out`. False: the text is not in the set; nothing more can be converted.
    bool convert(std::string_view input, std::string& out);
    // Ends the text: what was held back, and a return to the initial state. False: it ends inside a character.
    bool finish(std::string& out);
    // Characters that the target set does not have, written as "?", up to now.
    std::uint64_t lost() const;

private:
    class Reader;
    class Writer;
    void pass_on(std::string& out);
    bool read_into(std::string_view piece, std::string& out);

    std::unique_ptr<Reader> reader_;  // bytes of the source set to UTF-8
    std::unique_ptr<Writer> writer_;  // UTF-8 to bytes of the target set
    std::string middle_;              // UTF-8 between the two
};
