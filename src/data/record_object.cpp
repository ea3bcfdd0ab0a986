// A record copied from its table.

#include "data/record_object.h"

#include "data/scatgat.h"
#include "engine/selected_area.h"

namespace brenik {

BufferedRecord::BufferedRecord(Session& session, int area) : session_(session), area_(area) {
    const SelectedArea selected(session.areas, area);
    values_ = SCATGAT(session);
    end_of_file_ = session.areas.end_of_file();
}

std::size_t BufferedRecord::known_position(std::string_view name) const {
    const std::size_t position = FIELDPOS(name);
    if (position != 0 && position <= values_->size()) return position;
    throw EngineFault(FaultCode::kUnknownName, std::string(name),
                      "the record object of work area " + std::to_string(area_) + " has no field " +
                          std::string(name));
}

Value BufferedRecord::field(std::string_view name) const {
    return (*values_)[known_position(name) - 1];
}

void BufferedRecord::assign(std::string_view name, const Value& value) {
    (*values_)[known_position(name) - 1] = value;
}

}  // namespace brenik
