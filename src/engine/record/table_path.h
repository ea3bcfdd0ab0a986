// The names of the files that make up a table.

#pragma once

#include <string>

namespace brenik::record {

// The table's own file: a name without extension means ".DBF".
std::string table_path(const std::string& name);
// The file with the table's base name and this extension, in the same folder.
std::string sibling_path(const std::string& table_path, const std::string& extension);
// The index file that a name means: the table's own if it is a table's name or has no extension.
std::string index_path(const std::string& name);

}  // namespace brenik::record
