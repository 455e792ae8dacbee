#pragma once

// Decimal digits, eight at a time.

#include "base/cod_bytes.h"
#include "number/ani_int256_internal.h"

namespace cod {

// The eight digits of a value below 10^8, one in each 16-bit lane. Both halves of four digits are spread over four lanes and divided there
// by 1000, 100, 10 and 1, each by two multiplications of which the upper halves are kept; the lane before times ten is what a digit has too
// much (Muła: SSE2 and integer to text, 2011).
inline __m128i eightDigits(CodUint32 value) {
    const CodUint32 halves = value / 10000 | value % 10000 << 16;
    const __m128i pair = _mm_slli_epi16(_mm_cvtsi32_si128(static_cast<int>(halves)), 2);
    const __m128i doubled = _mm_unpacklo_epi16(pair, pair);
    const __m128i spread = _mm_unpacklo_epi32(doubled, doubled);
    const __m128i factors = _mm_setr_epi16(8389, 5243, 13108, INT16_MIN, 8389, 5243, 13108, INT16_MIN);
    const __m128i shifts = _mm_setr_epi16(1 << 7, 1 << 11, 1 << 13, INT16_MIN, 1 << 7, 1 << 11, 1 << 13, INT16_MIN);
    const __m128i prefixes = _mm_mulhi_epu16(_mm_mulhi_epu16(spread, factors), shifts);
    return _mm_sub_epi16(prefixes, _mm_slli_epi64(_mm_mullo_epi16(prefixes, _mm_set1_epi16(10)), 16));
}

// Sixteen digits of a value below 10^16.
inline void writeSixteen(CodUint64 value, char *digits) {
    const __m128i high = eightDigits(static_cast<CodUint32>(value / 100000000));
    const __m128i low = eightDigits(static_cast<CodUint32>(value % 100000000));
    const __m128i text = _mm_or_si128(_mm_packus_epi16(high, low), _mm_set1_epi8('0'));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(digits), text);
}

// value / 10^16 for any 128-bit value, without a correction: 5^16 has 38 bits and value / 2^16 has 112, so that a reciprocal of
// 2^150 / 5^16, rounded up, is exact (Granlund, Montgomery: Division by invariant integers using multiplication, 1994, theorem 4.2).
constexpr CodUint64 kPow10_16 = 10000000000000000;
inline U128 divPow10_16(U128 value, CodUint64 &remainder) {
    constexpr CodUint64 five = 152587890625;
    // 2^150 / 5^16 + 1 by parts, since 2^150 is no integer here.
    constexpr U128 high = (U128{1} << 127) / five;
    constexpr U128 rest = (U128{1} << 127) % five;
    constexpr U128 reciprocal = (high << 23) + (rest << 23) / five + 1;
    const U128 quotient = mulHigh128(value >> 16, reciprocal) >> 22;
    remainder = lowOf(value) - lowOf(quotient) * kPow10_16;
    return quotient;
}

// Room for the digits of every 128-bit value.
constexpr CodUint32 kDigitsRoom = 40;

// Writes the value right-aligned, with zeros before it, into 40 bytes; of a value below 10^16 only the last 16.
inline void writeDigits(U128 value, char *digits) {
    if (value < kPow10_16) {
        writeSixteen(lowOf(value), digits + 24);
        return;
    }
    CodUint64 last;
    CodUint64 middle;
    const U128 high = divPow10_16(divPow10_16(value, last), middle);
    writeSixteen(last, digits + 24);
    writeSixteen(middle, digits + 8);
    const __m128i first = eightDigits(static_cast<CodUint32>(high));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(digits), _mm_or_si128(_mm_packus_epi16(first, first), _mm_set1_epi8('0')));
}

// The value of eight digits, given as text in a word.
inline CodUint32 parseEight(CodUint64 text) {
    CodUint64 value = text & 0x0F0F0F0F0F0F0F0F;
    value = value * 10 + (value >> 8);
    return static_cast<CodUint32>(
        ((value & 0x000000FF000000FF) * 0x000F424000000064 + (value >> 16 & 0x000000FF000000FF) * 0x0000271000000001) >> 32);
}

// The top bit of each byte that is no digit, right up to the first one; the bytes behind it may be wrong.
inline CodUint64 otherThanDigits(CodUint64 word) {
    // A digit less '0' is at most 9; adding 0x76 to more than that reaches the byte's top bit.
    const CodUint64 values = word ^ 0x3030303030303030;
    return ((values + 0x7676767676767676) | values) & 0x8080808080808080;
}

}  // namespace cod
