// ZOLStrUtil: two small conversions on zero-terminated strings, narrower than the standard
// library's on purpose. Both are stateless; `str` must not be null.
//
// ToLowerCaseStr adds 32 to every byte from 'A' to 'Z' and leaves every other byte (digits,
// punctuation, bytes above 127) alone; the locale is not consulted.
//
// StrToFloat is a lenient decimal reader that never fails, in single precision throughout:
//   - a digit extends the integer part (result * 10 + d), or in a fraction adds d / 10^k for
//     the k-th fraction digit;
//   - a '.' toggles between integer and fraction mode and restarts the fraction digit count,
//     so "1.2.3" gives 15 (the digits after a second point extend 1.2 as an integer);
//   - anything else (signs, blanks, letters, exponent marks, commas) is skipped: the result is
//     never negative, "-2.5" gives 2.5, "1a2" gives 12 and "1e3" gives 13.
// A fraction run keeps its first 19 digits (the most whose divisor 10^k fits the 64-bit
// counter); further digits of the same run are ignored, being far below single precision
// anyway. A point ends the run, and the digits of a later fraction run count again.
#pragma once

#include "zolexport.h"

class ZOL_EXPORT ZOLStrUtil {
public:
    static void ToLowerCaseStr(char* str);
    static float StrToFloat(const char* str);
};
