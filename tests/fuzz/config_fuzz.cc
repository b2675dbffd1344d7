// Configuration: any bytes as a gateway.toml. It is read whole or refused whole, and every key has one meaning.
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "cust/cust.h"
#include "er/er.h"
#include "os/os.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// The words of the text before "=" signs: most of them are its keys.
std::set<std::string> likely_keys(std::string_view text) {
    std::set<std::string> keys{"K", "UXI_NAME_MAPPING", ""};
    for (std::size_t sign = text.find('='); sign != std::string_view::npos; sign = text.find('=', sign + 1)) {
        const std::size_t end = text.find_last_not_of(" \t\"'", sign == 0 ? 0 : sign - 1);
        if (end == std::string_view::npos) continue;
        const std::size_t start = text.find_last_of(" \t\"'\n=", end);
        keys.emplace(text.substr(start + 1, end - start));
    }
    return keys;
}

void check_key(const std::string& key) {
    const bool is_true = cust_PresentAndTrue(key), is_false = cust_PresentAndFalse(key);
    const auto text = cust_GetCustomiseInfo(key);
    require(!(is_true && is_false));
    require(text.has_value() == (is_true || is_false));
    require(cust_GetBoolean(key, true) == !is_false);
    require(cust_GetBoolean(key, false) == is_true);
    const int low = cust_GetInteger(key, -7), high = cust_GetInteger(key, 7);
    if (low != high) {  // missing, or not a number
        require(low == -7 && high == 7);
    } else {
        require(text.has_value());
        if (text->front() == '1') require(is_true);
    }
    if (text && !text->empty() && std::string_view("TtYy").find(text->front()) != std::string_view::npos)
        require(is_true);
    if (text && text->empty()) require(is_false);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const os_Fd file(::memfd_create("gateway.toml", MFD_CLOEXEC));
    os_write_all(file.get(), text);
    er_Reset();
    std::size_t complaints = 0;
    er_SetSink([&](std::string_view line) { complaints += line.find("] 3 102.0 ") != std::string_view::npos ? 1 : 0; });
    cust_Reset("/proc/self/fd/" + std::to_string(file.get()));
    bool refused = false;
    for (const std::string& key : likely_keys(text)) {
        const std::size_t before = complaints;
        try {
            check_key(key);
            require(!refused && complaints == before);
        } catch (const er_Escape& escape) {
            require(escape.group() == kSystemGroup && escape.reason() == EINVAL);
            require(complaints == before + 1);
            require(refused || key.empty());  // the first key that is asked for, and then every one
            refused = true;
        }
    }
    er_Reset();
    cust_Reset();
    return 0;
}
