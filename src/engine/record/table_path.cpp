// An extension can begin only after the last separator, because folder names may contain dots.

#include "engine/record/table_path.h"

#include "util/runtime.h"

namespace brenik::record {
namespace {

// Position of the dot of the extension, or npos.
std::size_t extension_dot(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    const std::size_t separator = path.find_last_of("\\/:");
    const bool in_name = separator == std::string::npos || dot > separator;
    return dot != std::string::npos && in_name ? dot : std::string::npos;
}

}  // namespace

std::string table_path(const std::string& name) {
    return extension_dot(name) == std::string::npos ? name + ".DBF" : name;
}

std::string sibling_path(const std::string& table_path, const std::string& extension) {
    return table_path.substr(0, extension_dot(table_path)) + "." + extension;
}

std::string index_path(const std::string& name) {
    const std::size_t dot = extension_dot(name);
    const bool names_index =
        dot != std::string::npos && !equal_ignoring_case(name.substr(dot), ".DBF");
    return names_index ? name : sibling_path(name, "CDX");
}

}  // namespace brenik::record
