// Allocation of working memory: batches of 1,000 requests of 16 to 256 bytes, then everything given back.

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <array>
#include <memory_resource>
#include <random>
#include <vector>

#include <vel_infra/vel_infra.h>

namespace {

constexpr int kBatch = 1000;
constexpr CodUint32 kBlock = 64 * 1024;

const std::array<CodUint32, kBatch> &sizes() {
    static const std::array<CodUint32, kBatch> gSizes = [] {
        std::array<CodUint32, kBatch> result;
        std::mt19937 random(42);
        for (CodUint32 &size : result) {
            size = std::uniform_int_distribution<CodUint32>(16, 256)(random);
        }
        return result;
    }();
    return gSizes;
}

void countItems(benchmark::State &state) {
    state.counters["ns_per_item"] =
        benchmark::Counter(static_cast<double>(kBatch) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The least that an allocator does whose state outlives a call: load the position, round up, compare with the end, store the position.
// The memory is one piece large enough for all.
struct Bump {
    char *next;
    char *end;
};

void bump(benchmark::State &state) {
    std::vector<char> memory(size_t{kBatch} * 256 + 8);
    Bump object{memory.data(), memory.data() + memory.size()};
    Bump *bump = &object;
    benchmark::DoNotOptimize(bump);
    for (auto _ : state) {
        for (const CodUint32 size : sizes()) {
            const size_t rounded = (size_t{size} + 7) & ~size_t{7};
            if (rounded > static_cast<size_t>(bump->end - bump->next)) {
                abort();
            }
            void *result = bump->next;
            bump->next += rounded;
            benchmark::DoNotOptimize(result);
        }
        bump->next = memory.data();
    }
    countItems(state);
}
BENCHMARK(bump)->Name("allocate from a context/peer: bump pointer (floor)");

template <class Allocate>
void contextLoop(benchmark::State &state, Allocate allocate) {
    MemoryPool pool;
    MemoryContext *context = nullptr;
    void *mark = nullptr;
    if (mpoolCreate(8, kBlock, MEM_RSRC_OTHERS, "bench", &pool) != COD_SUCCESS || mctxCreate(&pool, &context) != COD_SUCCESS ||
        mctxAlloc(context, 8, &mark) != COD_SUCCESS) {
        return state.SkipWithError("no context");
    }
    for (auto _ : state) {
        for (const CodUint32 size : sizes()) {
            void *result;
            if (allocate(context, size, &result) != COD_SUCCESS) {
                abort();
            }
            benchmark::DoNotOptimize(result);
        }
        mctxTruncate(context, mark);
    }
    countItems(state);
    mctxDestroy(context);
    mpoolDestroy(&pool);
}

void context(benchmark::State &state) {
    contextLoop(state, [](MemoryContext *context, CodUint32 size, void **result) { return mctxAlloc(context, size, result); });
}
BENCHMARK(context)->Name("allocate from a context/ours");

// As a caller without the inline path has it.
void exported(benchmark::State &state) {
    auto *volatile function = &mctxAllocExported;
    contextLoop(state, [call = function](MemoryContext *context, CodUint32 size, void **result) { return call(context, size, result); });
}
BENCHMARK(exported)->Name("allocate from a context, exported call/ours");

void monotonic(benchmark::State &state) {
    std::vector<std::byte> memory(size_t{kBatch} * 256 + 4096);
    for (auto _ : state) {
        std::pmr::monotonic_buffer_resource resource(memory.data(), memory.size());
        for (const CodUint32 size : sizes()) {
            benchmark::DoNotOptimize(resource.allocate(size, 8));
        }
    }
    countItems(state);
}
BENCHMARK(monotonic)->Name("allocate from a context/peer: std::pmr::monotonic_buffer_resource");

void mallocFree(benchmark::State &state) {
    std::vector<void *> taken(kBatch);
    for (auto _ : state) {
        for (size_t i = 0; i < kBatch; i++) {
            taken[i] = malloc(sizes()[i]);
            benchmark::DoNotOptimize(taken[i]);
        }
        for (void *memory : taken) {
            free(memory);
        }
    }
    countItems(state);
}
BENCHMARK(mallocFree)->Name("allocate from a context/peer: malloc and free");

}  // namespace
