// ZOLPSI: readers of the kernel's pressure stall information (PSI), the share of recent wall
// time in which at least one task was stalled on a resource.
//
// Each reader returns the ten-second average of the "some" line of one kernel file, as a
// percentage as the kernel prints it (0.00 to 100.00):
//   GetPsiCpuSomeAvg10   "/proc/pressure/cpu"
//   GetPsiMemSomeAvg10   "/proc/pressure/memory"
//   GetPsiIoSomeAvg10    "/proc/pressure/io"
// 0 stands both for no pressure and for a file that could not be read (a kernel without PSI);
// a failure is reported only by level-I log lines naming the function and the object.
//
// The class holds no state: its object serves only to tag the log lines with an address. Any
// thread may call any function at any time; every call opens, reads and closes its file.
#pragma once

#include "zolexport.h"

class ZOL_EXPORT ZOLPSI {
public:
    // Finds the first line of the file at `path` that contains `keyword` (a plain,
    // case-sensitive substring) and stores in `*value` the number that directly follows it
    // (as strtod reads it; text that is not a number gives 0). True when such a line was
    // found; `*value` is written only then. A null `path` fails; `keyword` and `value` must
    // not be null.
    bool GetDataByPathAndKeyword(const char* path, const char* keyword, float* value);

    float GetPsiCpuSomeAvg10();
    float GetPsiMemSomeAvg10();
    float GetPsiIoSomeAvg10();
};
