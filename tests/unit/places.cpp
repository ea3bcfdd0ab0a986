#include "places.h"

namespace brenik {

const char* const kTestData = BRENIK_TEST_DATA;
const char* const kChecker = BRENIK_CHECKER;

}  // namespace brenik
