// Binary floating point.

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <limits>

#include "number/ani_number_internal.h"

namespace cod {
namespace {

// ---- To binary floating point ----

COD_COLD CodResult raiseNotANumber() {
    return codRaise(ERR_CMM_TYPECONV_ERROR, "not a valid number");
}

// Powers of ten that a double holds exactly.
constexpr double kExactPowers[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                   1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr CodInt32 kMaxExactPower = 22;

// 5^27 is the largest power that fits a word.
constexpr CodUint32 kPow5Step = 27;

CodUint64 wordPow5(CodUint32 exponent) {
    return lowOf(kPowers.reciprocals[exponent].pow5);
}

// A positive integer of any length that conversions need, and whether less than a unit of it has been dropped.
struct Wide {
    // A coefficient times a power of ten above 10^350, or 2^1300 times one, needs no more.
    CodUint64 words[24];
    CodUint32 count = 0;
    bool isInexact = false;

    explicit Wide(U128 value) {
        words[0] = lowOf(value);
        words[1] = highOf(value);
        count = words[1] != 0 ? 2 : 1;
    }

    CodUint32 bits() const {
        return 64 * (count - 1) + bitLength(words[count - 1]);
    }

    void multiply(CodUint64 factor) {
        CodUint64 carry = 0;
        for (CodUint32 i = 0; i < count; i++) {
            const U128 product = U128{words[i]} * factor + carry;
            words[i] = lowOf(product);
            carry = highOf(product);
        }
        if (carry != 0) {
            words[count++] = carry;
        }
    }

    void divide(CodUint64 divisor) {
        CodUint64 rest = 0;
        for (CodUint32 i = count; i > 0; i--) {
            words[i - 1] = div128By64(rest, words[i - 1], divisor, rest);
        }
        isInexact |= rest != 0;
        while (words[count - 1] == 0) {
            count--;
        }
    }

    void shiftLeftByWords(CodUint32 shift) {
        std::memmove(words + shift, words, count * sizeof(words[0]));
        std::memset(words, 0, shift * sizeof(words[0]));
        count += shift;
    }

    // The top 64 bits, the first one set; the rest only tells whether the value is above them.
    CodUint64 top(bool &isAbove) const {
        const CodUint64 high = words[count - 1];
        const CodUint64 low = count > 1 ? words[count - 2] : 0;
        const CodUint32 shift = 64 - bitLength(high);
        isAbove = isInexact || lowOf(U128{low} << shift) != 0;
        for (CodUint32 i = 0; i + 2 < count; i++) {
            isAbove |= words[i] != 0;
        }
        return highOf(makeU128(high, low) << shift);
    }
};

// mantissa * 2^exponent rounded to the nearest value of the type, ties to even; the mantissa's top bit is set, and isAbove says that the
// value lies between it and the next. Infinite when it is beyond the type.
template <class Float>
Float roundToFloat(CodUint64 mantissa, CodInt32 exponent, bool isAbove) {
    using Limits = std::numeric_limits<Float>;
    // Subnormal values have fewer digits.
    const CodInt32 missing = std::max(0, Limits::min_exponent - (exponent + 64));
    const CodInt32 digits = Limits::digits - missing;
    if (digits < 0) {
        return 0;
    }
    const CodUint32 drop = static_cast<CodUint32>(64 - digits);
    const U128 unit = U128{1} << drop;
    const U128 rest = mantissa & (unit - 1);
    CodUint64 kept = lowOf(U128{mantissa} >> drop);
    kept += rest > unit / 2 || (rest == unit / 2 && (isAbove || (kept & 1) != 0));
    return std::ldexp(static_cast<Float>(kept), exponent + static_cast<CodInt32>(drop));
}

// Decimal magnitudes beyond which every value is infinite, or zero, in both types.
constexpr CodInt32 kInfiniteMagnitude = 310;
constexpr CodInt32 kZeroMagnitude = -330;

// value * 10^exp for a value that is not zero, by exact integers.
template <class Float>
Float toNearestFloat(U128 value, CodInt32 exp) {
    const CodInt32 magnitude = exp + static_cast<CodInt32>(digits128(value));
    if (magnitude > kInfiniteMagnitude) {
        return std::numeric_limits<Float>::infinity();
    }
    if (magnitude < kZeroMagnitude) {
        return 0;
    }
    // The power of two is a matter of the exponent, the power of five of the integer.
    Wide wide(value);
    CodInt32 exponent = exp;
    CodUint32 left = static_cast<CodUint32>(exp < 0 ? -exp : exp);
    if (exp < 0) {
        // 64 bits and one more stay after 5^left has been divided out, which takes 2.33 bits for each power.
        const CodUint32 shift = (left * 7 / 3 + 65) / 64 + 1;
        wide.shiftLeftByWords(shift);
        exponent -= static_cast<CodInt32>(64 * shift);
    }
    for (CodUint32 step = 0; left > 0; left -= step) {
        step = std::min(left, kPow5Step);
        exp < 0 ? wide.divide(wordPow5(step)) : wide.multiply(wordPow5(step));
    }
    bool isAbove;
    const CodUint64 mantissa = wide.top(isAbove);
    return roundToFloat<Float>(mantissa, exponent + static_cast<CodInt32>(wide.bits()) - 64, isAbove);
}

}  // namespace

double nearestDouble(U128 value, CodInt32 exp) {
    if (value < U128{1} << 53 && exp >= -kMaxExactPower && exp <= kMaxExactPower) {
        // Two exact operands: their product or quotient is rounded once.
        const double coefficient = static_cast<double>(lowOf(value));
        return exp < 0 ? coefficient / kExactPowers[-exp] : coefficient * kExactPowers[exp];
    }
    return value != 0 ? toNearestFloat<double>(value, exp) : 0;
}

namespace {

template <class Float>
CodResult toFloat(const CodNumber *n, Float *v) {
    if (n == nullptr || v == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(n);
    Float result = 0;
    if constexpr (std::is_same_v<Float, double>) {
        result = nearestDouble(a.value, a.exp);
    } else if (a.value != 0) {
        result = toNearestFloat<Float>(a.value, a.exp);
    }
    if (std::isinf(result)) {
        return raiseNotANumber();
    }
    *v = a.negative != 0 && a.value != 0 ? -result : result;
    return COD_SUCCESS;
}

// ---- From binary floating point ----

template <class Float>
CodResult fromFloatShortest(CodNumber *n, Float v) {
    if (n == nullptr) {
        return raiseNull();
    }
    if (!std::isfinite(v)) {
        return raiseNotANumber();
    }
    char str[COD_NUMBER_TEXT_SIZE];
    const char *end = std::to_chars(str, str + sizeof(str), v, std::chars_format::scientific).ptr;
    const CodText text = {str, static_cast<CodUint32>(end - str), 0};
    return codNumberFromText(&text, n);
}

// The coefficient and exponent of bits * 2^exponent2, as the steps give them.
struct Decimal {
    U128 value;
    CodInt32 exp;
};

// Works off 2^-count: halves what is even, else multiplies by 5 against a power of ten, else drops the lowest bit.
Decimal workOffHalves(CodUint64 bits, CodUint32 count) {
    Decimal decimal = {bits, 0};
    CodUint32 left = count;
    while (left > 0) {
        if ((decimal.value & 1) != 0 && left >= kPow5Step && highOf(decimal.value) == 0) {
            // 27 steps at once: odd stays odd, and nothing leaves 128 bits.
            decimal.value *= wordPow5(kPow5Step);
            decimal.exp -= static_cast<CodInt32>(kPow5Step);
            left -= kPow5Step;
            continue;
        }
        if ((decimal.value & 1) != 0 && decimal.value <= ~U128{0} / 5) {
            decimal.value *= 5;
            decimal.exp--;
        } else {
            decimal.value >>= 1;
        }
        left--;
    }
    return decimal;
}

// Works off 2^count: doubles while the top bit is clear, else divides by 5 for a power of ten.
Decimal workOffDoublings(CodUint64 bits, CodUint32 count) {
    Decimal decimal = {bits, 0};
    for (CodUint32 left = count; left > 0; left--) {
        if (highOf(decimal.value) >> 63 == 0) {
            decimal.value <<= 1;
        } else {
            decimal.value /= 5;
            decimal.exp++;
        }
    }
    return decimal;
}

// Cuts to `digits` digits one at a time, and rounds by the last one cut alone.
void cutToDigits(Decimal &decimal, CodUint32 digits) {
    const CodUint32 have = digits128(decimal.value);
    if (have > digits) {
        const CodUint32 cut = have - digits;
        U128 ignored;
        U128 lastDigit;
        decimal.value = divPow10(divPow10(decimal.value, cut - 1, ignored), 1, lastDigit);
        decimal.value += static_cast<U128>(lastDigit >= 5);
        decimal.exp += static_cast<CodInt32>(cut);
    }
    if (decimal.exp < 0) {
        decimal.exp += static_cast<CodInt32>(stripZeros(decimal.value, static_cast<CodUint32>(-decimal.exp)));
    }
}

// Beyond these no value of 64 bits is in range, and the steps need not be taken.
constexpr CodInt32 kLowestExponent2 = -600;
constexpr CodInt32 kHighestExponent2 = 600;

template <class Float, class Bits>
CodResult fromFloat(CodNumber *n, Float v) {
    if (!std::isfinite(v)) {
        return raiseNotANumber();
    }
    constexpr CodUint32 fractionBits = std::numeric_limits<Float>::digits - 1;
    constexpr CodInt32 bias = std::numeric_limits<Float>::max_exponent - 1 + static_cast<CodInt32>(fractionBits);
    const Bits image = std::bit_cast<Bits>(v);
    const Bits fraction = image & ((Bits{1} << fractionBits) - 1);
    const CodInt32 biased = static_cast<CodInt32>(image >> fractionBits) & (2 * std::numeric_limits<Float>::max_exponent - 1);
    // A subnormal has no hidden bit, and the exponent of the smallest normal value.
    const Bits mantissa = biased == 0 ? fraction : fraction | Bits{1} << fractionBits;
    const CodInt32 exponent2 = (biased == 0 ? 1 : biased) - bias;
    return bits2Number(mantissa, exponent2, std::signbit(v) ? 1 : 0, sizeof(Float) == sizeof(CodDouble), n);
}

}  // namespace
}  // namespace cod

using namespace cod;

// ---- The interface ----

CodResult codNumberToDouble(const CodNumber *n, CodDouble *v) {
    return toFloat(n, v);
}

CodResult codNumberToFloat(const CodNumber *n, CodFloat *v) {
    return toFloat(n, v);
}

CodResult codNumberFromDouble(CodNumber *n, CodDouble v) {
    return fromFloat<CodDouble, CodUint64>(n, v);
}

CodResult codNumberFromFloat(CodNumber *n, CodFloat v) {
    return fromFloat<CodFloat, CodUint32>(n, v);
}

CodResult codNumberFromDoubleShortest(CodNumber *n, CodDouble v) {
    return fromFloatShortest(n, v);
}

CodResult codNumberFromFloatShortest(CodNumber *n, CodFloat v) {
    return fromFloatShortest(n, v);
}

CodResult bits2Number(CodUint64 bits, CodInt32 exponent2, CodInt8 sign, CodBool isDouble, CodNumber *result) {
    if (result == nullptr) {
        return raiseNull();
    }
    if (bits == 0 || exponent2 < kLowestExponent2) {
        storeZero(result);
        return COD_SUCCESS;
    }
    if (exponent2 > kHighestExponent2) {
        return raiseNumericOverflow();
    }
    Decimal decimal =
        exponent2 < 0 ? workOffHalves(bits, static_cast<CodUint32>(-exponent2)) : workOffDoublings(bits, static_cast<CodUint32>(exponent2));
    cutToDigits(decimal, isDouble ? 17 : 9);
    return storeRounded(widen(decimal.value), decimal.exp, sign != 0, result);
}
