// Where the client stands in a table, and the record that it has there.
//
// The client has one position per table, which every move, seek and count disturbs. The table above
// keeps its own position, and asks for it here when it needs the client there. The cursor knows
// where the client stands and moves it only when it must.
//
// The client may answer from memory when it is told to go to the record on which it stands, and
// does not refresh a record that is locked. So a record that must be read anew is left first.

#pragma once

#include <limits>
#include <string>
#include <vector>

#include "engine/advantage/advantage_engine.h"
#include "util/bytes.h"

namespace brenik::advantage {

class ClientCursor {
  public:
    // `path` is the table's, for messages.
    ClientCursor(AdvantageEngine& engine, Handle table, const std::string& path,
                 std::size_t record_length)
        : engine_(engine), table_(table), path_(path), image_(record_length) {}

    // The client's functions and its status check, for calls that do not move.
    const ClientLibrary& client() { return engine_.client(); }
    void require(Status status, const char* operation);

    // The handle is gone, and is not to be asked about any more.
    void forget_table() noexcept { table_ = 0; }

    // The moves are false at either end, where there is no record. An `object` is an order, or the
    // table for physical order.
    bool top(Handle object);
    bool bottom(Handle object);
    bool skip(Handle object, I32 count);
    bool seek(Handle order, const std::string& key, U16 type);
    // False, and nowhere known, if no key begins with `key`.
    bool seek_last(Handle order, const std::string& key, U16 type);
    // Makes the client stand on a record, with the content that the record has now if anything may
    // have changed it. False when there is no such record.
    bool go_to(RecordNumber record);

    // The record on which the client stands; 0 for none.
    RecordNumber at() const { return at_ == kUnknown ? 0 : at_; }
    // Its bytes. Valid until the next call.
    record::RecordView record();
    // Its bytes as the client has them now, changes that are not written included.
    Bytes image();

    // Others may have changed the record since the client read it. A locked one is not refreshed by
    // the client.
    void doubt_record(bool locked);
    // The record's keys may have changed, and with them the client's place in its orders.
    void doubt_place();
    // Nothing is known of where the client stands.
    void lose_place();
    // The client stands on a record that it has just appended.
    void appended(RecordNumber record);

  private:
    static constexpr RecordNumber kUnknown = std::numeric_limits<RecordNumber>::max();
    enum class Doubt { kNone, kRefresh, kLeave };

    bool moved(Status status, const char* operation, bool backward = false);
    void leave();
    bool refresh();

    AdvantageEngine& engine_;
    Handle table_;
    const std::string& path_;
    RecordNumber at_ = kUnknown;
    Doubt doubt_ = Doubt::kLeave;
    std::vector<Byte> image_;
    bool image_known_ = false;
};

}  // namespace brenik::advantage
