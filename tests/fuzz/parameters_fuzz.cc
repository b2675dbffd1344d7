// Header fields with parameters: whatever a field is, reading it ends; what is found stands where it is said to stand;
// and a character set that is written into it is the one that is read from it.
#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <string_view>

#include "ccs/ccs.h"
#include "dstring/ascii.h"
#include "mim/content_type.h"
#include "msl/msl.h"

namespace {

constexpr std::size_t kLongest = 2000;  // fewer parameters than are read of a field

void must(bool holds) {
    if (!holds) std::abort();
}

// The words before "=" and "*": most names of parameters.
std::set<std::string> likely_names(std::string_view text) {
    std::set<std::string> names{"charset", "filename"};
    for (std::size_t sign = text.find_first_of("=*"); sign != text.npos; sign = text.find_first_of("=*", sign + 1)) {
        const std::size_t end = text.find_last_not_of(" \t", sign == 0 ? 0 : sign - 1);
        if (end == text.npos) continue;
        const std::size_t before = text.find_last_of(" \t\";=)", end);
        names.emplace(text.substr(before + 1, end - before));
    }
    return names;
}

void check_header_text(const std::string& text) {
    if (text.find("=?") != text.npos && text.find("?=") != text.npos) return;  // words of the sender's own stay
    for (const char c : text) must((c >= 0x20 && c <= 0x7E) || c == '\t');
}

void check_parameter(const msl_Field& field, std::string_view text, const std::string& name) {
    const auto parameter = field.parameter(name);
    if (!parameter) return;
    const std::string_view base = std::string_view(name).substr(0, name.find('*'));
    must(parameter->name_begin < parameter->value_begin && parameter->value_begin <= parameter->value_end);
    must(parameter->value_end <= text.size());
    must(dstring_starts_ignoring_case(text.substr(parameter->name_begin), base));
    must(text.substr(parameter->name_begin, parameter->value_begin - parameter->name_begin).find('=') != text.npos);
    must(parameter->value.size() + parameter->charset.size() + parameter->language.size() <= text.size());
    check_header_text(msl_convert2231to2047(*parameter));
}

void check_charset(std::string_view text, const ccs_Descriptor& set) {
    const std::string type = mim_InsertNewCSName(text, set.name);
    must(mim_MimeToQNType(type, {}).QNCharSet == set.name);
    must(mim_InsertNewCSName(type, set.name) == type);
    must(type.size() <= text.size() + std::string_view("; charset=").size() + set.mime.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1 || size > kLongest) return 0;
    const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
    mim_reset_types("/no/such/map");
    const msl_Field field(text);
    must(field.value().size() <= text.size());
    for (const std::string& name : likely_names(text)) {
        check_parameter(field, text, name);
        check_parameter(field, text, name + '*');
    }
    const ccs_Table sets = ccs_sets();
    check_charset(text, *(sets.begin() + data[0] % sets.count));
    mim_MimeToQNType(text, text);
    return 0;
}
