// The settings table, as every start-up builds it.

#pragma once

#include <string>
#include <string_view>

#include "session/session.h"

namespace brenik {

// 41 values, numbered from 1. The layout is shared with the practice program; this library never
// reads some of the slots.
ArrayReference default_settings(Date today);

void store_setting(Session& session, Setting slot, Value value);

// A key of section Main of the practice's LAWSYS.INI; empty if absent. `operation` is the caller's
// name for a fault report.
std::string main_setting(Session& session, std::string_view operation, const std::string& key);

}  // namespace brenik
