// Another work area made current for a while.

#pragma once

#include "engine/work_areas.h"

namespace brenik {

// Selects an area for as long as the object lives, then the area that was current before: also when
// a fault ends the scope.
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
