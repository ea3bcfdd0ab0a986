// Each routine here is one call of the engine.

#include "data/ads.h"

namespace brenik {

namespace {

// What programs expect where they name no server type.
constexpr int kNoArgument = 999999;

}  // namespace

void RDDINIT(Session& session) { session.areas.register_driver(kDriverName); }

int ADSSETSERVERTYPE(Session& session, std::optional<int> type) {
    return type ? session.areas.engine().set_server_type(*type) : kNoArgument;
}

int ADSISSERVERLOADED(Session& session, const std::string& folder) {
    return session.areas.engine().server_loaded(folder);
}

bool ADSLOCKING(Session& session, bool proprietary) {
    return session.areas.engine().set_proprietary_locking(proprietary);
}

int ADSWRITEALLRECORDS(Session& session) { return session.areas.engine().write_all_records(); }

int ADSREFRESHRECORD(Session& session) {
    return session.areas.table("ADSREFRESHRECORD").refresh_record();
}

int ADSCLOSEALLTABLES(Session& session) { return session.areas.engine().close_all_tables(); }

}  // namespace brenik
