// Where the process chooses what its session stands on.

#include "BrenikDB/process_session.h"

#include <memory>

#include "engine/local/local_engine.h"
#include "platform/process.h"

namespace brenik {

namespace {

// Members in the order in which the session needs them; it is closed before what it stands on.
struct Process {
    explicit Process(Process* parents) : inherited(parents) {
        if (parents && parents->session.is_begun()) session.inherit(parents->session);
    }

    std::unique_ptr<platform::UserInterface> ui = platform::make_user_interface();
    Session session{std::make_unique<local::LocalEngine>, platform::system_clock(), *ui};
    unsigned generation = platform::process_generation();
    // What a fork took along. It is never closed: what it would still write is the parent's to
    // write, and another thread of the parent may have been changing it at that moment.
    Process* inherited;
};

Process* latest = nullptr;

bool is_own(const Process* process) {
    return process && process->generation == platform::process_generation();
}

struct Closing {
    ~Closing() {
        if (!is_own(latest)) return;
        const std::unique_ptr<Process> own(latest);
        latest = own->inherited;
    }
};

}  // namespace

Session& process_session() {
    if (!is_own(latest)) latest = new Process(latest);
    static const Closing at_the_end;
    return latest->session;
}

}  // namespace brenik
