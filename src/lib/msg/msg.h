// Message files: what ties the main transfer file and the attached files together. The handle owns them all: destroyed
// before it was queued, it deletes them; once queued, they belong to the queue.
//
//   record 90   i32@16 format version 1, string@20 filter route
//   record 91   ITEM_REF@16, one per file: the main transfer file, then the attached files in order
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "im/im.h"
#include "tf/file.h"

class Msg_File {
public:
    Msg_File() = default;
    Msg_File(Msg_File&&) noexcept;
    Msg_File& operator=(Msg_File&&) noexcept;
    ~Msg_File();  // deletes the attached files and the message file unless queued; swallows failures

    explicit operator bool() const { return open_; }
    const ITEM_REF& ref() const { return item_.ref(); }
    std::size_t attached() const { return files_.size(); }

    void attach(im_Item item);                       // places it: it is a file from now on
    const ITEM_REF& file(std::size_t number) const;  // an attached file, by its number from 1; EINVAL: there is none
    // Puts the main transfer file first, writes the message file and places everything. Nothing is synced.
    void finish(tf_File main);
    void list_files(std::vector<ITEM_REF>& files) const;  // appends its own, the main and the attached ones
    void keep();                                          // queued: nothing is deleted any more

private:
    friend Msg_File Msg_CreateFile(std::string_view route);
    void drop() noexcept;

    im_Item item_;
    std::string route_;
    std::vector<ITEM_REF> files_;  // attached, in order; deleted when the message is not queued
    ITEM_REF main_;
    bool open_ = false;
    bool kept_ = false;
};

Msg_File Msg_CreateFile(std::string_view route);
void Msg_AttachFile(Msg_File& message, im_Item item);
inline const ITEM_REF& Msg_GetFile(const Msg_File& message, std::size_t number) { return message.file(number); }
