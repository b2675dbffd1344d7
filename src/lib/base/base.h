// Detection of the character set of text from its bytes, by uchardet.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

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
    char last_ = '\0';                // the byte seen last; NUL before the first
    bool any_ = false;
};

// The same for text that is in memory. Empty text is not recognised.
std::optional<std::string> base_pnDetectAndReport(std::string_view data);
