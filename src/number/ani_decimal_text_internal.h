#pragma once

// Decimal digits, eight at a time in a 64-bit word.

#include "base/cod_bytes.h"
#include "number/ani_int256_internal.h"

namespace cod {

// The eight digits of a value below 10^8 as text, the first digit in the lowest byte. Halves of four digits, pairs, single digits: each
// step divides all lanes of the word by one multiplication.
inline CodUint64 eightDigits(CodUint32 value) {
    const CodUint64 fours = value / 10000 | CodUint64{value % 10000} << 32;
    const CodUint64 hundreds = fours * 10486 >> 20 & 0x0000007F0000007F;
    const CodUint64 pairs = hundreds | (fours - hundreds * 100) << 16;
    const CodUint64 tens = pairs * 103 >> 10 & 0x000F000F000F000F;
    return tens | (pairs - tens * 10) << 8 | 0x3030303030303030;
}

inline void writeSixteen(CodUint64 value, char *digits) {
    const CodUint64 words[2] = {eightDigits(static_cast<CodUint32>(value / 100000000)),
                                eightDigits(static_cast<CodUint32>(value % 100000000))};
    std::memcpy(digits, words, sizeof(words));
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
    const CodUint64 first = eightDigits(static_cast<CodUint32>(high));
    std::memcpy(digits, &first, sizeof(first));
}

// The value of eight digits, given as text in a word.
inline CodUint32 parseEight(CodUint64 text) {
    CodUint64 value = text & 0x0F0F0F0F0F0F0F0F;
    value = value * 10 + (value >> 8);
    return static_cast<CodUint32>(
        ((value & 0x000000FF000000FF) * 0x000F424000000064 + (value >> 16 & 0x000000FF000000FF) * 0x0000271000000001) >> 32);
}

}  // namespace cod
