// Encoded words: whatever a subject is, decoding it ends, what is encoded decodes to itself, and no word is too long.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "ccs/ccs.h"
#include "cvc/cvc.h"
#include "cvc/utf8.h"
#include "inet/subject.h"
#include "mim/encoded_words.h"

namespace {

void must(bool holds) {
    if (!holds) std::abort();
}

// Every blank-separated piece of what was encoded is a word of at most 75 characters, of printable ASCII.
void check_words(std::string_view subject) {
    while (!subject.empty()) {
        const std::string_view word = subject.substr(0, subject.find(' '));
        must(word.size() <= 75 && word.starts_with("=?") && word.ends_with("?="));
        for (const char c : word) must(c > 0x20 && c < 0x7F);
        subject.remove_prefix(word.size());
        if (!subject.empty()) subject.remove_prefix(1);
    }
}

void check_round_trip(std::string_view text, const ccs_Descriptor& set, char method) {
    const std::string subject = inet_Subject_toRfc2047_dstring(text, set.name, method);
    if (subject == text) return;
    check_words(subject);
    if (set.shape == ccs_Shape::shifted) return;  // words of these shift for themselves: other bytes, the same text
    const mim_DecodedText decoded = mim_2047_to_string_and_cset_dstring(subject);
    must(decoded.text == text && decoded.charset == set.name);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 2, size - 2);
    mim_2047_to_string_and_cset_dstring(text);
    const mim_DecodedText utf8 = mim_2047_to_string_and_cset_dstring(text, kUtf8Set);
    must(utf8.charset.size() <= 39);
    const std::string plain = mim_DecodeMimeCharStr(text);
    must(check_utf8(text).valid != text.size() || check_utf8(plain).valid == plain.size());
    const ccs_Table sets = ccs_sets();
    check_round_trip(text, *(sets.begin() + data[0] % sets.count), "bq?"[data[1] % 3]);
    return 0;
}
