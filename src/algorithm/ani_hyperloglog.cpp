#include <vel_infra/algorithm/ani_hyperloglog.h>

#include <math.h>
#include <string.h>

#include <algorithm>
#include <bit>

#include "algorithm/ani_hyperloglog_internal.h"
#include "algorithm/ani_murmur.h"
#include "base/cod_cpu.h"

// The estimate rests on the sum S of 2^-register over all registers, taken in register order in double precision: that order and
// those roundings are part of the result. As long as no register exceeds 53 - log2(count), every partial sum is a multiple of
// 2^-largest not above count, fits 53 bits and is exact, so that S may be taken in any order and in integers: vector code does that
// with 2^scale in the place of 1. A larger register needs more than 2^39 values at 16,384 registers; then the slow sum is taken.

namespace cod {

HllSum hllSumPlain(const CodUint8 *buckets, CodUint32 count, int scale) {
    HllSum result{0, 0, 0};
    for (CodUint32 i = 0; i < count; i++) {
        const CodUint32 rank = buckets[i];
        result.sum += rank < 64 ? CodUint64{1} << scale >> rank : 0;
        result.zeros += rank == 0;
        result.largest = std::max(result.largest, rank);
    }
    return result;
}

void hllMergePlain(CodUint8 *dst, const CodUint8 *src, CodUint32 count) {
    for (CodUint32 i = 0; i < count; i++) {
        dst[i] = std::max(dst[i], src[i]);
    }
}

}  // namespace cod

namespace {

__extension__ using Uint128 = unsigned __int128;

constexpr int kDoubleBits = 53;
constexpr double kLargeRange = 143165576.0;
constexpr double kHashValues = 4294967295.0;  // 2^32 - 1, here as in the published results that must be met

// floor(log2(count)).
int indexBits(CodUint32 count) {
    return 31 - std::countl_zero(count);
}

// 2^-rank for any byte: its exponent field alone.
double powerOfHalf(CodUint8 rank) {
    return std::bit_cast<double>((CodUint64{1023} - rank) << 52);
}

double sumInOrder(const CodUint8 *buckets, CodUint32 count) {
    double sum = 0;
    for (CodUint32 i = 0; i < count; i++) {
        sum += powerOfHalf(buckets[i]);
    }
    return sum;
}

// Registers take the place of the first one bit behind the index, or one more than there are such bits.
COD_COLD void raiseRegister(CodUint8 *bucket, CodUint64 rest, int bits) {
    const int rank = (rest != 0 ? std::countl_zero(rest) : 64 - bits) + 1;
    *bucket = std::max(*bucket, static_cast<CodUint8>(rank));
}

double alpha(CodUint32 count) {
    switch (count) {
        case 16:
            return 0.673;
        case 32:
            return 0.697;
        case 64:
            return 0.709;
        default:
            return 0.7213 / (1 + 1.079 / count);
    }
}

CodUint64 truncate(double value) {
    return value >= 0x1p64 ? UINT64_MAX : static_cast<CodUint64>(value);
}

CodUint64 correctLargeRange(double estimate) {
    const double left = 1 - estimate / kHashValues;
    // At the edge of the logarithm and beyond it no 64-bit value is large enough.
    return left > 0 ? truncate(-kHashValues * log(left)) : UINT64_MAX;
}

}  // namespace

void codHllInit(CodUint8 *buckets, CodUint32 count) {
    if (buckets != nullptr) {
        memset(buckets, 0, count);
    }
}

void codHllAdd(CodUint8 *buckets, CodUint32 count, const CodBytes *value) {
    if (COD_UNLIKELY(buckets == nullptr || value == nullptr)) {
        return;
    }
    // Powers of two, and no other number, change in more bits than their predecessor has.
    CodUint32 used = count;
    if (COD_UNLIKELY((count ^ (count - 1)) <= count - 1)) {
        if (count == 0) {
            return;
        }
        used = std::bit_floor(count);
    }
    // The hash times 2^bits: the top `bits` bits in the high half, the others at the top of the low half.
    const Uint128 product = Uint128{cod::murmurHash64(value->data, value->size)} * used;
    const auto rest = static_cast<CodUint64>(product);
    CodUint8 *bucket = buckets + static_cast<CodUint64>(product >> 64);
    // Nearly always the register's rank is already larger, and a one among the first `*bucket` bits shows it without counting. From 64
    // on the shift means nothing: 64 itself leads to the exact comparison, and no rank is above 65.
    if (COD_UNLIKELY(rest >> 1 >> ((63u - *bucket) & 63) == 0)) {
        raiseRegister(bucket, rest, indexBits(used));
    }
}

void codHllMerge(CodUint8 *dst, const CodUint8 *src, CodUint32 count) {
    if (dst == nullptr || src == nullptr) {
        return;
    }
    if (cod::cpuFeatures().avx2) {
        cod::hllMergeAvx2(dst, src, count);
    } else {
        cod::hllMergePlain(dst, src, count);
    }
}

CodUint64 codHllCalculate(const CodUint8 *buckets, CodUint32 count) {
    if (buckets == nullptr || count == 0) {
        return 0;
    }
    const int scale = kDoubleBits - (indexBits(count) + !cod::isPowerOf2(count));
    const cod::HllSum sums = cod::cpuFeatures().avx2 ? cod::hllSumAvx2(buckets, count, scale) : cod::hllSumPlain(buckets, count, scale);
    const double sum =
        sums.largest <= static_cast<CodUint32>(scale) ? ldexp(static_cast<double>(sums.sum), -scale) : sumInOrder(buckets, count);
    const double registers = count;
    const double estimate = alpha(count) * registers * (registers / sum);
    // The bound is taken in 32 bits, read as signed: it is what it is for counts of 2^30 and more.
    const auto smallRange = static_cast<CodInt32>(count * 5 >> 1);
    if (estimate < smallRange) {
        return truncate(sums.zeros > 0 ? registers * log(registers / sums.zeros) : estimate);
    }
    return estimate > kLargeRange ? correctLargeRange(estimate) : truncate(estimate);
}
