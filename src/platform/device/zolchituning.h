// ChiTuningModeParameter on a device: the camera platform's own definition. (The host build
// uses src/platform/include/zolchituning.h, which lays the record out the same way.)
#pragma once

#include <chituningmodeparam.h>
