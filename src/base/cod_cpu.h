#pragma once

// Which vector instructions this processor and operating system offer. Asked of the processor at first use and kept; the
// compiler's own __builtin_cpu_supports would bring an initialiser that runs when the library is loaded.

namespace cod {

struct CpuFeatures {
    bool avx2;
    bool avx512vbmi;   // with F, BW and VL
    bool avx512vbmi2;  // with avx512vbmi
};

// Any thread.
CpuFeatures cpuFeatures();

}  // namespace cod
