// Copies a record to a buffer and back.

#include "data/scatgat.h"

#include <algorithm>

namespace brenik {

ArrayReference SCATGAT(Session& session) {
    Table& table = session.areas.table("SCATGAT");
    auto buffer = std::make_shared<Array>(table.fields().size());
    for (std::size_t i = 0; i < buffer->size(); ++i) (*buffer)[i] = table.field_get(i + 1);
    return buffer;
}

ArrayReference SCATGAT(Session& session, const ArrayReference& buffer, bool stamp) {
    WorkAreas& areas = session.areas;
    Table& table = areas.table("SCATGAT");
    // The buffer may come from a wider table.
    const std::size_t count = std::min(buffer->size(), table.fields().size());
    for (std::size_t i = 0; i < count; ++i) table.field_put(i + 1, (*buffer)[i]);
    if (stamp) {
        areas.set_field(areas.current(), "ENTRY", session.today());
        areas.set_field(areas.current(), "OPERATOR", session.variables.MOPERATOR);
    }
    return buffer;
}

}  // namespace brenik
