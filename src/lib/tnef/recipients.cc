// The display names that a recipient table gives: see tnef_UpdateDL in decode.h.
//
// The list's entries are put into a table by what they are known by, then the rows of the recipient table go past once:
// time is linear in both, and memory is the list's.
#include <algorithm>
#include <cerrno>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "cust/cust.h"
#include "dstring/ascii.h"
#include "er/er.h"
#include "inet/address.h"
#include "nm/nm.h"
#include "tnef/check.h"
#include "tnef/decode.h"
#include "tnef/format.h"
#include "tnef/properties.h"
#include "tnef/source.h"
#include "tnef/text.h"

namespace {

constexpr std::size_t kEntryNameAt = 24;
constexpr std::size_t kTextLimit = 4096;
constexpr std::string_view kInternetKey =
    "\1";  // before an Internet address, where a native name's key cannot begin so
constexpr std::string_view kSmtp = "SMTP";

bool is_entry(std::int32_t type) { return type >= TFREC_list_from && type <= TFREC_list_reply_to; }

std::string lower(std::string_view text) {
    std::string out(text);
    std::ranges::transform(out, out.begin(), dstring_lower);
    return out;
}

// One row of the table: what it says of its recipient.
struct Row {
    std::string display_name, address_type, email_address, smtp_address;
    std::string_view address() const {
        if (!smtp_address.empty()) return smtp_address;
        const bool is_smtp = address_type.empty() || dstring_equal_ignoring_case(address_type, kSmtp);
        return is_smtp ? std::string_view(email_address) : std::string_view();
    }
};

class Update {
public:
    Update(const im_Item& stream, const mim_Mapping& mapping) : stream_(stream), source_(stream), mapping_(mapping) {}

    void read_list(const im_Item& list) {
        each_record(list, [&](const tf_Record& record, std::size_t number) {
            if (!is_entry(record.type())) return;
            const std::string name(record.get_string(kEntryNameAt));
            std::string key;
            nm_key(name, key);
            if (!key.empty()) entries_.emplace(key, number);
            const std::string internet = nm_get_field(name, nm_ParseORN(name), kNmInternetAddress);
            if (!internet.empty()) entries_.emplace(std::string(kInternetKey) + lower(internet), number);
        });
    }

    // The table of the outermost message.
    void read_table() {
        tnef_Cursor attributes = tnef_open_stream(source_, {0, stream_.size()});
        const tnef_Span all{attributes.position(), stream_.size()};
        std::string set = tnef_set_of(kTnefDefaultCodepage);
        tnef_AttributeHead head;
        while (tnef_next_attribute(attributes, head))
            if (head.id == static_cast<std::uint32_t>(tnef_Attribute::oem_codepage) && head.data.size() >= 4)
                set = tnef_set_of(tnef_Cursor(source_, head.data).take32());
        tnef_Cursor again(source_, all);
        while (tnef_next_attribute(again, head))
            if (head.id == static_cast<std::uint32_t>(tnef_Attribute::recipient_table)) read_rows(head.data, set);
    }

    bool any() const { return !names_.empty(); }

    im_Item rewritten(const im_Item& list) const {
        im_Item out = im_create(im_Domain::temporary, kScratchItem);
        each_record(list, [&](tf_Record& record, std::size_t number) {
            if (const auto name = names_.find(number); name != names_.end()) rename(record, name->second);
            out.write(record.bytes());
        });
        return out;
    }

private:
    template <class Work>
    static void each_record(const im_Item& list, Work&& work) {
        tf_Record record;
        std::string scratch;
        std::size_t number = 0;
        for (std::uint64_t at = 0; at < list.size(); ++number) {
            const std::uint32_t size = tf_record_size(list.view(at, kTfHeaderSize, scratch));
            if (size == 0 || size > list.size() - at) er_SystemEscape(EILSEQ, "distribution list");
            record.assign(std::string(list.view(at, size, scratch)));
            at += size;
            work(record, number);
        }
    }

    static void rename(tf_Record& record, std::string_view display_name) {
        std::string name(record.get_string(kEntryNameAt));
        NM_PARSE_STATUS status = nm_ParseORN(name);
        nm_PutFieldStr(name, status, kNmCommonName, display_name);
        tf_Record renamed;
        renamed.assign(std::string(record.bytes().substr(0, kEntryNameAt)));
        renamed.put_string(kEntryNameAt, name);
        record = std::move(renamed);
    }

    void read_rows(tnef_Span table, std::string_view set) {
        tnef_Cursor in(source_, table);
        for (std::uint32_t rows = in.take32(); rows != 0; --rows) {
            Row row;
            for (std::uint32_t count = in.take32(); count != 0; --count) note(row, tnef_take_property(in), set);
            name_entry(row);
        }
    }

    void note(Row& row, const tnef_Property& property, std::string_view set) {
        std::string* text = nullptr;
        switch (property.head.id) {
            case kIdDisplayName: text = &row.display_name; break;
            case kIdAddressType: text = &row.address_type; break;
            case kIdEmailAddress: text = &row.email_address; break;
            case kIdSmtpAddress: text = &row.smtp_address; break;
            default: return;
        }
        const bool is_unicode = property.head.type == mapi_Type::unicode;
        if (property.head.multiple || (!is_unicode && property.head.type != mapi_Type::string8)) return;
        const tnef_Span value = tnef_first_value(source_, property);
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(value.size(), kTextLimit));
        *text = tnef_utf8(source_.at(value.begin, size), {.is_unicode = is_unicode, .set = set});
    }

    void name_entry(const Row& row) {
        const std::string_view address = row.address();
        if (address.empty() || row.display_name.empty()) return;
        std::string arpa(address), name, key;
        if (inet_uxConvArpaORNToORN(arpa, name, true, mapping_, false) == 1 && !name.empty()) nm_key(name, key);
        if (!key.empty()) give(key, row.display_name);
        give(std::string(kInternetKey) + lower(address), row.display_name);
    }

    // To every entry of this key that has no name yet.
    void give(const std::string& key, const std::string& display_name) {
        const auto [first, last] = entries_.equal_range(key);
        for (auto entry = first; entry != last; ++entry) names_.emplace(entry->second, display_name);
        entries_.erase(first, last);  // another row of the same address finds nothing, and costs nothing
    }

    const im_Item& stream_;
    tnef_Source source_;
    const mim_Mapping& mapping_;
    std::unordered_multimap<std::string, std::size_t> entries_;  // number of the record, by key
    std::unordered_map<std::size_t, std::string> names_;
};

}  // namespace

void tnef_UpdateDL(im_Item& list, const im_Item& stream, const mim_Mapping& mapping) {
    const er_Trace trace("tnef_UpdateDL");
    er_Translate([&] {
        tnef_check(stream, 1);
        Update update(stream, mapping);
        update.read_list(list);
        update.read_table();
        if (!update.any()) return;
        const im_Item updated = update.rewritten(list);
        list.truncate(0);
        std::string scratch;
        constexpr std::size_t block = std::size_t{64} << 10;
        for (std::uint64_t at = 0; at < updated.size(); at += block) list.write(updated.view(at, block, scratch));
    });
}
