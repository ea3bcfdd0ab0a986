// The bytes of fields and memos, to the client and from it, with every byte kept.
//
// Fields are sent as the client's help advises, one by one as text. What it makes of them is then
// compared with what was wanted: it may recode text, end it at a zero byte or have no text for a
// value. Where the two differ, the record is set as a whole, and a memo as binary data. What still
// differs is a fault. So nothing is stored in another form than it was given in.

#pragma once

#include <map>
#include <optional>
#include <string>

#include "engine/advantage/client_cursor.h"
#include "engine/record/table_layout.h"

namespace brenik::advantage {

using PendingMemos = std::map<const record::Field*, std::string>;

class ClientFields {
  public:
    // `oem` says that the client recodes the table's text.
    ClientFields(ClientCursor& cursor, Handle table, const std::string& path,
                 const record::TableLayout& layout, bool oem)
        : cursor_(cursor), table_(table), path_(path), layout_(layout), oem_(oem) {}

    // A memo of the record on which the client stands.
    std::string memo(const record::Field& field);
    // Gives the record on which the client stands these bytes, but not their memo pointers, and
    // these memos. Nothing is written before AdsWriteRecord.
    void send(Bytes wanted, const PendingMemos& memos);

  private:
    void send_field(Bytes wanted, const record::Field& field);
    void send_memo(const record::Field& field, const std::string& text);
    std::optional<std::size_t> binary_length(const record::Field& field);
    std::string binary_memo(const record::Field& field, std::optional<std::size_t> length);
    std::vector<Byte> expected(Bytes wanted);
    [[noreturn]] void differs(const std::string& what, Status status) const;

    ClientCursor& cursor_;
    Handle table_;
    const std::string& path_;
    const record::TableLayout& layout_;
    bool oem_;
    Status first_refusal_ = 0;  // of a field
};

}  // namespace brenik::advantage
