// Raising errors. The floor is one vsnprintf into a thread-local buffer with the same template and arguments.

#include <benchmark/benchmark.h>
#include <stdarg.h>
#include <stdio.h>

#include <stdexcept>
#include <string>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_ABSL
#include <absl/status/status.h>
#include <absl/strings/str_format.h>
#endif

namespace {

thread_local char gBuffer[COD_ERROR_STACK_TEXT_SIZE];

[[gnu::noinline]] void formatOnly(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    vsnprintf(gBuffer, sizeof gBuffer, fmt, args);
    va_end(args);
}

void floorFormat(benchmark::State &state) {
    CodUint32 index = 0;
    for (auto _ : state) {
        formatOnly(ERR_CMM_OUT_OF_INDEX_FMT, index++, 0u, 1000u);
        benchmark::DoNotOptimize(gBuffer);
    }
}
BENCHMARK(floorFormat)->Name("raise one formatted error/peer: vsnprintf (floor)");

void ours(benchmark::State &state) {
    CodUint32 index = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(codRaise(ERR_CMM_OUT_OF_INDEX, index++, 0u, 1000u));
        codCleanError();
    }
}
BENCHMARK(ours)->Name("raise one formatted error/ours");

#ifdef VEL_INFRA_WITH_ABSL
void abslStatus(benchmark::State &state) {
    CodUint32 index = 0;
    for (auto _ : state) {
        absl::Status status(absl::StatusCode::kOutOfRange, absl::StrFormat("index %u is out of [%u, %u]", index++, 0u, 1000u));
        benchmark::DoNotOptimize(status);
    }
}
BENCHMARK(abslStatus)->Name("raise one formatted error/peer: absl::Status");
#endif

[[gnu::noinline]] void throwFormatted(CodUint32 index) {
    char text[128];
    snprintf(text, sizeof text, ERR_CMM_OUT_OF_INDEX_FMT, index, 0u, 1000u);
    throw std::out_of_range(text);
}

void throwCatch(benchmark::State &state) {
    CodUint32 index = 0;
    for (auto _ : state) {
        try {
            throwFormatted(index++);
        } catch (const std::exception &error) {
            benchmark::DoNotOptimize(error.what());
        }
    }
}
BENCHMARK(throwCatch)->Name("raise one formatted error/peer: throw and catch");

void setErrorCode(benchmark::State &state) {
    for (auto _ : state) {
        codSetErrorCode(ERR_CMM_DIVISION_BY_ZERO);
    }
}
BENCHMARK(setErrorCode)->Name("codSetErrorCode/ours");

void store(benchmark::State &state) {
    thread_local CodError code;
    for (auto _ : state) {
        code = ERR_CMM_DIVISION_BY_ZERO;
        benchmark::DoNotOptimize(code);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(store)->Name("codSetErrorCode/peer: a thread-local store");

}  // namespace
