// Record files as the operator's tool reads them: whatever the bytes, the tree and the dump hold nothing that drives a
// terminal, the JSON is one document, every form sees the same records, and what is written stays in proportion to what
// was read.
#include <cstdint>
#include <cstdlib>
#include <string>

#include <nlohmann/json.hpp>

#include "morvane/failure.h"
#include "morvane/show.h"

namespace {

void require(bool held) {
    if (!held) std::abort();
}

struct Shown {
    std::string text, damage;
};

Shown shown(void (*form)(morvane::ShowContext&, morvane::ByteFile&), std::string_view bytes,
            const morvane::Screen& screen) {
    Shown result;
    morvane::ByteFile file = morvane::ByteFile::over(bytes, "file");
    morvane::Printer out(result.text);
    morvane::ShowContext context{out, screen, (bytes.size() & 1) != 0, {}};
    try {
        form(context, file);
    } catch (const morvane::RecordFailure& failure) {
        require(failure.offset() < bytes.size());
        context.note_damage(failure.what());
    }
    out.flush();
    result.damage = context.damage;
    return result;
}

bool is_harmless(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if ((byte < 0x20 && byte != '\n') || byte == 0x7F) return false;
        if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) return false;
    }
    return true;
}

std::size_t count_records(std::string_view bytes) {
    morvane::ByteFile file = morvane::ByteFile::over(bytes, "file");
    return morvane::outline(file).steps.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    constexpr morvane::Screen utf8{true, false}, ascii{false, false};
    const std::size_t records = count_records(bytes);

    for (const morvane::Screen& screen : {utf8, ascii}) {
        const Shown tree = shown(morvane::show_tree, bytes, screen);
        require(is_harmless(tree.text));
        require(tree.text.size() < 4096 + 16 * size + 20'000 * records);
        const Shown hex = shown(morvane::show_hex, bytes, screen);
        require(is_harmless(hex.text));
        require(tree.damage.empty() || !tree.text.empty());
    }
    const Shown json = shown(morvane::show_json, bytes, utf8);
    require(is_harmless(json.text));
    const nlohmann::json document = nlohmann::json::parse(json.text);
    require(document["records"].size() == records);
    require(document["size"] == size);
    return 0;
}
