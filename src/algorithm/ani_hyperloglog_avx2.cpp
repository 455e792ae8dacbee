// The 256-bit kernels of the estimate; compiled with AVX2 and called only where the processor has it. Everything is in terms of
// intrinsics: no inline function of another header may be compiled here with these flags and be the one that the linker keeps.

#include <immintrin.h>

#include "algorithm/ani_hyperloglog_internal.h"

namespace cod {
namespace {

CodUint64 sumLanes(__m256i lanes) {
    alignas(32) CodUint64 values[4];
    _mm256_store_si256(reinterpret_cast<__m256i *>(values), lanes);
    return values[0] + values[1] + values[2] + values[3];
}

// Adds 2^scale >> register for the sixteen registers of `bytes`.
__m256i addSixteen(__m256i sum, __m256i one, __m128i bytes) {
    const __m256i a = _mm256_srlv_epi64(one, _mm256_cvtepu8_epi64(bytes));
    const __m256i b = _mm256_srlv_epi64(one, _mm256_cvtepu8_epi64(_mm_srli_si128(bytes, 4)));
    const __m256i c = _mm256_srlv_epi64(one, _mm256_cvtepu8_epi64(_mm_srli_si128(bytes, 8)));
    const __m256i d = _mm256_srlv_epi64(one, _mm256_cvtepu8_epi64(_mm_srli_si128(bytes, 12)));
    return _mm256_add_epi64(sum, _mm256_add_epi64(_mm256_add_epi64(a, b), _mm256_add_epi64(c, d)));
}

}  // namespace

HllSum hllSumAvx2(const CodUint8 *buckets, CodUint32 count, int scale) {
    const __m256i one = _mm256_set1_epi64x(static_cast<long long>(CodUint64{1} << scale));
    const __m256i zero = _mm256_setzero_si256();
    __m256i low = zero;
    __m256i high = zero;
    __m256i zeros = zero;
    __m256i largest = zero;
    CodUint64 i = 0;  // 64 bits: no count makes the steps wrap
    for (; i + 32 <= count; i += 32) {
        const __m256i registers = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(buckets + i));
        low = addSixteen(low, one, _mm256_castsi256_si128(registers));
        high = addSixteen(high, one, _mm256_extracti128_si256(registers, 1));
        // Each zero register is a byte of 1s: minus 1 summed into one of four 64-bit lanes.
        const __m256i isZero = _mm256_cmpeq_epi8(registers, zero);
        zeros = _mm256_add_epi64(zeros, _mm256_sad_epu8(_mm256_sub_epi8(zero, isZero), zero));
        largest = _mm256_max_epu8(largest, registers);
    }
    HllSum result = hllSumPlain(buckets + i, count - static_cast<CodUint32>(i), scale);
    result.sum += sumLanes(_mm256_add_epi64(low, high));
    result.zeros += static_cast<CodUint32>(sumLanes(zeros));
    alignas(32) CodUint8 maxima[32];
    _mm256_store_si256(reinterpret_cast<__m256i *>(maxima), largest);
    for (const CodUint8 maximum : maxima) {
        result.largest = maximum > result.largest ? maximum : result.largest;
    }
    return result;
}

void hllMergeAvx2(CodUint8 *dst, const CodUint8 *src, CodUint32 count) {
    CodUint64 i = 0;
    for (; i + 64 <= count; i += 64) {
        auto *to = reinterpret_cast<__m256i *>(dst + i);
        const auto *from = reinterpret_cast<const __m256i *>(src + i);
        const __m256i first = _mm256_max_epu8(_mm256_loadu_si256(to), _mm256_loadu_si256(from));
        const __m256i second = _mm256_max_epu8(_mm256_loadu_si256(to + 1), _mm256_loadu_si256(from + 1));
        _mm256_storeu_si256(to, first);
        _mm256_storeu_si256(to + 1, second);
    }
    hllMergePlain(dst + i, src + i, count - static_cast<CodUint32>(i));
}

}  // namespace cod
