// Opens tables, and keeps the session-wide settings of the embedded engine.

#include "engine/local/local_engine.h"

#include <new>
#include <utility>

#include "engine/local/local_table.h"
#include "engine/record/table_path.h"

namespace brenik::local {
namespace {

constexpr int kSuccess = 0;

}  // namespace

LocalEngine::~LocalEngine() = default;

std::string LocalEngine::version() const { return BRENIK_VERSION; }

OpenAnswer LocalEngine::open(const std::string& path, TableSharing sharing, int controlling) {
    const auto open = [&] {
        return LocalTable::open(*this, record::table_path(path),
                                sharing == TableSharing::kExclusive ? platform::Sharing::kExclusive
                                                                    : platform::Sharing::kShared,
                                controlling);
    };
    try {
        try {
            return open();
        } catch (const platform::ConnectionLost& loss) {
            if (loss.unreachable()) throw;
            return open();
        }
    } catch (const locks::Refused& refusal) {
        return refusal.refusal();
    } catch (const EngineFault& fault) {
        if (!is_damage(fault)) throw;
        return damaged(fault);
    }
}

void LocalEngine::open_part(const std::function<void()>& open) {
    if (!tell_unavailable_) return open();
    try {
        open();
    } catch (const locks::Refused& refusal) {
        tell_unavailable_(refusal.refusal());
    } catch (const platform::ConnectionLost&) {
        throw;
    } catch (const EngineFault& fault) {
        tell_unavailable_(damaged(fault));
    }
}

int LocalEngine::set_server_type(int type) {
    if (type == kLocalServer) return kSuccess;
    return note(EngineFault(FaultCode::kUnsupported, "server type",
                            "the embedded engine opens files itself and uses no database server"));
}

int LocalEngine::server_loaded(const std::string&) { return kLocalServer; }

bool LocalEngine::set_proprietary_locking(bool on) {
    return std::exchange(proprietary_locking_, on);
}

bool LocalEngine::set_deleted_hidden(bool on) { return std::exchange(deleted_hidden_, on); }

int LocalEngine::note(const std::exception& fault) noexcept {
    const auto* known = dynamic_cast<const EngineFault*>(&fault);
    try {
        last_error_ = fault.what();
    } catch (const std::bad_alloc&) {
        last_error_.clear();
    }
    return static_cast<int>(known ? known->code() : FaultCode::kInputOutput);
}

template <class Step>
int LocalEngine::for_each_table(Step step) noexcept {
    int first = kSuccess;
    std::string about_first;
    for (LocalTable* table : tables_) {
        try {
            step(*table);
        } catch (const std::exception& fault) {
            const int status = note(fault);
            if (first != kSuccess) continue;
            first = status;
            about_first.swap(last_error_);
        }
    }
    if (first != kSuccess) last_error_.swap(about_first);
    return first;
}

int LocalEngine::write_all_records() {
    return for_each_table([](LocalTable& table) { table.commit(); });
}

int LocalEngine::close_all_tables() {
    return for_each_table([](LocalTable& table) { table.shut(); });
}

}  // namespace brenik::local
