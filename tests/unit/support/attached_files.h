// The contents of a message's attached files, in order, as its message file names them.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "msg/msg.h"
#include "os/os.h"
#include "tf/file.h"
#include "tf/record.h"

inline std::vector<std::string> attached_files(Msg_File& MsgHandle, tf_File main) {
    constexpr std::size_t limit = std::size_t{1} << 30;
    MsgHandle.finish(std::move(main));
    im_Item item = im_CrNewDataItem();
    item.write(os_read_file(im_ItemRef2FName(MsgHandle.ref()), limit));
    tf_File message = tf_open(std::move(item));
    std::vector<std::string> contents;
    tf_Record record;
    for (bool is_main = true; tf_ReadRecord(message, record);) {
        if (record.type() != TFREC_message_file) continue;
        if (!std::exchange(is_main, false))
            contents.push_back(os_read_file(im_ItemRef2FName(record.get_ref(16)), limit));
    }
    return contents;
}
