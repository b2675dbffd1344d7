// Second pass over a saved header: its fields become records. This is what the header of a message and the headers of
// messages inside messages share. Where they differ they are told so by HeaderRules; what only one of them does is in a
// class of its own, made on this one.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "im/im.h"
#include "os/os.h"
#include "tf/file.h"
#include "tf/record.h"
#include "ux_in/dates.h"
#include "ux_in/header_table.h"
#include "ux_in/records.h"
#include "ux_in/saved_header.h"

namespace ux {

struct HeaderRules {
    bool wrapped;              // records go into a package, each wrapped
    bool joined_lists;         // a folded address list is one list; else every line of it is one
    bool joined_return;        // continuation lines of Originator-Return-Address belong to it
    bool audited_return;       // its name goes into the audit trail
    bool creator_from_sender;  // every Sender field makes a creator record of the first Sender
};

class HeaderFields {
public:
    // Where the records of a header go; all of it outlives the object.
    struct Target {
        tf_File& TfHandle;
        tf_File& DLHandle;
        std::string_view Envid;  // goes with message identifiers that have none of their own
        os_Moment now;           // when the message came: its date when it has none; the zone of dates without one
    };
    HeaderFields(const HeaderRules& rules, const Target& target, const im_Item& saved);
    virtual ~HeaderFields() = default;
    HeaderFields(const HeaderFields&) = delete;
    HeaderFields& operator=(const HeaderFields&) = delete;

    // Converts every field, in order. Raises what writing records, converting names and configuration raise.
    void convert();

protected:
    virtual std::string take_subject() = 0;  // the value of the Subject field in hand, in RFC 2047 form
    virtual void take_other(int token) = 0;  // a field that this class does not know how to take
    void append(tf_Record& record);          // to the main file, wrapped when the rules say so
    bool add_default_date();                 // of now, when there was no good one
    bool add_default_subject();              // an empty one, when there was none
    bool once(int token);                    // true the first time that it is asked about a token
    bool taken(int token) const { return done_[token]; }
    using MakeRecord = void (*)(std::string_view pORN, tf_Record& record);
    void append_originator(const std::string& address, MakeRecord make);  // the record of its native name

    const HeaderRules rules_;
    const Target target_;
    SavedHeader in_;
    const ArpaTokenRow* row_ = nullptr;  // of the field in hand
    ux_HeaderUpdate update_;
    ux_Date created_;
    std::string subject_;
    std::string FirstFrom_, Sender822_;
    bool ReplyIdFound_ = false;

private:
    using Action = void (HeaderFields::*)();
    static const std::array<Action, kTokenKept + 1> kActions;

    void take_subject_field();
    void take_addresses();
    void take_hops();
    void take_autoforwarded();
    void take_autoreplied();
    void take_priority();
    void take_importance();
    void take_sensitivity();
    void take_date();
    void take_identifiers();
    void take_return_address();
    void take_transport_id();

    tf_Record record_;
    std::array<bool, kTokenKept + 1> done_{};  // once-only fields that have been taken, by token
    bool MsgIdFound_ = false;
    std::string TransportID_;
};

}  // namespace ux
