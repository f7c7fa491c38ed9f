// (Being written.)
#pragma once

#include "zolexport.h"
