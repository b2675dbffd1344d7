// TNEF: whatever a stream is, it is expanded whole or nothing of it stays; what is expanded hangs together, and its
// object expands to the same properties. Checksums stop most inputs at once, so they are put right first when the first
// byte asks for it, in streams that are embedded too.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "../unit/support/home.h"
#include "../unit/support/tnef_bytes.h"
#include "../unit/support/tnef_expanded.h"
#include "mapi/property_text.h"

namespace {

constexpr std::string_view kSignature = "\x78\x9F\x3E\x22";
constexpr std::size_t kHead = 6, kAttributeHead = 9;

void must(bool holds) {
    if (!holds) std::abort();
}

std::uint32_t number_at(std::string_view text, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i-- > 0;) value = value << 8 | static_cast<unsigned char>(text[at + i]);
    return value;
}

// Puts the sums of the stream at `begin` right, as far as its lengths hold.
void mend_stream(std::string& text, std::size_t begin) {
    for (std::size_t at = begin + kHead; at + kAttributeHead <= text.size();) {
        const std::uint64_t end = at + kAttributeHead + std::uint64_t{number_at(text, at + 5)};
        if (end + 2 > text.size()) return;
        const auto data =
            std::string_view(text).substr(at + kAttributeHead, static_cast<std::size_t>(end - at - kAttributeHead));
        text.replace(static_cast<std::size_t>(end), 2, tnef_bytes::u16(tnef_bytes::checksum(data)));
        at = static_cast<std::size_t>(end) + 2;
    }
}

// The last stream first: it lies within those before it.
void mend(std::string& text) {
    for (std::size_t at = text.rfind(kSignature), turns = 0; at != text.npos && turns < 20; ++turns) {
        mend_stream(text, at);
        if (at == 0) return;
        at = text.rfind(kSignature, at - 1);
    }
}

void check_lines(std::string_view text) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        must(end != text.npos);
        must(mapi_read_line(text.substr(0, end)).has_value());
        text.remove_prefix(end + 1);
    }
}

void check(const Expanded& out) {
    must(out.files.size() == out.items.size());
    for (std::size_t i = 0; i < out.files.size(); ++i)
        must(static_cast<std::size_t>(out.files[i].fileSize) == out.items[i].size());
    must(!out.objects.empty() && out.objects.size() == out.texts.size());
    int depth = 0;
    for (std::string_view record : out.records) {
        const bool is_wrapped = record.starts_with("wrapped ");
        if (is_wrapped) record.remove_prefix(std::string_view("wrapped ").size());
        depth += record.starts_with("30100 ") ? 1 : record == "39000" ? -1 : 0;
        const bool is_of_message =
            record.starts_with("11200 ") || record.starts_with("30700 ") || record.starts_with("30710 ");
        must(depth >= 0 && is_wrapped == (is_of_message && depth > 0));
    }
    must(depth == 0);
    for (std::size_t i = 0; i < out.objects.size(); ++i) check_lines(out.texts[i]);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TestHome home("UX_MAX_DEPTH = 20\n");
    if (size < 1) return 0;
    std::string stream(reinterpret_cast<const char*>(data) + 1, size - 1);
    if ((data[0] & 1) != 0) mend(stream);
    const Expanded out = expand(stream);
    if (out.failure != 0) {
        must(out.records.empty() && out.items.empty() && out.ack == 0 && !out.reply);
        return 0;
    }
    check(out);
    const Expanded again = expand(out.objects[0]);
    must(again.failure == 0 || !out.items.empty());  // a rich text that nobody read may be damaged
    must(again.failure != 0 || (again.texts.at(0) == out.texts[0] && again.objects.at(0) == out.objects[0]));
    return 0;
}
