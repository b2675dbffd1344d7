// Detection of the character set of text from its bytes, by uchardet, but for two things that are known without
// guessing: ASCII and UTF-8. Its guess for UTF-8 is a weak one while there are only a few characters in it that are not
// ASCII, and an accent in a long English text is then "WIN1250"; but text in any other set is well-formed UTF-8 by
// accident only.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

// Is text that comes in pieces well-formed UTF-8, with a character in it that is not ASCII? The last one may be cut.
class base_Utf8Watch {
public:
    void feed(std::string_view data);
    bool is_utf8() const { return well_formed_ && met_; }

private:
    void take(unsigned char byte);

    bool well_formed_ = true;
    bool met_ = false;                        // a character that is not ASCII
    unsigned left_ = 0;                       // bytes of the character in hand
    unsigned char low_ = 0x80, high_ = 0xBF;  // what its next byte may be
};

// Detects the set of text that comes in pieces (the first of at least 64 bytes, or all there is). 7-bit text without an
// escape character and without "~{" (which would be ISO 2022 or HZ) is IA5, and is recognised without starting the
// detector.
class base_Detector {
public:
    base_Detector();
    ~base_Detector();
    base_Detector(const base_Detector&) = delete;
    base_Detector& operator=(const base_Detector&) = delete;

    void feed(std::string_view data);
    // The native name of the set, or the detector's own name when there is none; nothing when nothing was
    // recognised. Ends the text.
    std::optional<std::string> result();

private:
    struct Engine;
    bool is_plain(std::string_view data) const;
    void start_engine(std::string_view data);

    std::unique_ptr<Engine> engine_;  // once it is needed
    base_Utf8Watch utf8_;
    char last_ = '\0';  // the byte seen last; NUL before the first
    bool any_ = false;
};

// The same for text that is in memory. Empty text is not recognised.
std::optional<std::string> base_pnDetectAndReport(std::string_view data);
