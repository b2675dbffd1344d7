// Display names from a recipient table: which entries of a list get one, and what stays as it is.
#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "er/er.h"
#include "inet/address.h"
#include "nm/nm.h"
#include "support/home.h"
#include "support/tnef_bytes.h"
#include "tf/file.h"
#include "tnef/decode.h"

namespace {

using namespace tnef_bytes;
using Lines = std::vector<std::string>;

struct Recipient {
    const char *name, *type, *address;
};

std::string row(const PropertyBytes& list) { return list.str(); }
std::string row(const Recipient& recipient) {
    return PropertyBytes()
        .text(0x3001, recipient.name)
        .text(0x3002, recipient.type)
        .text(0x3003, recipient.address)
        .str();
}

class UpdateDL : public testing::Test {
protected:
    UpdateDL() : home_("INET_LOCAL_DOMAINS = \"local.example\"\n") { inet_reset(); }
    ~UpdateDL() override { inet_reset(); }

    static im_Item list_of(const Lines& names, std::int32_t type = TFREC_list_to) {
        tf_File file = tf_CreateFile();
        file.append(tf_Record(TFREC_list_counts));
        for (const std::string& name : names) {
            tf_Record record(type);
            record.put16(14, 40);
            record.put_string(24, name);
            file.append(record);
        }
        file.append(tf_Record(TFREC_end_package));
        return file.release_item();
    }

    static Lines names_of(im_Item list) {
        tf_File file = tf_open(std::move(list));
        Lines names;
        tf_Record record;
        while (tf_ReadRecord(file, record))
            if (record.type() == TFREC_list_to || record.type() == TFREC_list_reply_to) {
                names.emplace_back(record.get_string(24));
                EXPECT_EQ(record.get16(14), 40);
            }
        return names;
    }

    static std::string stream_of(const Lines& rows) {
        std::string table = u32(rows.size());
        for (const std::string& one : rows) table += one;
        return TnefBytes().codepage(1252).attribute(1, 0x00069004, table).str();
    }

    static void update(im_Item& list, const std::string& stream) {
        im_Item item = im_CrNewDataItem();
        item.write(stream);
        tnef_UpdateDL(list, item, mim_Mapping{});
    }

    static Lines updated(const Lines& names, const Lines& rows) {
        im_Item list = list_of(names);
        update(list, stream_of(rows));
        return names_of(std::move(list));
    }

