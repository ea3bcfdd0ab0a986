// A record in the middle of an edit, as an object.
//
// ADD_REC and NEXTUID assign to it what they write to the table; LASTFIRST reads a name from it.

#pragma once

#include <string_view>

#include "session/session.h"

namespace brenik {

class RecordObject {
  public:
    virtual ~RecordObject() = default;
    // Number of the work area with the record's table.
    virtual int NDB() const = 0;
    // Position of a field in that table, counted from 1; 0 if there is none of that name.
    virtual std::size_t FIELDPOS(std::string_view field) const = 0;
    virtual bool end_of_file() const = 0;
    // Read and assign a field of the object's buffer; the table itself is unchanged. An unknown
    // name throws EngineFault(kUnknownName).
    virtual Value field(std::string_view name) const = 0;
    virtual void assign(std::string_view name, const Value& value) = 0;
};

// A record object over a copy of a work area's current record. REQUIRES: the table stays open
// during the object's lifetime.
class BufferedRecord : public RecordObject {
  public:
    BufferedRecord(Session& session, int area);

    int NDB() const override { return area_; }
    std::size_t FIELDPOS(std::string_view field) const override {
        return session_.areas.field_position(area_, field);
    }
    bool end_of_file() const override { return end_of_file_; }
    Value field(std::string_view name) const override;
    void assign(std::string_view name, const Value& value) override;

  private:
    std::size_t known_position(std::string_view name) const;

    Session& session_;
    int area_;
    ArrayReference values_;
    bool end_of_file_;
};

}  // namespace brenik
