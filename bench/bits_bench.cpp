// Bit packing: means over the widths 1 to 32, of 4,096 random values each in the first cache. The bit vector works value by value on 12
// bits, and so wide are the values that are unpacked to 64 MiB.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <random>
#include <span>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

namespace {

constexpr CodUint32 kValues = 4096;

void packByAccumulator(const auto *values, CodUint32 count, CodUint32 width, CodUint8 *out) {
    CodUint64 bits = 0;
    for (CodUint32 i = 0, used = 0; i < count; i++) {
        bits |= (values[i] & ((1ULL << width) - 1)) << used;
        used += width;
        if (used >= 32) {  // whole blocks leave nothing over
            memcpy(out, &bits, 4);
            out += 4;
            bits >>= 32;
            used -= 32;
        }
    }
}

void unpackByAccumulator(const CodUint8 *packed, CodUint32 width, CodUint32 *values, CodUint32 count) {
    CodUint64 bits = 0;
    for (CodUint32 i = 0, left = 0; i < count; i++, left -= width, bits >>= width) {
        if (left < width) {
            CodUint32 next;
            memcpy(&next, packed, 4);
            packed += 4;
            bits |= CodUint64{next} << left;
            left += 32;
        }
        values[i] = static_cast<CodUint32>(bits & ((1ULL << width) - 1));
    }
}

template <class T>
void unpackByLoop(const CodUint8 *packed, CodUint32 width, T *values, CodUint32 count) {
    for (CodUint64 i = 0, bit = 0; i < count; i++, bit += width) {
        CodUint64 bits;
        memcpy(&bits, packed + bit / 8, 8);
        values[i] = static_cast<T>(bits >> bit % 8 & ((1ULL << width) - 1));
    }
}

template <class T, CodUint32 kSize = kValues>
struct Column {
    explicit Column(CodUint32 bits) : width(bits), middle(1u << (bits - 1)) {
        std::mt19937_64 random(width);
        std::generate(values.begin(), values.end(), [&] { return static_cast<T>(random() >> (64 - width)); });
        packByAccumulator(values.data(), kSize, width, packed.data());
        for (CodUint32 i = 0; i < kSize; i++) {
            belowMiddle[i / 8] = static_cast<CodUint8>(belowMiddle[i / 8] | (values[i] < middle) << i % 8);
        }
    }
    static constexpr CodUint32 kCount = kSize;
    CodUint32 width;
    CodUint32 middle;
    alignas(64) std::array<T, kSize> values;
    alignas(64) std::array<CodUint8, kSize * 4 + 8> packed{};  // 8: a peer loads eight bytes where the last value begins
    alignas(64) std::array<CodUint8, kSize / 8> belowMiddle{};
};
using Narrow = Column<CodUint32>;
using Large = Column<CodUint32, (64 << 20) / sizeof(CodUint32)>;

#define WIDTH(N) N,
constexpr CodUint32 kWidths[] = {COD_FOR_EACH_SIMD_WIDTH(WIDTH) COD_BITPACK_MAX_WIDTH};
const std::vector<Narrow> gNarrow(std::begin(kWidths), std::end(kWidths));
const std::vector<Column<CodUint64>> gWide(std::begin(kWidths), std::end(kWidths));
const Large gLarge[] = {Large(12)};

// Sixteen times in a row, so that the column stays in the first cache; once when it is too large.
constexpr auto kRun = [](const auto &column, auto work, auto *output) {
    for (CodUint32 done = 0; done < 16 * kValues; done += column.kCount) {
        work(column, output);
        benchmark::DoNotOptimize(output);
    }
};

// work(column, output), with the decoder and the packer that are chosen now. What a floor gives is not looked at.
template <class Column, class Result>
void add(const std::string &name, const auto &columns, Result Column::*result, auto work) {
    alignas(64) static Result output;
    for (const Column &column : columns) {
        output.fill(0);
        work(column, output.data());
        if (output != column.*result && !name.ends_with("(floor)")) {
            abort();
        }
    }
    benchmark::RegisterBenchmark(name.c_str(), [all = std::span(columns), work, choice = codBitPackGetSimdType()](benchmark::State &state) {
        codBitPackSetSimdType(choice);
        for (auto _ : state) {
            std::ranges::for_each(all, [&](const Column &column) { kRun(column, work, output.data()); });
        }
        const CodUint64 values = all.size() * std::max(Column::kCount, 16 * kValues);
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(values) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
}

void addPair(const std::string &name, const auto &columns, auto result, auto ours, const std::string &who, auto peer) {
    add(name + "/ours", columns, result, ours);
    add(name + "/peer: " + who, columns, result, peer);
}

template <auto kFunction>
constexpr auto kUnpack = [](const auto &column, auto *values) { kFunction(column.packed.data(), column.width, values, column.kCount); };
template <auto kFunction>
constexpr auto kPack = [](const auto &column, CodUint8 *out) { kFunction(column.values.data(), column.kCount, column.width, out); };

template <class T>
void addUnpack(const std::string &name, const std::vector<Column<T>> &all, auto work) {
    const auto timeOf = [work](const Column<T> &column) {
        alignas(64) std::array<T, kValues> output;
        std::array<CodInstant, 20> times;
        for (CodInstant &time : times) {
            const CodInstant before = codInstantNow();
            kRun(column, work, output.data());
            time = codInstantNow() - before;
        }
        return std::ranges::min(times);
    };
    const auto slowest = std::ranges::max_element(all, {}, timeOf);
    const std::string slowestName = name + ", slowest width (" + std::to_string(slowest->width) + ")";
    for (const auto &[rows, columns] : {std::pair(name, std::span(all)), std::pair(slowestName, std::span(slowest, 1))}) {
        addPair(rows, columns, &Column<T>::values, work, "a loop over values", kUnpack<unpackByLoop<T>>);
        add(rows + "/peer: copying the output (floor)", columns, &Column<T>::values,
            [](const Column<T> &column, T *values) { memcpy(values, column.values.data(), sizeof column.values); });
    }
}

void append(const CodUint32 *values, CodUint32 count, CodUint32 width, CodUint8 *out) {
    CodBitVec bitVec;
    codBitVecInit(out, count * 4, 0, &bitVec);
    for (CodUint32 i = 0; i < count; i++) {
        (void)!codBitVecAppend32(&bitVec, width, values[i]);
    }
    codBitVecFinish(&bitVec);
}

void pop(const CodUint8 *packed, CodUint32 width, CodUint32 *values, CodUint32 count) {
    CodBitVec bitVec;
    codBitVecInit(const_cast<CodUint8 *>(packed), count * 4, count * 4, &bitVec);
    for (CodUint32 i = 0; i < count; i++) {
        codBitVecPop32(&bitVec, width, &values[i]);
    }
}

[[maybe_unused]] const bool gRegistered = [] {
    const auto twelve = std::span(gNarrow).subspan(11, 1);
    const auto accumulator = "a 64-bit accumulator";
    addPair("pack, scalar", gNarrow, &Narrow::packed, kPack<codPack32>, accumulator, kPack<packByAccumulator<CodUint32>>);
    addPair("pack 64-bit values", gWide, &Column<CodUint64>::packed, kPack<codPack64>, accumulator, kPack<packByAccumulator<CodUint64>>);
    addPair("bit vector: append", twelve, &Narrow::packed, kPack<append>, accumulator, kPack<packByAccumulator<CodUint32>>);
    addPair("bit vector: pop", twelve, &Narrow::values, kUnpack<pop>, accumulator, kUnpack<unpackByAccumulator>);
    addUnpack("unpack, scalar", gNarrow, kUnpack<codUnpack32Normal>);
    const CodUint32 best = codBitPackDetectSimdType();
    codBitPackSetSimdType(best);
    if (best >= COD_SIMD_256) {
        addUnpack("unpack, 256-bit", gNarrow, kUnpack<codUnpack32Simd256>);
    }
    if (best >= COD_SIMD_512) {  // the vectors that have a packer
        addUnpack("unpack, 512-bit", gNarrow, kUnpack<codUnpack32Simd512>);
        addPair("pack, vector", gNarrow, &Narrow::packed, kPack<codPack32>, accumulator, kPack<packByAccumulator<CodUint32>>);
    }
    addUnpack("unpack to 64 bits, fast", gWide, kUnpack<codUnpack64Fast>);
    addPair("unpack to 64 MiB", gLarge, &Large::values, kUnpack<codUnpack32>, "memset of the output (floor)",
            [](const Large &column, CodUint32 *values) { memset(values, 0, sizeof column.values); });
    const auto compare = [](const Narrow &column, CodUint8 *bitmap) {
        (void)!codPackedCompare32(column.packed.data(), column.width, kValues, COD_COMPARE_LT, column.middle, bitmap);
    };
    const auto unpackAndCompare = [](const Narrow &column, CodUint8 *bitmap) {
        alignas(64) std::array<CodUint32, kValues> values;
        codUnpack32(column.packed.data(), column.width, values.data(), kValues);
        for (CodUint32 i = 0; i < kValues; i += 8) {
            CodUint32 bits = 0;
            for (CodUint32 j = 0; j < 8; j++) {
                bits |= CodUint32{values[i + j] < column.middle} << j;
            }
            bitmap[i / 8] = static_cast<CodUint8>(bits);
        }
    };
    addPair("compare packed with a constant", gNarrow, &Narrow::belowMiddle, compare, "codUnpack32 and a loop", unpackAndCompare);
    return true;
}();

}  // namespace
