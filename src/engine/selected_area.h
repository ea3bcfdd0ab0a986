// Makes another work area current for the duration of a scope.

#pragma once

#include "engine/work_areas.h"

namespace brenik {

// Selects an area while the object lives, then the previously current area again, even if a fault
// ends the scope.
class SelectedArea {
  public:
    SelectedArea(WorkAreas& areas, int area) : areas_(areas), previous_(areas.current()) {
        areas_.select(area);
    }
    ~SelectedArea() { areas_.select(previous_); }
    SelectedArea(const SelectedArea&) = delete;
    SelectedArea& operator=(const SelectedArea&) = delete;

  private:
    WorkAreas& areas_;
    int previous_;
};

}  // namespace brenik
