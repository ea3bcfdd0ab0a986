// Moves the client and keeps account of where it stands.

#include "engine/advantage/client_cursor.h"

#include <algorithm>

#include "engine/advantage/assumptions.h"
#include "util/runtime.h"

namespace brenik::advantage {

void ClientCursor::require(Status status, const char* operation) {
    if (status == 0) return;
    lose_place();
    engine_.require(status, operation, path_, table_);
}

// Before the first record, the client stands on no record or still on the first.
bool ClientCursor::moved(Status status, const char* operation, bool backward) {
    lose_place();
    require(status, operation);
    U16 at_end = 0;
    require(backward ? client().AdsAtBOF(table_, &at_end) : client().AdsAtEOF(table_, &at_end),
            operation);
    if (at_end != 0) {
        if (!backward) at_ = 0;
        return false;
    }
    U32 record = 0;
    require(client().AdsGetRecordNum(table_, kIgnoreFilters, &record), operation);
    at_ = record;
    doubt_ = Doubt::kNone;
    return record != 0;
}

bool ClientCursor::top(Handle object) { return moved(client().AdsGotoTop(object), "go top"); }

bool ClientCursor::bottom(Handle object) {
    return moved(client().AdsGotoBottom(object), "go bottom");
}

bool ClientCursor::skip(Handle object, I32 count) {
    return moved(client().AdsSkip(object, count), "skip", count < 0);
}

bool ClientCursor::seek(Handle order, const std::string& key, U16 type) {
    U16 found = 0;
    return moved(
        client().AdsSeek(order, key.data(), static_cast<U16>(key.size()), type, kSoftSeek, &found),
        "seek");
}

bool ClientCursor::seek_last(Handle order, const std::string& key, U16 type) {
    U16 found = 0;
    const Status status =
        client().AdsSeekLast(order, key.data(), static_cast<U16>(key.size()), type, &found);
    return moved(status, "seek") && found != 0;
}

// To the end of the table, where the client has no record.
void ClientCursor::leave() {
    require(client().AdsGotoBottom(table_), "go bottom");
    require(client().AdsSkip(table_, 1), "skip");
}

bool ClientCursor::refresh() {
    require(client().AdsRefreshRecord(table_), "refresh");
    doubt_ = Doubt::kNone;
    image_known_ = false;
    return true;
}

bool ClientCursor::go_to(RecordNumber record) {
    if (at_ == record && doubt_ == Doubt::kNone) return record != 0;
    if (at_ == record && doubt_ == Doubt::kRefresh) return refresh();
    if (doubt_ != Doubt::kNone && (at_ == record || at_ == kUnknown)) leave();
    const Status status = client().AdsGotoRecord(table_, record);
    lose_place();
    if (status != 0) {
        if (!engine_.answers(table_)) require(status, "go to");
        return false;
    }
    U16 at_end = 0;
    require(client().AdsAtEOF(table_, &at_end), "go to");
    if (at_end != 0) return false;
    at_ = record;
    doubt_ = Doubt::kNone;
    return true;
}

record::RecordView ClientCursor::record() {
    if (!image_known_) image();
    return {image_, at()};
}

Bytes ClientCursor::image() {
    auto size = static_cast<U32>(image_.size());
    image_known_ = false;
    require(client().AdsGetRecord(table_, image_.data(), &size), "read");
    if (size != image_.size()) {
        throw EngineFault(FaultCode::kDamagedFile, "read",
                          path_ + ": record " + std::to_string(at()) + " has " +
                              counted(size, "byte") + " in the server's library, not " +
                              std::to_string(image_.size()) + " as in the header");
    }
    image_known_ = true;
    return image_;
}

void ClientCursor::doubt_record(bool locked) {
    if (doubt_ != Doubt::kLeave) doubt_ = locked ? Doubt::kLeave : Doubt::kRefresh;
    image_known_ = false;
}

void ClientCursor::doubt_place() {
    doubt_ = Doubt::kLeave;
    image_known_ = false;
}

void ClientCursor::lose_place() {
    at_ = kUnknown;
    doubt_place();
}

void ClientCursor::appended(RecordNumber record) {
    at_ = record;
    doubt_ = Doubt::kNone;
    image_known_ = false;
}

}  // namespace brenik::advantage
