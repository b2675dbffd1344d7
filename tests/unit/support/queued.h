// What waits on the queue "ROUTER", read back from the files as a consumer would.
#pragma once

#include <string>
#include <vector>

#include "os/os.h"
#include "q/q.h"
#include "support/shown_records.h"

struct QueuedMessage {
    int priority = 0;
    std::vector<std::string> records;  // of the main transfer file, as lines of text
    std::vector<std::string> files;    // contents of the attached files; the first is the distribution list
    std::vector<std::string> list() const { return files.empty() ? std::vector<std::string>() : shown_bytes(files[0]); }
};

inline std::vector<QueuedMessage> queued_messages() {
    constexpr std::size_t limit = std::size_t{64} << 20;
    std::vector<QueuedMessage> messages;
    for (const Q_Entry& entry : Q_List("ROUTER"))
        for (const ITEM_REF& ref : entry.messages) {
            QueuedMessage message{.priority = entry.priority, .records = {}, .files = {}};
            im_Item item = im_CrNewDataItem();
            item.write(os_read_file(im_ItemRef2FName(ref), limit));
            tf_File message_file = tf_open(std::move(item));
            tf_Record record;
            for (bool main = true; tf_ReadRecord(message_file, record);) {
                if (record.type() != TFREC_message_file) continue;
                std::string content = os_read_file(im_ItemRef2FName(record.get_ref(16)), limit);
                if (std::exchange(main, false))
                    message.records = shown_bytes(content);
                else
                    message.files.push_back(std::move(content));
            }
            messages.push_back(std::move(message));
        }
    return messages;
}
