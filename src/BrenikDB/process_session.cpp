// Where the process chooses what its session stands on.

#include "BrenikDB/process_session.h"

#include "engine/local/local_engine.h"

#include <memory>

namespace brenik {

namespace {

// Members in the order in which the session needs them; it is closed before what it stands on.
struct Process {
    local::LocalEngine engine;
    std::unique_ptr<platform::UserInterface> ui = platform::make_user_interface();
    Session session{engine, platform::system_clock(), *ui};
};

}  // namespace

Session& process_session() {
    static Process process;
    return process.session;
}

}  // namespace brenik
