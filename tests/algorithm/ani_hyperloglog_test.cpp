#include <vel_infra/algorithm/ani_hyperloglog.h>

#include <cmath>

#include <vel_infra/algorithm/ani_hashfunc.h>

#include "support/collection_support.h"

namespace {

using collection_support::Random;
using Registers = std::vector<CodUint8>;

// ---- The slow and obvious way ----

void slowAdd(CodUint8 *registers, CodUint32 count, const CodUint8 *bytes, CodUint32 size) {
    CodUint64 hash = codMurmurHash64(bytes, size);
    int p = static_cast<int>(std::log2(static_cast<double>(count)));
    CodUint64 index = p == 0 ? 0 : hash >> (64 - p);
    int rank = 1;
    for (int bit = 63 - p; bit >= 0 && (hash >> bit & 1) == 0; bit--) {
        rank++;
    }
    registers[index] = std::max(registers[index], static_cast<CodUint8>(rank));
}

CodUint64 slowCalculate(const CodUint8 *registers, CodUint32 count) {
    double sum = 0;
    CodUint32 zeros = 0;
    for (CodUint32 i = 0; i < count; i++) {
        sum += std::pow(2.0, -static_cast<double>(registers[i]));
        zeros += registers[i] == 0;
    }
    double m = count;
    double alpha = count == 16 ? 0.673 : count == 32 ? 0.697 : count == 64 ? 0.709 : 0.7213 / (1 + 1.079 / m);
    double estimate = alpha * m * (m / sum);
    if (estimate < static_cast<CodInt32>((count * 5u) >> 1)) {
        if (zeros > 0) {
            estimate = m * std::log(m / zeros);
        }
    } else if (estimate > 143165576.0) {
        double left = 1 - estimate / 4294967295.0;
        if (!(left > 0)) {
            return UINT64_MAX;
        }
        estimate = -4294967295.0 * std::log(left);
    }
    return static_cast<CodUint64>(estimate);
}

CodUint32 powerUpTo(CodUint32 count) {
    return static_cast<CodUint32>(std::log2(static_cast<double>(count)));
}

const CodUint32 kCounts[] = {1,   2,   3,   4,    5,    8,    12,   16,   17,   31,    32,    33,    48,    63,     64,      65,
                             100, 128, 256, 1000, 1024, 2048, 4095, 4096, 8192, 16384, 32768, 65535, 65536, 131072, 1u << 20};

// Ways to fill registers; each reaches other branches of the estimate and other roundings of the sum.
struct Filling {
    const char *name;
    CodUint8 (*value)(Random &random, CodUint32 count);
};
const Filling kFillings[] = {
    {"any byte", [](Random &random, CodUint32) { return random.byte(); }},
    {"reachable ranks", [](Random &random, CodUint32 count) { return static_cast<CodUint8>(random.below(66 - powerUpTo(count))); }},
    {"geometric, dense",
     [](Random &random, CodUint32) {
         CodUint8 rank = 5;
         while (rank < 60 && random.oneIn(2)) {
             rank++;
         }
         return rank;
     }},
    {"geometric, sparse", [](Random &random, CodUint32) { return static_cast<CodUint8>(random.oneIn(20) ? 1 + random.below(6) : 0); }},
    {"half empty", [](Random &random, CodUint32) { return static_cast<CodUint8>(random.oneIn(2) ? 0 : random.byte()); }},
    {"no zeros, low", [](Random &random, CodUint32) { return static_cast<CodUint8>(1 + random.below(3)); }},
    {"far ranks", [](Random &random, CodUint32) { return static_cast<CodUint8>(40 + random.below(216)); }},
    {"around the large range",
     [](Random &random, CodUint32 count) {
         CodUint32 rank = 26 - std::min(25u, powerUpTo(count)) + random.below(8);
         return static_cast<CodUint8>(random.oneIn(500) ? 0 : rank);
     }},
};

TEST(HyperLogLog, estimateEqualsTheSlowModelToTheBit) {
    Random random(17);
    for (CodUint32 count : kCounts) {
        for (unsigned rank = 0; rank < 256; rank += count <= 4096 ? 1 : 15) {
            Registers registers(count, static_cast<CodUint8>(rank));
            ASSERT_EQ(codHllCalculate(registers.data(), count), slowCalculate(registers.data(), count)) << count << " of rank " << rank;
            registers[count / 2] = 0;
            ASSERT_EQ(codHllCalculate(registers.data(), count), slowCalculate(registers.data(), count)) << count << " of rank " << rank;
        }
        for (const Filling &filling : kFillings) {
            int rounds = count <= 256 ? 200 : count <= 4096 ? 20 : 2;
            for (int round = 0; round < rounds; round++) {
                std::size_t shift = random.below(64);
                Registers registers(shift + count);
                std::generate(registers.begin(), registers.end(), [&] { return filling.value(random, count); });
                ASSERT_EQ(codHllCalculate(registers.data() + shift, count), slowCalculate(registers.data() + shift, count))
                    << count << " registers, " << filling.name;
            }
        }
    }
}

TEST(HyperLogLog, estimatesOfKnownRegisters) {
    auto estimate = [](CodUint32 count, CodUint8 rank) {
        Registers registers(count, rank);
        return codHllCalculate(registers.data(), count);
    };
    EXPECT_EQ(estimate(16, 0), 0u);
    EXPECT_EQ(estimate(16, 1), 21u) << "0.673 x 16 x 2: no empty register, so the small range leaves it";
    EXPECT_EQ(estimate(32, 4), 356u) << "0.697 x 32 x 16";
    EXPECT_EQ(estimate(64, 10), 46465u) << "0.709 x 64 x 1024";
    EXPECT_EQ(estimate(16, 23), 90328530u) << "below the large range";
    EXPECT_EQ(estimate(16, 24), 184566526u) << "above it: a little more than 0.673 x 16 x 2^24";
    EXPECT_EQ(estimate(16, 28), 4800893433u);
    EXPECT_EQ(estimate(16, 29), UINT64_MAX) << "the logarithm's argument is negative";
    EXPECT_EQ(estimate(65536, 255), UINT64_MAX);
    EXPECT_EQ(codHllCalculate(nullptr, 0), 0u);
    Registers one(64, 0);
    one[63] = 7;
    EXPECT_EQ(codHllCalculate(one.data(), 64), 1u);
}

// 64 registers whose estimate before corrections is as near to the wanted one as doubles allow: the sum's bits, one a register.
Registers registersFor(double wanted) {
    Registers registers(64, 255);
    double rest = 0.709 * 64 * 64 / wanted;
    for (CodUint8 &rank : registers) {
        for (rank = 1; rank < 255 && std::pow(2.0, -rank) > rest; rank++) {
        }
        rest -= rank < 255 ? std::pow(2.0, -rank) : 0;
    }
    return registers;
}

TEST(HyperLogLog, largeRangeBeginsAboveItsExactBoundAndEndsWithTheLogarithm) {
    for (double wanted : {143165575.9, 143165576.1, 143165576.4, 143165576.6, 4294967294.5, 4294967295.5}) {
        Registers registers = registersFor(wanted);
        CodUint64 estimate = codHllCalculate(registers.data(), 64);
        EXPECT_EQ(estimate, slowCalculate(registers.data(), 64)) << wanted;
        EXPECT_EQ(estimate > 145000000u, wanted > 143165576.0) << wanted;
        EXPECT_EQ(estimate == UINT64_MAX, wanted > 4294967295.0) << wanted;
    }
}

// Just below the end of the range the logarithm makes the last bit of the sum visible, and with it the order of the additions.
TEST(HyperLogLog, sumsInTheOrderOfTheRegisters) {
    constexpr CodUint32 kCount = 65536;
    Random random(41);
    for (int round = 0; round < 20; round++) {
        Registers registers(kCount);
        std::generate(registers.begin(), registers.end(), [&] { return static_cast<CodUint8>(53 + random.below(8)); });
        double rest = 0.7213 / (1 + 1.079 / kCount) * kCount * (kCount / 4294967000.0);
        for (CodUint8 rank = 1; rank <= 52; rank++) {
            if (std::pow(2.0, -rank) <= rest) {
                registers[random.below(1024) * 64 + rank] = rank;
                rest -= std::pow(2.0, -rank);
            }
        }
        CodUint64 estimate = codHllCalculate(registers.data(), kCount);
        ASSERT_EQ(estimate, slowCalculate(registers.data(), kCount));
        ASSERT_NE(estimate, UINT64_MAX);
    }
}

TEST(HyperLogLog, addEqualsTheSlowModelForAllLengthsAndCounts) {
    Random random(23);
    for (CodUint32 count : kCounts) {
        Registers registers(count, 0), model(count, 0);
        for (CodUint32 size = 0; size <= 100; size++) {
            for (int round = 0; round < 5; round++) {
                std::size_t shift = random.below(16);
                std::vector<CodUint8> bytes = random.bytes(shift + size);
                CodBytes value = {bytes.data() + shift, size, 0xffffffff};
                slowAdd(model.data(), count, value.data, size);
                codHllAdd(registers.data(), count, &value);
                if (count <= 64) {
                    ASSERT_EQ(registers, model) << size << " bytes";
                }
            }
        }
        ASSERT_EQ(registers == model, true) << count << " registers";
    }
    CodBytes empty = {nullptr, 0, 0};
    Registers registers(16, 0), model(16, 0);
    codHllAdd(registers.data(), 16, &empty);
    slowAdd(model.data(), 16, nullptr, 0);
    EXPECT_EQ(registers, model);
    EXPECT_NE(registers, Registers(16, 0));
}

// The bytes whose hash is a given one: the last steps of the hash undone for eight bytes, so that rare ranks can be had.
CodUint64 bytesWithHash(CodUint64 hash) {
    constexpr CodUint64 kMultiplier = 0xc6a4a7935bd1e995, kInverse = 0x5f7a0ea7e59b19bd;
    auto unshift = [](CodUint64 word) { return word ^ (word >> 47); };
    static_assert(kMultiplier * kInverse == 1);
    CodUint64 state = unshift(unshift(hash) * kInverse) * kInverse;
    CodUint64 word = (state ^ (CodUint64{0xe17a1465} ^ (8 * kMultiplier))) * kInverse;
    return unshift(word) * kInverse;
}

TEST(HyperLogLog, ranksReachFromOneToAllBitsZero) {
    for (CodUint32 count : {1u, 2u, 16u, 64u, 1024u, 65536u, 1u << 20}) {
        CodUint32 p = powerUpTo(count);
        for (CodUint32 rank = 1; rank <= 65 - p; rank++) {
            for (CodUint32 index : {0u, 1u, count / 2, count - 1}) {
                index %= count;
                CodUint64 hash = p == 0 ? 0 : CodUint64{index} << (64 - p);
                if (rank <= 64 - p) {
                    CodUint64 first = CodUint64{1} << (64 - p - rank);
                    hash |= first | (first - 1);
                }
                CodUint64 bytes = bytesWithHash(hash);
                ASSERT_EQ(codMurmurHash64(&bytes, 8), hash);
                CodBytes value = {reinterpret_cast<CodUint8 *>(&bytes), 8, 0};
                Registers registers(count, 0), expected(count, 0);
                expected[index] = static_cast<CodUint8>(rank);
                codHllAdd(registers.data(), count, &value);
                ASSERT_EQ(registers, expected) << count << " registers, rank " << rank;
                registers[index] = expected[index] = static_cast<CodUint8>(rank + 1);
                codHllAdd(registers.data(), count, &value);
                ASSERT_EQ(registers, expected) << "a smaller rank changes nothing";
            }
        }
    }
}

TEST(HyperLogLog, mergeTakesTheLargerOfEachPairAndNothingElse) {
    Random random(31);
    for (CodUint32 count = 0; count <= 300; count++) {
        // Behind a prefix that shifts the registers and must stay.
        std::size_t shift = random.below(32);
        auto merged = [&](Registers left, const Registers &right) {
            codHllMerge(left.data() + shift, right.data() + shift, count);
            return left;
        };
        Registers a = random.bytes(shift + count), b = random.bytes(shift + count), c = random.bytes(shift + count), larger = a;
        for (std::size_t i = shift; i < larger.size(); i++) {
            larger[i] = std::max(a[i], b[i]);
        }
        ASSERT_EQ(merged(a, b), larger);
        Registers swapped = merged(b, a);
        ASSERT_EQ(std::memcmp(swapped.data() + shift, larger.data() + shift, count), 0) << "commutative";
        ASSERT_EQ(merged(larger, b), larger) << "idempotent";
        ASSERT_EQ(merged(merged(a, b), c), merged(a, merged(b, c))) << "associative";
        Registers copy = merged(Registers(shift + count, 0), a), self = a;
        ASSERT_EQ(std::memcmp(copy.data() + shift, a.data() + shift, count), 0) << "an empty array takes a copy";
        codHllMerge(self.data() + shift, self.data() + shift, count);
        ASSERT_EQ(self, a);
        Registers elsewhere = random.bytes(shift + 7 + count);
        std::copy(b.begin() + static_cast<std::ptrdiff_t>(shift), b.end(), elsewhere.end() - count);
        codHllMerge(a.data() + shift, elsewhere.data() + shift + 7, count);
        ASSERT_EQ(a, larger) << "the two shifted differently";
    }
}

TEST(HyperLogLog, initZeroesExactlyItsRegisters) {
    for (CodUint32 count : {0u, 1u, 3u, 16u, 1000u, 65536u}) {
        Registers registers(count + 2, 0xff);
        codHllInit(registers.data() + 1, count);
        EXPECT_EQ(registers.front(), 0xff);
        EXPECT_EQ(registers.back(), 0xff);
        EXPECT_EQ(std::count(registers.begin(), registers.end(), 0), count);
    }
    CodUint8 untouched = 7;
    CodBytes value = {&untouched, 1, 0};
    codHllAdd(&untouched, 0, &value);
    EXPECT_EQ(untouched, 7) << "count 0 adds nothing";
}

TEST(HyperLogLog, estimatesWithinFiveStandardErrors) {
    struct {
        CodUint32 count;
        CodUint64 values;
    } rows[] = {{64, 20},      {64, 1000},     {256, 50},       {256, 100000},    {1024, 500},    {1024, 5000},   {1024, 300000},
                {16384, 1000}, {16384, 30000}, {16384, 100000}, {16384, 1000000}, {65536, 10000}, {65536, 500000}};
    for (const auto &row : rows) {
        Registers registers(row.count, 0);
        for (CodUint64 i = 0; i < row.values; i++) {
            CodBytes value = {reinterpret_cast<CodUint8 *>(&i), 8, 0};
            codHllAdd(registers.data(), row.count, &value);
        }
        double expected = static_cast<double>(row.values);
        EXPECT_NEAR(static_cast<double>(codHllCalculate(registers.data(), row.count)), expected, 5 * 1.04 / std::sqrt(row.count) * expected)
            << row.values << " values in " << row.count << " registers";
    }
}

}  // namespace
