// The twelve exports: each forwards to the bridge, over the one session of the process.

#include "brenikdb.h"

#include "BrenikDB/codes.h"
#include "BrenikDB/process_session.h"
#include "api/bridge.h"

namespace brenik {

namespace {

constexpr Bridge kBridge(process_session);

static_assert(int{kNotRegistered} == BRENIK_NOT_REGISTERED &&
              int{kStoppedByFault} == BRENIK_FAULT && int{kKeyNotFound} == BRENIK_KEY_NOT_FOUND);

}  // namespace

}  // namespace brenik

using brenik::kBridge;

BrenikCode BRENIK_CALL BrenikInitialize(const char* data_path, int trace, int /*reserved*/) {
    return kBridge.initialize(data_path, trace);
}

BrenikCode BrenikShutDown(void) { return kBridge.shut_down(); }

BrenikCode BRENIK_CALL BrenikAddedRecord(int table, int record) {
    return kBridge.added_record(table, record);
}

BrenikCode BRENIK_CALL BrenikDeletedRecord(int table, int record) {
    return kBridge.deleted_record(table, record);
}

BrenikCode BRENIK_CALL BrenikAddStart(int table, int* in_out) {
    return kBridge.add_start(table, in_out);
}

BrenikCode BRENIK_CALL BrenikAddEnd(int table, char* identifier) {
    return kBridge.add_end(table, identifier);
}

BrenikCode BRENIK_CALL BrenikEditStart(int table, const char* identifier, int* in_out) {
    return kBridge.edit_start(table, identifier, in_out);
}

BrenikCode BRENIK_CALL BrenikEditBegin(int table, int record, int* in_out) {
    return kBridge.edit_begin(table, record, in_out);
}

BrenikCode BRENIK_CALL BrenikSetField(int table, int record, const char* field, const char* text) {
    return kBridge.set_field(table, record, field, text);
}

BrenikCode BRENIK_CALL BrenikEditEnd(int table, int record) {
    return kBridge.edit_end(table, record);
}

BrenikCode BRENIK_CALL BrenikGetMyFirm(char* firm) { return kBridge.get_my_firm(firm); }

BrenikCode BRENIK_CALL BrenikGetU_ID(int table, const char* key, char* identifier) {
    return kBridge.get_u_id(table, key, identifier);
}
