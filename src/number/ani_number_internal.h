#pragma once

// What the operations of NUMBER share: records in registers, bringing 256-bit results back, and the operations that single calls and
// batches both inline: their common case here, the rest out of line.

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/error/ani_error_code.h>
#include <vel_infra/number/ani_number.h>

#include "number/ani_int256_internal.h"

namespace cod {

// ---- Records ----

// A record as three words: its tail holds sign, unused and exp.
struct NumberWords {
    CodUint64 low;
    CodUint64 high;
    CodUint32 tail;
};

inline NumberWords loadWords(const CodNumber *n) {
    NumberWords words;
    words.low = n->value.item64[0];
    words.high = n->value.item64[1];
    std::memcpy(&words.tail, &n->sign, sizeof(words.tail));
    return words;
}

inline CodInt32 expOf(CodUint32 tail) {
    return static_cast<CodInt32>(tail) >> 16;
}
inline CodUint64 negativeOf(CodUint32 tail) {
    return (tail & 0xFF) != 0;
}
inline CodUint32 makeTail(CodInt32 exp, CodUint64 negative) {
    return static_cast<CodUint32>(exp) << 16 | static_cast<CodUint32>(negative);
}

struct Operand {
    U128 value;
    CodInt32 exp;
    CodUint64 negative;  // 1 or 0; may be 1 with a zero value
};

inline Operand loadOperand(const CodNumber *n) {
    const NumberWords words = loadWords(n);
    return {makeU128(words.high, words.low), expOf(words.tail), negativeOf(words.tail)};
}

inline void storeTail(CodNumber *result, CodUint32 tail) {
    std::memcpy(&result->sign, &tail, sizeof(tail));
}

inline void storeNumber(CodNumber *result, U128 value, CodInt32 exp, CodUint64 negative) {
    result->value.item64[0] = lowOf(value);
    result->value.item64[1] = highOf(value);
    storeTail(result, makeTail(exp, negative));
}
inline void storeZero(CodNumber *result) {
    storeNumber(result, 0, 0, 0);
}
// A value whose sign and exponent fall away with its last digit.
inline void storeCanonical(CodNumber *result, U128 value, CodInt32 exp, CodUint64 negative) {
    storeNumber(result, value, value == 0 ? 0 : exp, value == 0 ? 0 : negative);
}

// ---- Bringing results back ----

// The magnitudes exp + digits that a result may have, as one comparison.
constexpr CodUint32 kMagnitudes = COD_NUMBER_MAX_MAGNITUDE - COD_NUMBER_MIN_MAGNITUDE;
constexpr bool isMagnitudeHeld(CodInt32 magnitude) {
    return static_cast<CodUint32>(magnitude - COD_NUMBER_MIN_MAGNITUDE) <= kMagnitudes;
}
// The exponents with which a non-zero value of at most `digits` digits certainly is in range.
constexpr bool isExpHeld(CodInt32 exp, CodInt32 digits) {
    constexpr CodInt32 lowest = COD_NUMBER_MIN_MAGNITUDE - 1;
    return static_cast<CodUint32>(exp - lowest) <= static_cast<CodUint32>(COD_NUMBER_MAX_MAGNITUDE - digits - lowest);
}

// The uncommon cases: zero, and magnitudes that are out of range or near it. Zero below the range, the error above it.
COD_COLD CodResult storeUncommon(const U256 &value, CodInt32 exp, CodUint64 negative, CodNumber *result);

// value * 10^exp with at most 38 digits, rounded half up.
inline CodResult storeRounded(const U256 &value, CodInt32 exp, CodUint64 negative, CodNumber *result) {
    const U128 low = lowHalf(value);
    if ((value.w[2] | value.w[3]) == 0 && low < kPow10_38) {
        if (COD_UNLIKELY(low == 0 || !isExpHeld(exp, COD_NUMBER_DIGITS))) {
            return storeUncommon(value, exp, negative, result);
        }
        storeNumber(result, low, exp, negative);
        return COD_SUCCESS;
    }
    const Rounded rounded = roundToDigits(value);
    const CodInt32 roundedExp = exp + static_cast<CodInt32>(rounded.cut);
    if (COD_UNLIKELY(!isMagnitudeHeld(roundedExp + COD_NUMBER_DIGITS))) {
        return storeUncommon(value, exp, negative, result);
    }
    storeNumber(result, rounded.value, roundedExp, negative);
    return COD_SUCCESS;
}

// ---- Operations ----

// The uncommon cases; n2's sign is flipped when flip is 1.
CodResult addGeneral(const CodNumber *n1, const CodNumber *n2, CodUint64 flip, CodNumber *result);
CodResult mulGeneral(const CodNumber *n1, const CodNumber *n2, CodNumber *result);
CodInt32 compareScaled(U128 value1, U128 value2, CodInt32 gap);
CodResult divNumbers(const CodNumber *n1, const CodNumber *n2, CodNumber *result);

// n1 + n2, or n1 - n2 when flip is 1. Common: one exponent, coefficients below 2^62, which as signed words need no case for signs.
inline CodResult addNumbers(const CodNumber *n1, const CodNumber *n2, CodUint64 flip, CodNumber *result) {
    const NumberWords a = loadWords(n1);
    const NumberWords b = loadWords(n2);
    const CodInt32 exp = expOf(a.tail);
    const bool isCommon = ((a.low | b.low) >> 62 | a.high | b.high | (a.tail ^ b.tail) >> 16) == 0 && isExpHeld(exp, 19);
    if (COD_UNLIKELY(!isCommon)) {
        return addGeneral(n1, n2, flip, result);
    }
    const CodUint64 negative1 = negativeOf(a.tail);
    const CodUint64 negative2 = negativeOf(b.tail) ^ flip;
    const CodUint64 sum = ((a.low ^ (0 - negative1)) + negative1) + ((b.low ^ (0 - negative2)) + negative2);
    const CodUint64 negative = sum >> 63;
    result->value.item64[0] = (sum ^ (0 - negative)) + negative;
    result->value.item64[1] = 0;
    storeTail(result, sum == 0 ? 0 : makeTail(exp, negative));
    return COD_SUCCESS;
}

// Common: coefficients of one word each, the product of at most 38 digits.
inline CodResult mulNumbers(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    const NumberWords a = loadWords(n1);
    const NumberWords b = loadWords(n2);
    const U128 product = U128{a.low} * b.low;
    const CodInt32 exp = expOf(a.tail) + expOf(b.tail);
    const bool isCommon =
        (a.high | b.high) == 0 && highOf(product) < highOf(kPow10_38) && isExpHeld(exp, COD_NUMBER_DIGITS) && product != 0;
    if (COD_UNLIKELY(!isCommon)) {
        return mulGeneral(n1, n2, result);
    }
    storeNumber(result, product, exp, negativeOf(a.tail) ^ negativeOf(b.tail));
    return COD_SUCCESS;
}

// Bits of a value that is not zero.
inline CodInt32 bitsOf(U128 value) {
    const bool isWide = highOf(value) != 0;
    return (isWide ? 128 : 64) - __builtin_clzll(isWide ? highOf(value) : lowOf(value));
}

// The order of the magnitudes a and b.
inline CodInt32 compareMagnitudes(const Operand &a, const Operand &b) {
    const CodInt32 gap = a.exp - b.exp;
    if (gap == 0) {
        return static_cast<CodInt32>(a.value > b.value) - static_cast<CodInt32>(a.value < b.value);
    }
    if (COD_UNLIKELY(a.value == 0 || b.value == 0)) {
        return static_cast<CodInt32>(a.value != 0) - static_cast<CodInt32>(b.value != 0);
    }
    if (COD_UNLIKELY(gap > 38 || gap < -38)) {
        return gap > 0 ? 1 : -1;
    }
    // The binary logarithms differ by this much in units of 2^-16, give or take one for the coefficients' own fractions, and 8 units for
    // the constant, which is log2(10).
    const CodInt32 distance = (bitsOf(a.value) - bitsOf(b.value)) * 65536 + gap * 217706;
    if (distance > 65536 + 8) {
        return 1;
    }
    if (distance < -65536 - 8) {
        return -1;
    }
    return compareScaled(a.value, b.value, gap);
}

inline CodInt32 compareOperands(const Operand &a, const Operand &b) {
    if (a.negative != b.negative) {
        return (a.value | b.value) == 0 ? 0 : a.negative != 0 ? -1 : 1;
    }
    const CodInt32 order = compareMagnitudes(a, b);
    return a.negative != 0 ? -order : order;
}

// value * 10^exp as the nearest double, ties to even; infinite when it is beyond the type.
double nearestDouble(U128 value, CodInt32 exp);

}  // namespace cod
