// Encoded words (RFC 2047, with the language suffix of RFC 2231, section 5) in header text: decoding.
//
//   word = "=?" charset [ "*" language ] "?" ( "B" / "Q" ) "?" text "?="
//
// Read as mail has it, not as it should be: "b" and "q" in any case, blanks around the charset and inside the
// text, base64 with other characters in it and without padding, "=" in Q that is no escape, words that touch other text
// or stand in quotes. White space between two words is dropped, and words that follow each other in one set are
// decoded together, so a character that is split between them is whole again. What is no word stays as it is.
// Cost is linear in the text.
#pragma once

#include <string>
#include <string_view>

// Preset charset that asks for the text as it was encoded.
inline constexpr std::string_view kDecodeIt = "DECODEIT";

struct mim_DecodedText {
    std::string text;
    std::string
        charset;  // what `text` is in: a native name, or the label of a set that is not known; at most 39 characters
    std::string declared;   // the set that the first word declares, named likewise; of text without words, `charset`
    bool converted = true;  // false: it could not be had in the set asked for; `text` is as it was encoded
};

// Decodes all words of `encoded`. With `charset` "DECODEIT" the text is given in the set that its first word declares
// (words in other sets are converted to it, or all to UTF8 if that would lose characters); text without words is IA5
// when it is 7-bit, else of no known set (""). With another `charset` the text is given in that set, where characters
// that it does not have are "?".
mim_DecodedText mim_2047_to_string_and_cset_dstring(std::string_view encoded, std::string_view charset = kDecodeIt);

// Decodes the words of `text` into one set, each for itself: a word that cannot be converted stays as it stands, and
// so does all other text.
std::string mim_DecodeMimeCharStr(std::string_view text, std::string_view charset = "UTF8");
