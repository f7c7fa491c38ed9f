// (Being written.)
#pragma once

#include "zolexport.h"
#include "zolimagebuffer.h"
