// The record of the system table that holds the counters and settings.
//
// A host may select any record of the system table. What the library reads there is that of the
// record which start-up found, so it is made current wherever the library looks, and the host's
// record afterwards.

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
