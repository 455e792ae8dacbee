#pragma once

// 128- and 256-bit arithmetic for this folder, and the tables of powers of ten and of their reciprocals.

#include <immintrin.h>

#include <bit>
#include <cstring>

#include <vel_infra/number/ani_int256.h>

namespace cod {

using U128 = unsigned __int128;

// Words are little-endian, as in CodHugeInt.
struct U256 {
    CodUint64 w[4];
};

constexpr CodUint64 lowOf(U128 value) {
    return static_cast<CodUint64>(value);
}
constexpr CodUint64 highOf(U128 value) {
    return static_cast<CodUint64>(value >> 64);
}
constexpr U128 makeU128(CodUint64 high, CodUint64 low) {
    return U128{high} << 64 | low;
}
inline U128 lowHalf(const U256 &value) {
    return makeU128(value.w[1], value.w[0]);
}
inline U128 highHalf(const U256 &value) {
    return makeU128(value.w[3], value.w[2]);
}
constexpr U256 widen(U128 value) {
    return {{lowOf(value), highOf(value), 0, 0}};
}

// ---- Tables ----

constexpr CodUint32 kMaxPower = COD_DECIMAL_EXPONENTS - 1;
// 10^i for i up to the largest power that fits 128 bits.
constexpr CodUint32 kMaxPower128 = 38;
// Digits beyond 38 that a 256-bit value can have.
constexpr CodUint32 kMaxCut = 40;

// Division by 10^m by multiplication: see divPow10.
struct Reciprocal {
    U128 factor;  // 2^(128 + shift) / 10^m, rounded down, its top bit set; all ones for m = 0
    U128 pow5;    // 5^m
    CodUint32 shift;
};

// Cutting m digits of a 256-bit value: see roundToDigits.
struct LongReciprocal {
    CodUint64 factor[3];  // 2^(320 - shift) / 10^m, rounded down
    CodUint32 shift;      // moves every value below 10^(38 + m) into 256 bits, as far up as they all can be
};

// What the bits of a value above 10^38 say about its digits.
struct DigitBound {
    U128 threshold;    // the top two words of 10^digits when it has as many bits; else 0
    CodUint32 digits;  // at least; one more from the threshold on
};

struct PowerTables {
    U128 pow10[kMaxPower128 + 1];
    U256 pow10Wide[kMaxPower + 2];  // all that 256 bits hold
    Reciprocal reciprocals[kMaxCut + 1];
    LongReciprocal longReciprocals[kMaxCut + 1];
    DigitBound digitBounds[257];
};
// Hidden, so that no access goes through the table of global offsets.
extern __attribute__((visibility("hidden"))) const PowerTables kPowers;

inline U128 pow10(CodUint32 exponent) {
    return kPowers.pow10[exponent];
}
constexpr U128 kPow10_38 = U128{10000000000000000000ULL} * 10000000000000000000ULL;

// ---- Adding and subtracting ----

inline CodUint8 addCarry(CodUint8 carry, CodUint64 left, CodUint64 right, CodUint64 &sum) {
    unsigned long long out;
    const CodUint8 next = _addcarry_u64(carry, left, right, &out);
    sum = out;
    return next;
}

inline CodUint8 subBorrow(CodUint8 borrow, CodUint64 left, CodUint64 right, CodUint64 &difference) {
    unsigned long long out;
    const CodUint8 next = _subborrow_u64(borrow, left, right, &out);
    difference = out;
    return next;
}

// Both give the carry, or borrow, out of the top. left and right may be sum.
inline CodUint8 add256(const U256 &left, const U256 &right, U256 &sum) {
    CodUint8 carry = 0;
    for (int i = 0; i < 4; i++) {
        carry = addCarry(carry, left.w[i], right.w[i], sum.w[i]);
    }
    return carry;
}

inline CodUint8 sub256(const U256 &left, const U256 &right, U256 &difference) {
    CodUint8 borrow = 0;
    for (int i = 0; i < 4; i++) {
        borrow = subBorrow(borrow, left.w[i], right.w[i], difference.w[i]);
    }
    return borrow;
}

inline bool isZero(const U256 &value) {
    return (value.w[0] | value.w[1] | value.w[2] | value.w[3]) == 0;
}

inline bool lessThan(const U256 &left, const U256 &right) {
    U256 ignored;
    return sub256(left, right, ignored) != 0;
}

// value, or its two's complement when `negative` is 1.
inline U256 negateIf(CodUint64 negative, const U256 &value) {
    const CodUint64 mask = 0 - negative;
    U256 result;
    CodUint8 carry = static_cast<CodUint8>(negative);
    for (int i = 0; i < 4; i++) {
        carry = addCarry(carry, value.w[i] ^ mask, 0, result.w[i]);
    }
    return result;
}

// (w2, w1, w0) += (high, low).
inline void addWords(CodUint64 &w0, CodUint64 &w1, CodUint64 &w2, CodUint64 low, CodUint64 high) {
    CodUint8 carry = addCarry(0, w0, low, w0);
    carry = addCarry(carry, w1, high, w1);
    addCarry(carry, w2, 0, w2);
}

// ---- Multiplying ----

inline U256 mul128(U128 left, U128 right) {
    const U128 low = U128{lowOf(left)} * lowOf(right);
    const U128 cross1 = U128{lowOf(left)} * highOf(right);
    const U128 cross2 = U128{highOf(left)} * lowOf(right);
    const U128 high = U128{highOf(left)} * highOf(right);
    const U128 middle = U128{highOf(low)} + lowOf(cross1) + lowOf(cross2);
    const U128 top = high + highOf(cross1) + highOf(cross2) + highOf(middle);
    return {{lowOf(low), lowOf(middle), lowOf(top), highOf(top)}};
}

inline U256 mulWord(U128 left, CodUint64 right) {
    const U128 low = U128{lowOf(left)} * right;
    const U128 high = U128{highOf(left)} * right + highOf(low);
    return {{lowOf(low), lowOf(high), highOf(high), 0}};
}

inline U128 mulHigh128(U128 left, U128 right) {
    return highHalf(mul128(left, right));
}

// The low 256 bits; true when higher ones are lost.
bool mul256(const U256 &left, const U256 &right, U256 &product);

// ---- Counting digits ----

constexpr CodUint32 bitLength(CodUint64 value) {
    return 64U - static_cast<CodUint32>(std::countl_zero(value));
}

// floor(bits * log10(2)) for bits up to 256.
constexpr CodUint32 digitsBelow(CodUint32 bits) {
    return bits * 1233 >> 12;
}

// Decimal digits; 0 for zero.
inline CodUint32 digits64(CodUint64 value) {
    const CodUint32 digits = digitsBelow(64U - static_cast<CodUint32>(__builtin_clzll(value | 1)));
    return digits + (value >= lowOf(pow10(digits)));
}

inline CodUint32 digits128(U128 value) {
    const bool wide = highOf(value) != 0;
    const CodUint64 top = wide ? highOf(value) : lowOf(value);
    const CodUint32 bits = (wide ? 128U : 64U) - static_cast<CodUint32>(__builtin_clzll(top | 1));
    const CodUint32 digits = digitsBelow(bits);
    return digits + (value >= pow10(digits));
}

inline CodUint32 digits256(const U256 &value) {
    const bool upper = (value.w[3] | value.w[2]) != 0;
    const CodUint64 high = upper ? value.w[3] : value.w[1];
    const CodUint64 low = upper ? value.w[2] : value.w[0];
    const CodUint64 top = high != 0 ? high : low;
    const CodUint32 words = (upper ? 192U : 64U) + (high != 0 ? 64U : 0U);
    const CodUint32 bits = words - static_cast<CodUint32>(__builtin_clzll(top | 1));
    const CodUint32 digits = digitsBelow(bits);
    return digits + !lessThan(value, kPowers.pow10Wide[digits]);
}

// ---- Dividing ----

// (high, low) / divisor for high < divisor: one instruction, which the compiler's own 128-bit division is not.
inline CodUint64 div128By64(CodUint64 high, CodUint64 low, CodUint64 divisor, CodUint64 &remainder) {
    CodUint64 quotient;
    __asm__("divq %4" : "=a"(quotient), "=d"(remainder) : "0"(low), "1"(high), "rm"(divisor) : "cc");
    return quotient;
}

inline U256 divideByWord(const U256 &value, CodUint64 divisor, CodUint64 &remainder) {
    U256 quotient{};
    CodUint64 rest = 0;
    for (int i = 3; i >= 0; i--) {
        // Leading words of zero cost nothing.
        if ((value.w[i] | rest) != 0) {
            quotient.w[i] = div128By64(rest, value.w[i], divisor, rest);
        }
    }
    remainder = rest;
    return quotient;
}

// Quotient of value / divisor, divisor not zero; the remainder into `remainder`.
U256 divide256(const U256 &value, U128 divisor, U128 &remainder);

// value / 10^power, power at most 38.
inline U128 divPow10(U128 value, CodUint32 power, U128 &remainder) {
    const Reciprocal &r = kPowers.reciprocals[power];
    // At most one too small: the factor is rounded down, and so is the product.
    U128 quotient = mulHigh128(value, r.factor) >> r.shift;
    const U128 unit = pow10(power);
    U128 rest = value - quotient * unit;
    if (rest >= unit) {
        rest -= unit;
        quotient++;
    }
    remainder = rest;
    return quotient;
}

// The value of more than 38 digits rounded half up to 38, and how many digits were cut.
struct Rounded {
    U128 value;
    CodUint32 cut;
};
// By a division and its remainder.
COD_COLD Rounded roundExactly(const U256 &value);

// The top word of (high, low) << shift, shift below 64.
inline CodUint64 shiftLeft(CodUint64 high, CodUint64 low, CodUint32 shift) {
    __asm__("shldq %%cl, %1, %0" : "+r"(high) : "r"(low), "c"(shift) : "cc");
    return high;
}

// The value is moved up, cut to 192 bits and multiplied by a reciprocal of 192 bits, both placed so that the top two words of the product
// are the quotient and the third is its fraction. What is left out everywhere is less than 8 units of that third word: the low words of
// three partial products, three whole ones, the bits cut, the reciprocal's own. So with 8 added the product is too large by at most 8.
// Then only a value less than 8 units below half could be rounded wrongly. Values are multiples of 10^-cut, so that none is that near but
// half itself, which is to be rounded up, as long as 10^cut stays below 2^61; beyond it, what comes that near is rounded exactly.
inline Rounded roundToDigits(const U256 &value) {
    constexpr CodUint64 slack = 8;
    constexpr CodUint32 surelyApart = 18;
    const CodUint32 top = value.w[3] != 0 ? 3 : value.w[2] != 0 ? 2 : 1;
    const U128 topWords = makeU128(value.w[top], value.w[top - 1]);
    const CodUint32 bits = 64 * top + 64 - static_cast<CodUint32>(__builtin_clzll(highOf(topWords)));
    const DigitBound &bound = kPowers.digitBounds[bits];
    const CodUint32 cut = bound.digits + (topWords >= bound.threshold) - kMaxPower128;
    if (COD_UNLIKELY(topWords == bound.threshold)) {
        return roundExactly(value);
    }
    const LongReciprocal &r = kPowers.longReciprocals[cut];
    // The shift is below 128.
    const bool isShort = r.shift >= 64;
    const CodUint32 shift = r.shift % 64;
    const CodUint64 w3 = isShort ? value.w[2] : value.w[3];
    const CodUint64 w2 = isShort ? value.w[1] : value.w[2];
    const CodUint64 w1 = isShort ? value.w[0] : value.w[1];
    const CodUint64 w0 = isShort ? 0 : value.w[0];
    const CodUint64 v2 = shiftLeft(w3, w2, shift);
    const CodUint64 v1 = shiftLeft(w2, w1, shift);
    const CodUint64 v0 = shiftLeft(w1, w0, shift);

    const U128 p22 = U128{v2} * r.factor[2];
    const U128 p21 = U128{v2} * r.factor[1];
    const U128 p12 = U128{v1} * r.factor[2];
    constexpr CodUint64 half = CodUint64{1} << 63;
    CodUint64 q2 = highOf(p22);
    CodUint64 q1 = lowOf(p22);
    CodUint64 fraction = highOf(U128{v2} * r.factor[0]);
    addWords(fraction, q1, q2, lowOf(p21), highOf(p21));
    addWords(fraction, q1, q2, lowOf(p12), highOf(p12));
    addWords(fraction, q1, q2, highOf(U128{v1} * r.factor[1]), 0);
    addWords(fraction, q1, q2, highOf(U128{v0} * r.factor[2]), 0);
    addWords(fraction, q1, q2, half + slack, 0);
    if (COD_UNLIKELY(fraction < slack && cut > surelyApart)) {
        return roundExactly(value);
    }
    return {makeU128(q2, q1), cut};
}

// Removes trailing decimal zeros, at most `limit`; gives how many. The value must not be zero.
CodUint32 stripZeros(U128 &value, CodUint32 limit);

// ---- Errors ----

COD_COLD CodResult raiseNull();
COD_COLD CodResult raiseNumericOverflow();
// ERR_CMM_INVALID_NUMBER for a text, of which the message quotes the beginning.
COD_COLD CodResult raiseInvalidNumber(const char *str, CodUint32 len, const char *reason);
// ERR_CMM_FORMAT_STR_OVERFLOW for a text of `needed` bytes without its terminator.
COD_COLD CodResult raiseBufferTooSmall(CodUint32 needed, CodUint32 bufSize);

}  // namespace cod
