// The distinct-value estimate at 16,384 registers. Its limit is the hash itself.

#include <benchmark/benchmark.h>
#include <math.h>

#include <random>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

namespace {

constexpr CodUint32 kRegisters = 16384;
constexpr size_t kValues = 4096;

// Random values of one size, back to back.
std::vector<CodUint8> randomBytes(size_t size) {
    std::vector<CodUint8> bytes(size * kValues);
    std::mt19937 random(7);
    for (CodUint8 &byte : bytes) {
        byte = static_cast<CodUint8>(random());
    }
    return bytes;
}

std::vector<CodUint8> filledRegisters(CodUint64 seed) {
    std::vector<CodUint8> registers(kRegisters);
    for (CodUint64 i = 0; i < 1000000; i++) {
        CodUint64 value = i * 0x9E3779B97F4A7C15ULL + seed;
        const CodBytes bytes{reinterpret_cast<CodUint8 *>(&value), sizeof value, 0};
        codHllAdd(registers.data(), kRegisters, &bytes);
    }
    return registers;
}

void add(benchmark::State &state, CodUint32 size) {
    std::vector<CodUint8> bytes = randomBytes(size);
    std::vector<CodUint8> registers = filledRegisters(1);
    size_t i = 0;
    for (auto _ : state) {
        const CodBytes value{bytes.data() + i * size, size, 0};
        codHllAdd(registers.data(), kRegisters, &value);
        i = (i + 1) % kValues;
    }
}
BENCHMARK_CAPTURE(add, bytes8, 8)->Name("estimate: add 8 bytes/ours");
BENCHMARK_CAPTURE(add, bytes32, 32)->Name("estimate: add 32 bytes/ours");

void hashOnly(benchmark::State &state, CodUint32 size) {
    std::vector<CodUint8> bytes = randomBytes(size);
    size_t i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(codMurmurHash64(bytes.data() + i * size, size));
        i = (i + 1) % kValues;
    }
}
BENCHMARK_CAPTURE(hashOnly, bytes8, 8)->Name("estimate: add 8 bytes/peer: the hash alone (floor)");
BENCHMARK_CAPTURE(hashOnly, bytes32, 32)->Name("estimate: add 32 bytes/peer: the hash alone (floor)");

void calculate(benchmark::State &state) {
    const std::vector<CodUint8> registers = filledRegisters(1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(codHllCalculate(registers.data(), kRegisters));
    }
}
BENCHMARK(calculate)->Name("estimate: calculate/ours");

// The sum as it is defined, register by register.
void calculateByPow(benchmark::State &state) {
    const std::vector<CodUint8> registers = filledRegisters(1);
    for (auto _ : state) {
        double sum = 0;
        CodUint32 zeros = 0;
        for (const CodUint8 rank : registers) {
            sum += pow(2.0, -double{static_cast<double>(rank)});
            zeros += rank == 0;
        }
        benchmark::DoNotOptimize(sum);
        benchmark::DoNotOptimize(zeros);
    }
}
BENCHMARK(calculateByPow)->Name("estimate: calculate/peer: sum with pow");

void merge(benchmark::State &state) {
    std::vector<CodUint8> left = filledRegisters(1);
    const std::vector<CodUint8> right = filledRegisters(2);
    for (auto _ : state) {
        codHllMerge(left.data(), right.data(), kRegisters);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(merge)->Name("estimate: merge/ours");

[[gnu::optimize("no-tree-vectorize")]] void mergeBytes(benchmark::State &state) {
    std::vector<CodUint8> left = filledRegisters(1);
    const std::vector<CodUint8> right = filledRegisters(2);
    for (auto _ : state) {
        for (size_t i = 0; i < kRegisters; i++) {
            left[i] = left[i] < right[i] ? right[i] : left[i];
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK(mergeBytes)->Name("estimate: merge/peer: byte by byte");

}  // namespace
