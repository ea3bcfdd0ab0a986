// Read-only services: the firm's description, identifiers by key, display names.

#pragma once

#include <optional>
#include <string>

#include "data/record_object.h"
#include "session/session.h"

namespace brenik {

// `firm` receives 23 items of the firm's own contact record, each followed by "|"; the item of a
// missing field is empty. `firm` is empty if LAWSYS.INI names no such record or it cannot be read.
// Restores the current work area, and the order and position of "Names". Always returns kSuccess.
int GetMyFirm(Session& session, std::string& firm);

// `identifier` receives the U_ID of the contact (table 1) with the ID `key`, or of the matter
// (table 3) with the case number `key`, in any case. If nothing is found it is unchanged. The table
// and its searched order stay current.
int GetU_ID(Session& session, int table, const std::string& key, std::string& identifier);

inline constexpr std::size_t kNameWidth = 55;

// "Last, First" in exactly `width` characters, from the current record of a work area ("Names" by
// default) or from a record object, which gives blanks at the end of file.
std::string LASTFIRST(Session& session, std::size_t width = kNameWidth,
                      std::optional<int> area = {});
std::string LASTFIRST(const RecordObject& record, std::size_t width = kNameWidth);

}  // namespace brenik
