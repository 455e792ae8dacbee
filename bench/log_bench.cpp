// One message: held back by the level, formatted to the null device, and on the disk when the call returns.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_SPDLOG
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

#define VALUES 4711u, 123456ul, "users.dat", 815
#define MESSAGE "session %u read %lu blocks from %s in %d us", VALUES
constexpr char kLine[] = "2026-11-21 09:05:07.123 4711 [INFO] session 4711 read 123456 blocks from users.dat in 815 us\n";

CodLogLevel gLevel = COD_LOG_LEVEL_ERROR;
CodTimer gTimer;
// From the start, since the C library's locks cost less in a process that never had a second thread.
[[maybe_unused]] const CodResult gStarted = codStartTimer(&gTimer);

void belowLevel(benchmark::State &state, auto line) {
    for (auto _ : state) {
#pragma GCC unroll 32
        for (int i = 0; i < 32; i++) {
            line();
        }
    }
    state.counters["ns_per_item"] = benchmark::Counter(32e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK_CAPTURE(belowLevel, ours, [] { COD_LOG_DEBUG(MESSAGE); })->Name("log line below the level/ours");
BENCHMARK_CAPTURE(belowLevel, peer, [] {
    if (COD_UNLIKELY(COD_LOG_LEVEL_DEBUG >= __atomic_load_n(&gLevel, __ATOMIC_RELAXED))) {
        runLogCallback(COD_LOG_LEVEL_DEBUG, 0, __FILE__, __func__, __LINE__, MESSAGE);
    }
})->Name("log line below the level/peer: a load and a branch (floor)");

void runLog(benchmark::State &state, const char *nameFmt) {
    aniSetRunLogNameFmt(nameFmt, "%s/run-%04u%02u%02u%02u%02u%02u.log");
    if (aniInitRunLog(BENCH_FOLDER, &gTimer) != COD_SUCCESS) {
        state.SkipWithError("no run log");
    }
    for (auto _ : state) {
        runLogCallback(COD_LOG_LEVEL_INFO, 0, __FILE__, __func__, __LINE__, MESSAGE);
    }
    codResetLogCallback();
    aniCloseRunLog();
    unlink(BENCH_FOLDER "/run.log");
}
BENCHMARK_CAPTURE(runLog, null, "%.0s/dev/null")->Name("log line, formatted, to the null device/ours");
BENCHMARK_CAPTURE(runLog, disk, "%s/run.log")->Name("log line to the run log, O_SYNC/ours")->Iterations(400);

void writeOnly(benchmark::State &state, const char *path, int flags) {
    const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | flags, 0600);
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(file, kLine, sizeof kLine - 1));
    }
    close(file);
}
BENCHMARK_CAPTURE(writeOnly, null, "/dev/null", 0)->Name("log line, formatted, to the null device/peer: write of the same bytes (floor)");
BENCHMARK_CAPTURE(writeOnly, disk, BENCH_FOLDER "/lines.log", O_SYNC)
    ->Name("log line to the run log, O_SYNC/peer: write of the same bytes (floor)")
    ->Iterations(400);

#ifdef VEL_INFRA_WITH_SPDLOG
void spdlogLine(benchmark::State &state, spdlog::level::level_enum flushed) {
    spdlog::logger logger("bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>("/dev/null"));
    logger.set_pattern("%Y-%m-%d %H:%M:%S.%e %t [%l] %v");
    logger.flush_on(flushed);
    for (auto _ : state) {
        logger.info("session {} read {} blocks from {} in {} us", VALUES);
    }
}
BENCHMARK_CAPTURE(spdlogLine, each, spdlog::level::trace)->Name("log line, formatted, to the null device/peer: spdlog, flushing");
BENCHMARK_CAPTURE(spdlogLine, none, spdlog::level::off)->Name("log line, formatted, to the null device/peer: spdlog, not flushing");
#endif

}  // namespace
