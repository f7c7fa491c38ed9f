// For test programs that link tests/common/failing_new.cpp: its replacement operator new fails
// whenever this function, which the test program defines, returns true.
#pragma once

namespace zoltest {

bool AllocationFails();

}  // namespace zoltest
