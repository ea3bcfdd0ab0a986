// Which filters a server may evaluate, too.

#pragma once

#include <string>

#include "engine/record/table_layout.h"

namespace brenik::advantage {

// True for a filter that surely shows a server at least the records that it shows here: comparisons
// of a number field with a number, and of a text field with its beginning, joined by .AND. and .OR.
// What depends on collations, functions, aliases, blank or NULL values may differ at the server.
// REQUIRES: the text compiles as a filter over the layout.
bool means_the_same_at_server(const std::string& text, const record::TableLayout& layout);

}  // namespace brenik::advantage
