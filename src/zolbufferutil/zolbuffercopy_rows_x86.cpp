// Strided row copy on x86-64. Two images of one size usually sit at the same page offset (pool
// blocks are page-aligned), so with a 2 KiB stride every destination row has the same low 12
// address bits as the source rows two further on. memcpy's vector loop then loads from
// addresses that seem to match stores still queued for the row before last (4K aliasing), and
// a 1080p NV21 copy takes up to twice as long as one memcpy of its bytes. The CPU's string
// copy (`rep movsb` with the enhanced-string feature) does not stall on it and copies such rows
// as fast as a single memcpy of the whole payload, whatever the offsets. Short rows stay with
// memcpy: there the string instruction's start-up costs more than the row.
#include <cpuid.h>

#include <cstring>

#include "zolbufferutil/internal/zolbuffercopy_rows.h"

namespace zol::buffercopy {
namespace {

// Below this a row is copied with memcpy (measured: 512-byte rows slower with the string
// copy, 768 bytes and more level or faster).
constexpr size_t kStringCopyMinRow = 1024;

bool HasEnhancedStringCopy() {
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    // Leaf 7, sub-leaf 0, EBX bit 9: enhanced REP MOVSB/STOSB.
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) != 0 && (ebx & (1u << 9)) != 0;
}

void StringCopy(unsigned char* dst, const unsigned char* src, size_t bytes) {
    asm volatile("rep movsb" : "+D"(dst), "+S"(src), "+c"(bytes) : : "memory");
}

}  // namespace

void CopyRows(unsigned char* dst, const unsigned char* src, size_t rowBytes, size_t rows,
              ptrdiff_t dstStride, ptrdiff_t srcStride) {
    static const bool stringCopy = HasEnhancedStringCopy();
    if (!stringCopy || rowBytes < kStringCopyMinRow) {
        for (size_t r = 0; r < rows; ++r) {
            const auto at = static_cast<ptrdiff_t>(r);
            memcpy(dst + at * dstStride, src + at * srcStride, rowBytes);
        }
        return;
    }
    for (size_t r = 0; r < rows; ++r) {
        const auto at = static_cast<ptrdiff_t>(r);
        StringCopy(dst + at * dstStride, src + at * srcStride, rowBytes);
    }
}

}  // namespace zol::buffercopy
