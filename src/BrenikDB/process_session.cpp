// Chooses the engine, clock and user interface of the process's session.

#include "BrenikDB/process_session.h"

#include <memory>

#include "data/ads.h"
#include "engine/choice/choose_engine.h"
#include "platform/process.h"

namespace brenik {

namespace {

// The session is destroyed before the members that it uses.
struct Process {
    explicit Process(Process* parents) : inherited(parents) {
        RDDINIT(session);
        if (parents && parents->session.is_begun()) session.inherit(parents->session);
    }

    std::unique_ptr<platform::UserInterface> ui = platform::make_user_interface();
    Session session{choose_engine, platform::system_clock(), *ui};
    unsigned generation = platform::process_generation();
    // The process object copied by a fork. It is never closed: its pending writes belong to the
    // parent, and another thread of the parent may have been changing it during the fork.
    Process* inherited;
};

Process* latest = nullptr;

bool is_own(const Process* process) {
    return process && process->generation == platform::process_generation();
}

struct Closing {
    ~Closing() {
        if (!is_own(latest) || !latest->session.may_close_at_unload()) return;
        latest->session.areas.close_all();
        if (!latest->session.may_end_at_unload()) return;
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
