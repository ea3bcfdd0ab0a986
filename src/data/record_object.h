// A record that is being edited, as an object that stands for it.
//
// ADD_REC and NEXTUID tell it what they wrote into the table, LASTFIRST asks it for a name.

#pragma once

#include <string_view>

#include "session/session.h"

namespace brenik {

class RecordObject {
  public:
    virtual ~RecordObject() = default;
    // Number of the work area whose table the record belongs to.
    virtual int NDB() const = 0;
    // Position of a field in that table, counted from 1; 0 when it has none of that name.
    virtual std::size_t FIELDPOS(std::string_view field) const = 0;
    virtual bool end_of_file() const = 0;
    // A field of the object's buffer, and its assignment; the table itself stays as it is. An
    // unknown name is EngineFault kUnknownName.
    virtual Value field(std::string_view name) const = 0;
    virtual void assign(std::string_view name, const Value& value) = 0;
};

// A record object over a copy of the record that is current in a work area. The table stays open
// for as long as the object lives.
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
