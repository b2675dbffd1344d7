// How the module writes its tokens: see properties_module.h.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "mapi/properties_module.h"

class TokenWriter {
public:
    void put(char kind, std::string_view text) {
        const auto length = static_cast<std::uint32_t>(text.size());
        char bytes[sizeof length];
        std::memcpy(bytes, &length, sizeof length);
        out_ += kind;
        out_.append(bytes, sizeof bytes);
        out_.append(text);
    }
    int hand_over(char** out, std::size_t* out_size) const {
        auto bytes = std::make_unique<char[]>(out_.size() + 1);
        std::memcpy(bytes.get(), out_.data(), out_.size());
        *out_size = out_.size();
        *out = bytes.release();
        return kTokensMade;
    }

private:
    std::string out_;
};
