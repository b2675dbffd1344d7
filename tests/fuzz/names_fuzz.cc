// Native names: what is written is read back; what is read and written once stays as it is; equal names have equal
// keys.
#include <stdint.h>
#include <stdlib.h>

#include <map>
#include <string>
#include <string_view>

#include "nm/nm.h"

namespace {

void require(bool holds) {
    if (!holds) ::abort();
}

using Fields = std::map<int, std::string>;

Fields fields_of(std::string_view name) {
    const NM_PARSE_STATUS status = nm_ParseORN(name);
    Fields fields;
    for (const nm_FieldRow& row : kNmFields)
        if (nm_has_field(status, row.number)) fields[row.number] = nm_get_field(name, status, row.number);
    return fields;
}

std::string write(const Fields& fields) {
    std::string name;
    nm_Writer writer(name);
    for (const auto& [number, value] : fields) writer.put(number, value);
    writer.finish();
    return name;
}

// The input as fields: a byte that chooses the field, then its value up to a byte 0.
void build_and_read(std::string_view input) {
    Fields fields;
    std::string name;
    NM_PARSE_STATUS status = nm_ParseORN(name);
    while (!input.empty()) {
        const int number = kNmFields[static_cast<unsigned char>(input.front()) % kNmFields.size()].number;
        input.remove_prefix(1);
        const std::string_view value = input.substr(0, input.find('\0'));
        input.remove_prefix(value.size() < input.size() ? value.size() + 1 : value.size());
        nm_PutFieldStr(name, status, number, value);
        fields[number] = value;
        if (value.empty()) fields.erase(number);
        require(name.size() <= kNativeNameLimit);
        if (name.size() == kNativeNameLimit) return;  // it may have been cut
        require(name == write(fields));
        require(fields_of(name) == fields);
        require(nm_get_field(name, status, number) == value);
    }
}

// The input as the text of a name.
void read_and_write(std::string_view input) {
    const Fields fields = fields_of(input);
    const std::string once = write(fields);
    if (once.size() == kNativeNameLimit) return;
    require(fields_of(once) == fields);
    require(write(fields_of(once)) == once);
    require(nm_ParseORN(once).canonical);
    require(!nm_ParseORN(input).canonical || once == input);
    std::string key, key_once;
    nm_key(input, key);
    nm_key(once, key_once);
    require(nm_CompareORNs(input, once) && key == key_once && nm_hash(key) == nm_hash(key_once));
    const std::size_t half = input.size() / 2;
    nm_key(input.substr(0, half), key);
    nm_key(input.substr(half), key_once);
    require(nm_CompareORNs(input.substr(0, half), input.substr(half)) == (key == key_once));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    constexpr std::string_view delimiters = "/;=\\.SC ";
    nm_state().inet_PrimDelim = delimiters[data[0] % delimiters.size()];
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    build_and_read(input);
    read_and_write(input.substr(0, input.find('\0')));
    return 0;
}