    TestHome home_;
};

TEST_F(UpdateDL, AnEntryOfTheSameAddressGetsTheName) {
    EXPECT_EQ(updated({"/DD.RFC-822=ann(a)x.example", "/DD.RFC-822=bob(a)x.example"},
                      {row({"Ann B", "SMTP", "Ann@X.example"})}),
              (Lines{"/CN=Ann B/DD.RFC-822=ann(a)x.example", "/DD.RFC-822=bob(a)x.example"}));
}

TEST_F(UpdateDL, ANameThatWasThereIsReplaced) {
    EXPECT_EQ(updated({"/CN=old/DD.RFC-822=a(a)x.example/IA=a@x.example"}, {row({"new", "SMTP", "a@x.example"})}),
              (Lines{"/CN=new/DD.RFC-822=a(a)x.example/IA=a@x.example"}));
}

TEST_F(UpdateDL, EntriesAreFoundByNativeNameOrByInternetAddress) {
    EXPECT_EQ(updated({"/O=local.example/S=smith/G=ann"}, {row({"A", "SMTP", "ann.smith@local.example"})}),
              (Lines{"/O=local.example/S=smith/G=ann/CN=A"}));
    EXPECT_EQ(updated({"/O=elsewhere/S=smith/IA=Ann@y.example"}, {row({"A", "smtp", "ann@Y.example"})}),
              (Lines{"/O=elsewhere/S=smith/CN=A/IA=Ann@y.example"}));
}

TEST_F(UpdateDL, TheFirstRowHoldsAndServesEveryEntryOfItsAddress) {
    EXPECT_EQ(updated({"/DD.RFC-822=a(a)x.y", "/DD.RFC-822=A(a)x.y"},
                      {row({"first", "SMTP", "a@x.y"}), row({"second", "SMTP", "a@x.y"})}),
              (Lines{"/CN=first/DD.RFC-822=a(a)x.y", "/CN=first/DD.RFC-822=A(a)x.y"}));
}

TEST_F(UpdateDL, WhatARowMustSay) {
    const Lines entry = {"/DD.RFC-822=a(a)x.y"}, named = {"/CN=A/DD.RFC-822=a(a)x.y"};
    EXPECT_EQ(updated(entry, {row({"A", "", "a@x.y"})}), named) << "no address type is SMTP";
    EXPECT_EQ(updated(entry, {row({"A", "EX", "a@x.y"})}), entry) << "an address of another kind";
    EXPECT_EQ(
        updated(entry,
                {row(PropertyBytes().text(0x3001, "A").text(0x3002, "EX").text(0x3003, "/O=X").text(0x39FE, "a@x.y"))}),
        named)
        << "with its SMTP address beside it";
    EXPECT_EQ(updated(entry, {row({"", "SMTP", "a@x.y"})}), entry) << "no name";
    EXPECT_EQ(updated(entry, {row({"A", "SMTP", ""})}), entry) << "no address";
    EXPECT_EQ(updated(entry, {row({"A", "SMTP", "not an address,,<"})}), entry);
    EXPECT_EQ(updated(entry, {}), entry) << "no rows";
    EXPECT_EQ(updated(entry, {row(PropertyBytes().text8(0x3001, "\xC5").text8(0x3003, "a@x.y"))}),
              Lines{"/CN=\xC3\x85/DD.RFC-822=a(a)x.y"})
        << "text of the code page";
}

TEST_F(UpdateDL, ADelimiterInANameIsEscaped) {
    EXPECT_EQ(updated({"/DD.RFC-822=a(a)x.y"}, {row({"A/B", "SMTP", "a@x.y"})}), Lines{"/CN=A\\/B/DD.RFC-822=a(a)x.y"});
}

TEST_F(UpdateDL, EveryKindOfEntryButNoOtherRecord) {
    im_Item list = list_of({"/DD.RFC-822=a(a)x.y"}, TFREC_list_reply_to);
    update(list, stream_of({row({"A", "SMTP", "a@x.y"})}));
    EXPECT_EQ(names_of(std::move(list)), Lines{"/CN=A/DD.RFC-822=a(a)x.y"});
    im_Item other = list_of({"/DD.RFC-822=a(a)x.y"}, TFREC_reply_to);
    const std::uint64_t size = other.size();
    update(other, stream_of({row({"A", "SMTP", "a@x.y"})}));
    EXPECT_EQ(other.size(), size);
}

TEST_F(UpdateDL, AListThatIsAFileKeepsItsReference) {
    Lines names;
    for (int i = 0; i < 10'000; ++i) names.push_back("/DD.RFC-822=u" + std::to_string(i) + "(a)x.example");
    im_Item list = list_of(names);
    list.place();
    const ITEM_REF ref = list.ref();
    update(list, stream_of({row({"N", "SMTP", "u9999@x.example"})}));
    EXPECT_EQ(list.ref(), ref);
    const Lines after = names_of(std::move(list));
    ASSERT_EQ(after.size(), names.size());
    EXPECT_EQ(after.front(), names.front());
    EXPECT_EQ(after.back(), "/CN=N/DD.RFC-822=u9999(a)x.example");
}

TEST_F(UpdateDL, AListThatIsAttachedIsOpenedRewrittenAndPlaced) {
    Msg_File message = Msg_CreateFile("");
    im_Item made = list_of({"/DD.RFC-822=a(a)x.y"});
    const ITEM_REF ref = made.ref();
    Msg_AttachFile(message, std::move(made));
    {
        im_Item list = im_open(ref);
        update(list, stream_of({row({"A", "SMTP", "a@x.y"})}));
        list.place();
    }
    EXPECT_EQ(names_of(im_open(ref)), Lines{"/CN=A/DD.RFC-822=a(a)x.y"});
}

TEST_F(UpdateDL, ADamagedStreamChangesNothing) {
    const std::string stream = stream_of({row({"A", "SMTP", "a@x.y"})});
    for (std::size_t size = 0; size < stream.size(); ++size) {
        im_Item list = list_of({"/DD.RFC-822=a(a)x.y"});
        try {
            update(list, stream.substr(0, size));
        } catch (const er_Escape& escape) {
            EXPECT_EQ(escape.reason(), EBADMSG);
        }
        EXPECT_EQ(names_of(std::move(list)), Lines{"/DD.RFC-822=a(a)x.y"}) << size;
    }
}

TEST_F(UpdateDL, ManyEntriesOfOneAddressAndManyRowsOfIt) {
    const Lines names(20'000, "/DD.RFC-822=a(a)x.y");
    const Lines rows(20'000, row({"A", "SMTP", "a@x.y"}));
    const Lines after = updated(names, rows);
    EXPECT_EQ(after.size(), names.size());
    EXPECT_EQ(after.back(), "/CN=A/DD.RFC-822=a(a)x.y");
}

}  // namespace
