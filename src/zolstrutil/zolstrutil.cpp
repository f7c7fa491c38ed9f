#include "zolstrutil.h"

#include <cstdint>
#include <cstring>

namespace {

// 10^19 is the largest power of ten a 64-bit unsigned divisor can hold.
constexpr int kMaxFractionDigits = 19;

}  // namespace

void ZOLStrUtil::ToLowerCaseStr(char* str) {
    const uint32_t length = static_cast<uint32_t>(std::strlen(str));
    for (uint32_t i = 0; i < length; ++i) {
        if (str[i] >= 'A' && str[i] <= 'Z') {
            str[i] = static_cast<char>(str[i] + 32);
        }
    }
}

float ZOLStrUtil::StrToFloat(const char* str) {
    const uint32_t length = static_cast<uint32_t>(std::strlen(str));
    float result = 0.0f;
    bool fraction = false;
    uint64_t divisor = 1;
    int fractionDigits = 0;
    for (uint32_t i = 0; i < length; ++i) {
        const char c = str[i];
        if (c >= '0' && c <= '9') {
            const float digit = static_cast<float>(c - '0');
            if (!fraction) {
                result = result * 10.0f + digit;
            } else if (fractionDigits < kMaxFractionDigits) {
                // A 20th digit would overflow the divisor; such digits are dropped instead.
                ++fractionDigits;
                divisor *= 10;
                result += digit / static_cast<float>(divisor);
            }
        } else if (c == '.') {
            fraction = !fraction;
            divisor = 1;
            fractionDigits = 0;
        }
    }
    return result;
}
