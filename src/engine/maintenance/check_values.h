// Finds values that no program can read back: asterisks, impossible dates, texts in number fields.

#pragma once

#include <functional>
#include <vector>

#include "engine/maintenance/reporter.h"
#include "engine/record/stored_value.h"

namespace brenik::maintenance {

class ValueCheck {
  public:
    // `read` returns a record's bytes as they are now; empty if there is no such record.
    using Read = std::function<std::vector<Byte>(RecordNumber record)>;

    ValueCheck(const record::TableLayout& layout, Read read, const Reporter& report);

    // Notes each unreadable value of a record that is not deleted. Such a value harms no file, and
    // some programs write asterisks on purpose.
    void check(const record::RecordView& record) const;

  private:
    const record::TableLayout& layout_;
    Read read_;
    const Reporter& report_;
    std::vector<const record::Field*> fields_;  // those that can hold such values
};

}  // namespace brenik::maintenance
