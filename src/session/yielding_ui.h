// The user interface of a session: the one of the process, with the engine's call suspended while
// something is on the screen.
//
// The host's windows are painted and its timers run meanwhile. That code of the host may use the
// client library too, and must find its own settings there.

#pragma once

#include <string>

#include "engine/work_areas.h"
#include "platform/ui.h"

namespace brenik {

class YieldingUserInterface : public platform::UserInterface {
  public:
    YieldingUserInterface(platform::UserInterface& shown, WorkAreas& areas)
        : shown_(shown), areas_(areas) {}

    void message_box(const std::string& text, const std::string& title,
                     platform::Icon icon) override {
        const WorkAreas::HostTurn turn(areas_);
        shown_.message_box(text, title, icon);
    }
    void notice(const std::string& text, const std::string& title, int duration_ms) override {
        const WorkAreas::HostTurn turn(areas_);
        shown_.notice(text, title, duration_ms);
    }
    void beep() override { shown_.beep(); }
    void set_cursor(platform::Cursor cursor) override { shown_.set_cursor(cursor); }

  private:
    platform::UserInterface& shown_;
    WorkAreas& areas_;
};

}  // namespace brenik
