// The record of the system table that holds the counters and settings.
//
// A host may select any record of the system table, but the library reads and writes the one that
// start-up found. A SystemRecord selects that record for its lifetime and then restores the host's.

#pragma once

#include "session/session.h"

namespace brenik {

class SystemRecord {
  public:
    explicit SystemRecord(Session& session);
    ~SystemRecord();
    SystemRecord(const SystemRecord&) = delete;
    SystemRecord& operator=(const SystemRecord&) = delete;

  private:
    Table* moved_ = nullptr;
    RecordNumber before_ = 0;
};

}  // namespace brenik
