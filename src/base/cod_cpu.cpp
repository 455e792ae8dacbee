#include "base/cod_cpu.h"

#include <cpuid.h>

#include <atomic>

namespace cod {
namespace {

// XCR0: the operating system saves the 128-bit (bit 1) and 256-bit (bit 2) registers at a context switch, the mask registers (bit 5), and
// the 512-bit ones (bits 6 and 7).
constexpr unsigned kXcr0Ymm = 0x6;
constexpr unsigned kXcr0Zmm = 0xE6;

unsigned readXcr0() {
    unsigned low = 0;
    unsigned high = 0;
    __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    return low;
}

enum : unsigned char { kKnown = 1, kAvx2 = 2, kAvx512Vbmi = 4, kAvx512Vbmi2 = 8 };

unsigned char detect() {
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    if (!__get_cpuid(1, &eax, &ebx, &ecx, &edx) || (ecx & bit_OSXSAVE) == 0 || !__get_cpuid_count(7, 0, &eax, &ebx, &ecx, &edx)) {
        return kKnown;
    }
    constexpr unsigned kAvx512 = bit_AVX512F | bit_AVX512BW | bit_AVX512VL;
    const unsigned saved = readXcr0();
    unsigned char found = kKnown;
    if ((saved & kXcr0Ymm) == kXcr0Ymm && (ebx & bit_AVX2) != 0) {
        found |= kAvx2;
    }
    if ((saved & kXcr0Zmm) == kXcr0Zmm && (ebx & kAvx512) == kAvx512 && (ecx & bit_AVX512VBMI) != 0) {
        found |= kAvx512Vbmi;
        found |= (ecx & bit_AVX512VBMI2) != 0 ? kAvx512Vbmi2 : 0;
    }
    return found;
}

constinit std::atomic<unsigned char> gFound{0};

}  // namespace

CpuFeatures cpuFeatures() {
    unsigned char found = gFound.load(std::memory_order_relaxed);
    if (found == 0) {
        found = detect();
        gFound.store(found, std::memory_order_relaxed);
    }
    return {.avx2 = (found & kAvx2) != 0, .avx512vbmi = (found & kAvx512Vbmi) != 0, .avx512vbmi2 = (found & kAvx512Vbmi2) != 0};
}

}  // namespace cod
