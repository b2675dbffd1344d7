// Native names in local parts.
#include "inet/encoded_name.h"

#include <algorithm>
#include <array>
#include <optional>

#include "nm/nm.h"

namespace inet {

namespace {

// Keys that take more thought than a field's number.
constexpr int kNextUnit = -1;
constexpr int kPersonalName = -2;

struct KeyRow {
    std::string_view key;
    int field;
};
constexpr auto kKeys = std::to_array<KeyRow>({
    {"C", kNmCountry},
    {"ADMD", kNmAdministrationDomain},
    {"A", kNmAdministrationDomain},
    {"PRMD", kNmPrivateDomain},
    {"P", kNmPrivateDomain},
    {"O", kNmOrganisation},
    {"OU", kNextUnit},
    {"OU1", kNmUnit1},
    {"OU2", kNmUnit2},
    {"OU3", kNmUnit3},
    {"OU4", kNmUnit4},
    {"S", kNmSurname},
    {"G", kNmGivenName},
    {"I", kNmInitials},
    {"GQ", kNmGeneration},
    {"PN", kPersonalName},
    {"CN", kNmCommonName},
    {"DD.RFC-822", kNmRfc822},
});

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c; }

std::optional<int> field_of(std::string_view key) {
    for (const KeyRow& row : kKeys)
        if (std::equal(key.begin(), key.end(), row.key.begin(), row.key.end(),
                       [](char a, char b) { return upper(a) == b; }))
            return row.field;
    return std::nullopt;
}

// A name under construction.
struct Name {
    std::string text;
    NM_PARSE_STATUS status;
    void put(int field, std::string_view value) { nm_PutFieldStr(text, status, field, value); }
};

bool put_next_unit(Name& name, std::string_view value) {
    for (int unit = kNmUnit1; unit <= kNmUnit4; ++unit) {
        if (nm_has_field(name.status, unit)) continue;
        name.put(unit, value);
        return true;
    }
    return false;
}

// The surname stands last; before it a given name, which is longer than one letter, and initials, which are one each.
void put_personal_name(Name& name, std::string_view value) {
    std::string initials;
    for (std::size_t dot = value.find('.'); dot != std::string_view::npos; dot = value.find('.')) {
        const std::string_view piece = value.substr(0, dot);
        if (piece.size() == 1)
            initials.append(piece);
        else
            name.put(kNmGivenName, piece);
        value.remove_prefix(dot + 1);
    }
    name.put(kNmInitials, initials);
    name.put(kNmSurname, value);
}

bool put(Name& name, int field, std::string_view value) {
    if (field == kNextUnit) return put_next_unit(name, value);
    if (field == kPersonalName)
        put_personal_name(name, value);
    else
        name.put(field, value);
    return true;
}

// Takes the value up to its "/"; nothing when there is no "/" or the value is empty.
std::optional<std::string> take_value(std::string_view& text) {
    std::string value;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '/') {
            text.remove_prefix(at);
            if (value.empty()) return std::nullopt;
            return value;
        }
        if (text[at] == '$' && at + 1 < text.size()) ++at;
        value.push_back(text[at]);
    }
    return std::nullopt;
}

bool read_fields(std::string_view text, Name& name) {
    while (text != "/") {
        if (!text.starts_with('/')) return false;
        const std::size_t equals = text.find('=');
        if (equals == std::string_view::npos) return false;
        const std::optional<int> field = field_of(text.substr(1, equals - 1));
        if (!field) return false;
        text.remove_prefix(equals + 1);
        const std::optional<std::string> value = take_value(text);
        if (!value || !put(name, *field, *value)) return false;
    }
    return !name.text.empty();
}

}  // namespace

bool read_encoded_name(std::string_view local_part, std::string& name) {
    name.clear();
    if (local_part.size() < 2 || local_part.front() != '/' || local_part.back() != '/') return false;
    Name built;
    if (!read_fields(local_part, built)) return false;
    name = std::move(built.text);
    return true;
}

}  // namespace inet
