// Message files: see msg.h.
#include "msg/msg.h"

#include <cerrno>
#include <utility>

#include "er/er.h"

namespace {

constexpr std::int32_t kFormatVersion = 1;

void unlink_quietly(const ITEM_REF& ref) {
    if (!ref.is_null()) er_TryIgnoring([&] { im_UnlinkItem(ref); });
}

}  // namespace

Msg_File Msg_CreateFile(std::string_view route) {
    Msg_File message;
    message.item_ = im_create(im_Domain::data, kMessageFile);
    message.route_ = route;
    message.open_ = true;
    return message;
}

void Msg_AttachFile(Msg_File& message, im_Item item) { message.attach(std::move(item)); }

Msg_File::Msg_File(Msg_File&& other) noexcept { *this = std::move(other); }

Msg_File& Msg_File::operator=(Msg_File&& other) noexcept {
    if (this == &other) return *this;
    drop();
    item_ = std::move(other.item_);
    route_ = std::move(other.route_);
    files_ = std::move(other.files_);
    other.files_.clear();
    main_ = std::exchange(other.main_, ITEM_REF{});
    open_ = std::exchange(other.open_, false);
    kept_ = std::exchange(other.kept_, false);
    return *this;
}

Msg_File::~Msg_File() { drop(); }

void Msg_File::drop() noexcept {
    if (!kept_) {
        for (const ITEM_REF& ref : files_) unlink_quietly(ref);
        unlink_quietly(main_);
        item_.unlink();
    }
    files_.clear();
    main_ = ITEM_REF{};
}

void Msg_File::attach(im_Item item) {
    item.place();
    files_.push_back(item.ref());
    item.keep();  // ours from here on
}

const ITEM_REF& Msg_File::file(std::size_t number) const {
    if (number == 0 || number > files_.size()) er_SystemEscape(EINVAL, "attached file " + std::to_string(number));
    return files_[number - 1];
}

void Msg_File::finish(tf_File main) {
    im_Item main_item = main.release_item();
    main_item.place();
    main_ = main_item.ref();
    main_item.keep();

    tf_Record record(TFREC_queue_file_start);
    record.put32(16, kFormatVersion);
    record.put_string(20, route_);
    item_.write(record.bytes());
    record.init(TFREC_message_file);
    record.put_ref(16, main_);
    item_.write(record.bytes());
    for (const ITEM_REF& ref : files_) {
        record.put_ref(16, ref);
        item_.write(record.bytes());
    }
    item_.place();
}

void Msg_File::list_files(std::vector<ITEM_REF>& files) const {
    files.push_back(item_.ref());
    files.push_back(main_);
    files.insert(files.end(), files_.begin(), files_.end());
}

void Msg_File::keep() {
    item_.keep();
    kept_ = true;
}
