// Fatal conditions: the few states the library refuses to continue from (an overflowing size
// computation, an index past a declared bound, a client count that would wrap). Each is an
// explicit check that writes one line to the Android log at fatal priority and aborts the
// process; none is left to a compiler trap or to undefined behaviour. Internal header.
#pragma once

#include <cstdint>
#include <type_traits>

namespace zol {

// Writes "<file>:<line> fatal: <what>" under the tag "ZOL" and aborts.
[[noreturn]] void FatalError(const char* file, int line, const char* what);

}  // namespace zol

#define ZOL_FATAL(what) ::zol::FatalError(__FILE_NAME__, __LINE__, (what))

// Aborts with the condition's text when `cond` holds.
#define ZOL_FATAL_IF(cond)                   \
    do {                                     \
        if (__builtin_expect(!!(cond), 0)) { \
            ZOL_FATAL(#cond);                \
        }                                    \
    } while (0)

namespace zol {

// a * b, a + b and a - b in T; a result that T cannot hold is fatal.
template <typename T>
inline T CheckedMul(T a, T b, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    static_assert(std::is_integral<T>::value, "integers only");
    T out;
    if (__builtin_mul_overflow(a, b, &out)) {
        FatalError(file, line, "integer overflow in multiplication");
    }
    return out;
}

template <typename T>
inline T CheckedAdd(T a, T b, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    static_assert(std::is_integral<T>::value, "integers only");
    T out;
    if (__builtin_add_overflow(a, b, &out)) {
        FatalError(file, line, "integer overflow in addition");
    }
    return out;
}

template <typename T>
inline T CheckedSub(T a, T b, const char* file = __builtin_FILE(), int line = __builtin_LINE()) {
    static_assert(std::is_integral<T>::value, "integers only");
    T out;
    if (__builtin_sub_overflow(a, b, &out)) {
        FatalError(file, line, "integer overflow in subtraction");
    }
    return out;
}

// An index into an array of `bound` elements; an index at or past the bound is fatal.
inline unsigned CheckedIndex(unsigned index, unsigned bound, const char* file = __builtin_FILE(),
                             int line = __builtin_LINE()) {
    if (index >= bound) {
        FatalError(file, line, "index past its bound");
    }
    return index;
}

}  // namespace zol
