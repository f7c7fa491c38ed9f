// Host stand-in for the platform's hardware buffer handle: an opaque type. On a device a
// graphic buffer and its AHardwareBuffer are the same object seen through two types.
#pragma once

typedef struct AHardwareBuffer AHardwareBuffer;
