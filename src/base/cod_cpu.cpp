#include "base/cod_cpu.h"

#include <cpuid.h>

#include <atomic>

namespace cod {
namespace {

// XCR0: the operating system saves the 128-bit (bit 1) and 256-bit (bit 2) registers at a context switch.
constexpr unsigned kXcr0Ymm = 0x6;

unsigned readXcr0() {
    unsigned low = 0;
    unsigned high = 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

bool detectAvx2() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx) || (ecx & bit_OSXSAVE) == 0 || (readXcr0() & kXcr0Ymm) != kXcr0Ymm) {
        return false;
    }
    return __get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx) && (ebx & bit_AVX2) != 0;
}

enum : unsigned char { kUnknown = 0, kNo = 1, kYes = 2 };
constinit std::atomic<unsigned char> gAvx2{kUnknown};

}  // namespace

CpuFeatures cpuFeatures() {
    unsigned char known = gAvx2.load(std::memory_order_relaxed);
    if (known == kUnknown) {
        known = detectAvx2() ? kYes : kNo;
        gAvx2.store(known, std::memory_order_relaxed);
    }
    return {.avx2 = known == kYes};
}

}  // namespace cod
