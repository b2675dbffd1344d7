// Records: any bytes as a transfer file, read record by record; and any sequence of puts against a model of the layout.
#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "er/er.h"
#include "tf/file.h"
#include "tf/record.h"

namespace {

void require(bool holds) {
    if (!holds) std::abort();
}

// What is read from a record and put into a new one reads the same again.
template <class Struct>
void check_round_trip(const tf_Record& record, Struct (*read)(const tf_Record&),
                      void (*put)(tf_Record&, const Struct&)) {
    tf_Record first, second;
    put(first, read(record));
    put(second, read(first));
    require(first.bytes() == second.bytes());
    require(tf_record_size(first.bytes()) == first.size());
}

void check_wrapping(const tf_Record& record) {
    tf_Record wrapped = record;
    tf_ChangeToWrapRec(wrapped);
    require(wrapped.type() == TFREC_wrapped && wrapped.size() == record.size() + kTfHeaderSize);
    require(tf_record_size(wrapped.bytes()) == wrapped.size());
    tf_ChangeFromWrapRec(wrapped);
    require(wrapped.bytes() == record.bytes());
}

void check_fields(const tf_Record& record) {
    for (std::size_t at = 0; at < record.size() + 8; at += 5) {
        const std::string_view text = record.get_string(at);
        require(at + text.size() <= std::max(record.size(), at));
        require(static_cast<std::uint16_t>(record.get16(at)) == static_cast<std::uint32_t>(record.get32(at)) >> 16 ||
                record.get32(at) == 0);
        tf_Record copy(0);
        copy.put_ref(16, record.get_ref(at));
        require(copy.get_ref(16) == record.get_ref(at));
    }
}

// The bytes as a transfer file: whole records from its start, then its end or EILSEQ.
void read_file(std::string_view bytes) {
    im_Item item = im_CrNewDataItem();
    item.write(bytes);
    tf_File file = tf_open(std::move(item));
    tf_Record record;
    std::size_t at = 0;
    try {
        while (tf_ReadRecord(file, record)) {
            require(record.bytes() == bytes.substr(at, record.size()));
            require(record.size() >= kTfHeaderSize && tf_record_size(record.bytes()) == record.size());
            at += record.size();
            check_wrapping(record);
            check_fields(record);
            check_round_trip(record, tf_ContentFileRecToStruc, tf_ContentFileRecFromStruc);
            check_round_trip(record, tf_ST_PKG_to_Struc, tf_ST_PKG_from_Struc);
            tf_OverwriteRecord(file, record);
        }
        require(at == bytes.size());
    } catch (const er_Escape& escape) {
        require(escape.group() == kSystemGroup && escape.reason() == EILSEQ && at < bytes.size());
    }
}

// A record's bytes as they must be: zeros that fields are laid over, the size in front.
class Model {
public:
    void put(std::size_t at, std::string_view bytes) {
        if (at + bytes.size() > bytes_.size()) bytes_.resize(at + bytes.size(), '\0');
        bytes_.replace(at, bytes.size(), bytes);
        for (std::size_t i = 0; i < 4; ++i) bytes_[i] = static_cast<char>(bytes_.size() >> (24 - 8 * i) & 0xFF);
    }
    const std::string& bytes() const { return bytes_; }

private:
    std::string bytes_ = std::string("\0\0\0\x10", 4) + std::string(12, '\0');
};

// Each operation takes four bytes: what, where, and a value; a string takes the bytes behind it up to a NUL.
void build_record(std::string_view script) {
    tf_Record record(0);
    Model model;
    while (script.size() >= 4) {
        const std::string_view value = script.substr(2, 2);
        const std::size_t at = kTfHeaderSize + static_cast<unsigned char>(script[1]);
        const char what = script[0];
        script.remove_prefix(4);
        const auto number =
            static_cast<std::int16_t>(static_cast<unsigned char>(value[0]) << 8 | static_cast<unsigned char>(value[1]));
        const std::string sign(number < 0 ? 6 : 0, '\xFF'), zero(number < 0 ? 0 : 6, '\0');
        const std::string wide = sign + zero + std::string(value);
        switch (what & 3) {
            case 0:
                record.put16(at, number);
                model.put(at, value);
                break;
            case 1:
                record.put32(at, number);
                model.put(at, std::string_view(wide).substr(4));
                break;
            case 2:
                record.put64(at, number);
                model.put(at, wide);
                break;
            default: {
                const std::string_view text = script.substr(0, script.find('\0'));
                require(record.put_string(at, script) == at + text.size() + 1);
                model.put(at, std::string(text) + '\0');
                require(record.get_string(at) == text);
                script.remove_prefix(text.size());
            }
        }
        require(record.bytes() == model.bytes());
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > kKeptInMemory) return 0;
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (data[0] % 2 == 0)
        read_file(input);
    else
        build_record(input);
    return 0;
}
