#include <vel_infra/algorithm/ani_hyperloglog.h>

#include <bit>
#include <cmath>

#include <vel_infra/algorithm/ani_hashfunc.h>

#include "algorithm/ani_hyperloglog_internal.h"
#include "base/cod_cpu.h"
#include "support/collection_support.h"

namespace {

using collection_support::Random;
using Registers = std::vector<CodUint8>;

// ---- The slow and obvious way ----

// Gives the index of the register.
CodUint64 slowAdd(Registers &registers, const CodBytes &value) {
    CodUint64 hash = codMurmurHash64(value.data, value.size);
    int p = static_cast<int>(std::log2(static_cast<double>(registers.size())));
    CodUint64 index = p == 0 ? 0 : hash >> (64 - p);
    int rank = 1;
    for (int bit = 63 - p; bit >= 0 && (hash >> bit & 1) == 0; bit--) {
        rank++;
    }
    registers[index] = std::max(registers[index], static_cast<CodUint8>(rank));
    return index;
}

double alpha(CodUint32 count) {
    return count == 16 ? 0.673 : count == 32 ? 0.697 : count == 64 ? 0.709 : 0.7213 / (1 + 1.079 / count);
}

CodUint64 slowCalculate(const CodUint8 *registers, CodUint32 count) {
    double sum = 0, m = count;
    for (CodUint32 i = 0; i < count; i++) {
        sum += std::pow(2.0, -static_cast<double>(registers[i]));
    }
    double estimate = alpha(count) * m * (m / sum);
    if (estimate < static_cast<CodInt32>((count * 5u) >> 1)) {
        auto zeros = std::count(registers, registers + count, 0);
        estimate = zeros > 0 ? m * std::log(m / static_cast<double>(zeros)) : estimate;
    } else if (estimate > 143165576.0) {
        double left = 1 - estimate / 4294967295.0;
        return left > 0 ? static_cast<CodUint64>(-4294967295.0 * std::log(left)) : UINT64_MAX;
    }
    return static_cast<CodUint64>(estimate);
}

const CodUint32 kCounts[] = {1,   2,   3,    4,    5,    12,   16,   17,   31,    32,    33,    48,    63,     64,      65,
                             100, 256, 1000, 1024, 2048, 4095, 4096, 8192, 16384, 32768, 65535, 65536, 131072, 1u << 20};

// Ways to fill registers; each reaches other branches of the estimate and other roundings of the sum.
constexpr struct {
    const char *name;
    CodUint32 (*rank)(Random &random, CodUint32 bits);  // bits: of the index
} kFillings[] = {
    {"any byte", [](Random &random, CodUint32) { return random.below(256); }},
    {"reachable ranks", [](Random &random, CodUint32 bits) { return random.below(66 - bits); }},
    {"geometric, dense",
     [](Random &random, CodUint32) { return 5u + static_cast<CodUint32>(std::countr_zero(random.next() | 1ull << 55)); }},
    {"sparse", [](Random &random, CodUint32) { return random.oneIn(20) ? 1 + random.below(6) : 0; }},
    {"half empty", [](Random &random, CodUint32) { return random.oneIn(2) ? 0 : random.below(256); }},
    {"no zeros, low", [](Random &random, CodUint32) { return 1 + random.below(3); }},
    {"far ranks", [](Random &random, CodUint32) { return 40 + random.below(216); }},
    {"around the large range",
     [](Random &random, CodUint32 bits) { return random.oneIn(500) ? 0 : 27 - std::min(26u, bits) + random.below(8); }},
};

TEST(HyperLogLog, estimateEqualsTheSlowModelToTheBit) {
    Random random(17);
    for (CodUint32 count : kCounts) {
        for (unsigned rank = 0; rank < 256; rank += count <= 4096 ? 1 : 15) {
            Registers registers(count, static_cast<CodUint8>(rank));
            ASSERT_EQ(codHllCalculate(registers.data(), count), slowCalculate(registers.data(), count)) << count << " of rank " << rank;
        }
        for (const auto &filling : kFillings) {
            for (int round = count <= 256 ? 200 : count <= 4096 ? 20 : 2; round > 0; round--) {
                Registers all(random.below(64) + count);
                CodUint32 bits = static_cast<CodUint32>(std::bit_width(count)) - 1;
                std::generate(all.begin(), all.end(), [&] { return static_cast<CodUint8>(filling.rank(random, bits)); });
                const CodUint8 *registers = all.data() + all.size() - count;
                ASSERT_EQ(codHllCalculate(registers, count), slowCalculate(registers, count)) << count << " registers, " << filling.name;
            }
        }
    }
}

// One register for each bit of the sum makes the estimate before corrections as near to the wanted one as doubles allow: at the
// bounds of the large range, and just below its end, where the logarithm shows the sum's last bit, and so the order of the additions.
TEST(HyperLogLog, largeRangeHasExactBoundsAndSumsInTheOrderOfTheRegisters) {
    struct {
        CodUint32 count;
        CodUint8 others;  // the least rank of the other registers
        double wanted;
    } rows[] = {{64, 240, 143165575.9}, {64, 240, 143165576.1}, {64, 240, 4294967294.5}, {64, 240, 4294967295.5}, {65536, 53, 4294967000}};
    Random random(41);
    for (int round = 0; round < 50; round++) {
        const auto &row = rows[std::min(round, 4)];
        Registers registers(row.count);
        std::generate(registers.begin(), registers.end(), [&] { return static_cast<CodUint8>(row.others + random.below(8)); });
        double rest = alpha(row.count) * row.count * (row.count / row.wanted);
        for (CodUint8 rank = 1; rank < 64; rank++) {
            if (double power = std::pow(2.0, -rank); power <= rest) {
                registers[random.below(row.count / 64) * 64 + rank] = rank;
                rest -= power;
            }
        }
        CodUint64 estimate = codHllCalculate(registers.data(), row.count);
        ASSERT_EQ(estimate, slowCalculate(registers.data(), row.count)) << row.wanted;
        ASSERT_EQ(estimate > 145000000, row.wanted > 143165576.0) << row.wanted;
        ASSERT_EQ(estimate == UINT64_MAX, row.wanted > 4294967295.0) << row.wanted;
    }
}

// The bytes whose hash is a given one: the last steps of the hash undone for eight bytes, so that rare ranks can be had.
CodUint64 bytesWithHash(CodUint64 hash) {
    constexpr CodUint64 kMultiplier = 0xc6a4a7935bd1e995, kInverse = 0x5f7a0ea7e59b19bd;
    auto unshift = [](CodUint64 word) { return word ^ (word >> 47); };
    CodUint64 state = unshift(unshift(hash) * kInverse) * kInverse;
    return unshift((state ^ (CodUint64{0xe17a1465} ^ (8 * kMultiplier))) * kInverse) * kInverse;
}

TEST(HyperLogLog, addEqualsTheSlowModelForAllLengthsRanksAndCounts) {
    Random random(23);
    for (CodUint32 count : kCounts) {
        const int bits = std::bit_width(count) - 1;
        Registers registers(count, 0), model(count, 0);
        for (CodUint32 i = 0; i < 1000; i++) {
            CodUint32 size = i % 2 == 0 ? i / 2 % 101 : 8;
            Registers bytes = random.bytes(i % 16 + size);
            CodBytes value = {size == 0 ? nullptr : bytes.data() + i % 16, size, 0xffffffff};
            if (i % 2 != 0) {
                // An index, the one of any rank, and any bits behind it.
                CodUint64 index = bits == 0 ? 0 : random.next() << (64 - bits), rank = 1 + random.below(65 - static_cast<CodUint32>(bits));
                CodUint64 rest = rank == 65u - static_cast<CodUint32>(bits) ? 0 : (random.next() | 1ull << 63) >> bits >> (rank - 1);
                CodUint64 word = bytesWithHash(index | rest);
                std::memcpy(value.data, &word, 8);
            }
            codHllAdd(registers.data(), count, &value);
            CodUint64 index = slowAdd(model, value);
            ASSERT_EQ(registers[index], model[index]) << count << " registers, " << size << " bytes";
            registers[index] = model[index] = static_cast<CodUint8>(random.oneIn(2) ? 0 : random.below(70));
        }
        ASSERT_TRUE(registers == model) << count << " registers";
    }
}

TEST(HyperLogLog, mergeTakesTheLargerOfEachPairAndNothingElse) {
    using Merge = void (*)(CodUint8 *, const CodUint8 *, CodUint32);
    std::vector<Merge> merges = {codHllMerge, cod::hllMergePlain};
    if (cod::cpuFeatures().avx2) {
        merges.push_back(cod::hllMergeAvx2);
    }
    Random random(31);
    for (CodUint32 i = 0; i < 900; i++) {
        CodUint32 count = i % 300, leftShift = random.below(40), rightShift = random.below(40), behind = random.below(2) * 40;
        const Registers left = random.bytes(leftShift + count + behind), right = random.bytes(rightShift + count + behind);
        Registers larger = left, equal = left;
        for (CodUint32 r = 0; r < count; r++) {
            larger[leftShift + r] = std::max(left[leftShift + r], right[rightShift + r]);
        }
        for (Merge merge : merges) {
            auto merged = [&](Registers dst, const CodUint8 *src) { return merge(dst.data() + leftShift, src, count), dst; };
            ASSERT_EQ(merged(left, right.data() + rightShift), larger);
            ASSERT_EQ(merged(larger, right.data() + rightShift), larger) << "idempotent";
            merge(equal.data() + leftShift, equal.data() + leftShift, count);
            ASSERT_EQ(equal, left) << "with itself";
        }
    }
}

TEST(HyperLogLog, sumsAreTheSameWithAndWithoutVectors) {
    if (!cod::cpuFeatures().avx2) {
        GTEST_SKIP() << "no AVX2";
    }
    Random random(37);
    for (CodUint32 i = 0; i < 3000; i++) {
        CodUint32 count = i < 2600 ? i % 260 : random.below(100000), shift = random.below(64);
        int scale = 53 - std::bit_width(count);
        Registers all(shift + count);
        std::generate(all.begin(), all.end(), [&] { return static_cast<CodUint8>(kFillings[i % 8].rank(random, 10)); });
        const cod::HllSum plain = cod::hllSumPlain(all.data() + shift, count, scale);
        const cod::HllSum vectors = cod::hllSumAvx2(all.data() + shift, count, scale);
        ASSERT_EQ(plain.sum, vectors.sum) << count << " registers, " << kFillings[i % 8].name;
        ASSERT_EQ(plain.zeros, vectors.zeros) << count << " registers, " << kFillings[i % 8].name;
        ASSERT_EQ(plain.largest, vectors.largest) << count << " registers, " << kFillings[i % 8].name;
    }
}

TEST(HyperLogLog, initTouchesItsRegistersAloneAndCountZeroNone) {
    Registers registers(1002, 7), expected(1002, 0);
    CodBytes value = {registers.data(), 1, 0};
    codHllInit(registers.data() + 1, 1000);
    codHllAdd(registers.data(), 0, &value);
    expected.front() = expected.back() = 7;
    EXPECT_EQ(registers, expected);
    EXPECT_EQ(codHllCalculate(registers.data(), 0), 0u);
}

TEST(HyperLogLog, estimatesWithinFiveStandardErrors) {
    struct {
        CodUint32 count;
        CodUint64 values;
    } rows[] = {{64, 20},       {64, 1000},     {256, 100000},   {1024, 500},    {1024, 5000},
                {1024, 300000}, {16384, 30000}, {16384, 100000}, {65536, 500000}};
    for (const auto &row : rows) {
        Registers registers(row.count, 0);
        for (CodUint64 i = 0; i < row.values; i++) {
            CodBytes value = {reinterpret_cast<CodUint8 *>(&i), 8, 0};
            codHllAdd(registers.data(), row.count, &value);
        }
        double error = static_cast<double>(codHllCalculate(registers.data(), row.count)) / static_cast<double>(row.values) - 1;
        EXPECT_LT(std::abs(error), 5 * 1.04 / std::sqrt(row.count)) << row.values << " values in " << row.count << " registers";
    }
}

}  // namespace
