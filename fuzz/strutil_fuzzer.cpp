// ZOLStrUtil::ToLowerCaseStr and StrToFloat on arbitrary zero-terminated text.
//
// Checked besides the sanitizers: lower-casing changes exactly the bytes 'A'..'Z' (+32) before
// the terminating zero and nothing after it; the lenient reader never gives a negative number
// or NaN (it knows no sign, and its arithmetic can at most overflow to infinity).
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "fuzz_support.h"
#include "zolstrutil.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    zolfuzz::Setup();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Exactly the input plus a zero, so that a read past the terminator is caught. Embedded
    // zeros end the string early; the bytes after them must stay as they are.
    std::vector<char> text(data, data + size);
    text.push_back('\0');

    const float value = ZOLStrUtil::StrToFloat(text.data());
    if (std::isnan(value) || value < 0.0f) {
        std::fprintf(stderr, "StrToFloat gave %g\n", static_cast<double>(value));
        std::abort();
    }

    const std::vector<char> before = text;
    ZOLStrUtil::ToLowerCaseStr(text.data());
    const size_t len = std::strlen(before.data());
    for (size_t i = 0; i < text.size(); ++i) {
        char want = before[i];
        if (i < len && want >= 'A' && want <= 'Z') {
            want = static_cast<char>(want + 32);
        }
        if (text[i] != want) {
            std::fprintf(stderr, "ToLowerCaseStr changed byte %zu wrongly\n", i);
            std::abort();
        }
    }
    return 0;
}
