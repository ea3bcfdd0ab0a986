// Return codes of the operations. The public header gives hosts the same numbers.

#pragma once

namespace brenik {

// persistent: hosts compare with these numbers.
enum ReturnCode : int {
    kSuccess = 0,
    kDataFilesMissing = 1,
    kIndexFilesMissing = 2,
    kSystemTableNotOpened = 3,
    kTableNotOpened = 4,
    kBadTable = 5,
    kBadRecord = 6,
    kUnknownField = 7,
    kAdditionNotStamped = 8,
    kEditNotStamped = 9,
    kDeletionNotStamped = 10,
    kNotRegistered = 11,
    kLockRefused = 12,
    kNotCurrentArea = 13,
    kStoppedByFault = 14,
    kAlreadyShutDown = 15,
    kIdentifierNotFound = 16,
    kAppendFailed = 17,
    kDuplicateCode = 18,
    kKeyNotFound = 19,
};

}  // namespace brenik
