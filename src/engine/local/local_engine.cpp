// Opening tables and the session-wide settings of the embedded engine.

#include "engine/local/local_engine.h"

#include <exception>
#include <utility>

#include "engine/local/local_table.h"
#include "engine/local/table_path.h"

namespace brenik::local {
namespace {

constexpr int kSuccess = 0;
constexpr int kNoRemoteServer = 5185;  // a status that callers show to the user, nothing more
constexpr int kLocalServer = 1;

}  // namespace

LocalEngine::~LocalEngine() = default;

std::unique_ptr<Table> LocalEngine::open(const std::string& path, TableSharing sharing) {
    const auto open = [&] {
        return LocalTable::open(*this, table_path(path),
                                sharing == TableSharing::kExclusive ? platform::Sharing::kExclusive
                                                                    : platform::Sharing::kShared);
    };
    try {
        return open();
    } catch (const platform::ConnectionLost& loss) {
        if (loss.unreachable()) throw;
        return open();
    }
}

int LocalEngine::set_server_type(int type) {
    return type == kLocalServer ? kSuccess : kNoRemoteServer;
}

int LocalEngine::server_loaded(const std::string&) { return kLocalServer; }

bool LocalEngine::set_proprietary_locking(bool on) {
    return std::exchange(proprietary_locking_, on);
}

bool LocalEngine::set_deleted_hidden(bool on) {
    return std::exchange(settings_.deleted_hidden, on);
}

void LocalEngine::set_full_durability(bool on) { settings_.full_durability = on; }

int LocalEngine::write_all_records() {
    std::exception_ptr first_fault;
    for (LocalTable* table : tables_) {
        try {
            table->commit();
        } catch (const EngineFault&) {
            if (!first_fault) first_fault = std::current_exception();
        }
    }
    if (first_fault) std::rethrow_exception(first_fault);
    return kSuccess;
}

int LocalEngine::close_all_tables() {
    for (LocalTable* table : tables_) table->shut();
    return kSuccess;
}

}  // namespace brenik::local
