#define COD_NO_INLINE
#include <vel_infra/number/ani_number.h>

#include <cmath>

#include "number/ani_number_internal.h"

namespace cod {

CodResult storeUncommon(const U256 &value, CodInt32 exp, CodUint64 negative, CodNumber *result) {
    const CodInt32 magnitude = exp + static_cast<CodInt32>(digits256(value));
    if (isZero(value) || magnitude < COD_NUMBER_MIN_MAGNITUDE) {
        storeZero(result);
        return COD_SUCCESS;
    }
    if (magnitude > COD_NUMBER_MAX_MAGNITUDE) {
        return raiseNumericOverflow();
    }
    storeNumber(result, lowHalf(value), exp, negative);
    return COD_SUCCESS;
}

// ---- Adding and subtracting ----

namespace {

// Operands whose exponents are this far apart are not aligned: 256 bits would not hold the sum.
constexpr CodInt32 kFarGap = 39;

// aligned + other, or aligned - other when their signs differ, at one exponent; `negative` is the sign of aligned.
inline CodResult combine(const U256 &aligned, U128 other, CodUint64 differ, CodUint64 negative, CodInt32 exp, CodNumber *result) {
    const CodUint64 mask = 0 - differ;
    U256 sum;
    CodUint8 carry = addCarry(static_cast<CodUint8>(differ), aligned.w[0], lowOf(other) ^ mask, sum.w[0]);
    carry = addCarry(carry, aligned.w[1], highOf(other) ^ mask, sum.w[1]);
    carry = addCarry(carry, aligned.w[2], mask, sum.w[2]);
    carry = addCarry(carry, aligned.w[3], mask, sum.w[3]);
    // A difference below zero carries nothing out of the top. A sum never does: it has at most 78 digits.
    const CodUint64 isBelow = differ & ~CodUint64{carry};
    return storeRounded(negateIf(isBelow, sum), exp, negative ^ isBelow, result);
}

// larger has the larger exponent, by kFarGap or more.
COD_COLD CodResult addFar(const Operand &larger, const Operand &smaller, CodNumber *result) {
    if (larger.value == 0 || smaller.value == 0) {
        const Operand &other = larger.value == 0 ? smaller : larger;
        storeCanonical(result, other.value, other.exp, other.negative);
        return COD_SUCCESS;
    }
    const CodInt32 gap = larger.exp - smaller.exp;
    const CodInt32 reach = static_cast<CodInt32>(digits128(smaller.value)) - static_cast<CodInt32>(digits128(larger.value));
    if (gap - reach >= kFarGap) {
        storeNumber(result, larger.value, larger.exp, larger.negative);
        return COD_SUCCESS;
    }
    // The smaller operand has at least one digit more than are cut, so that something is left of it.
    const CodUint32 cut = static_cast<CodUint32>(gap) - kMaxPower128;
    const CodUint64 differ = larger.negative ^ smaller.negative;
    U128 lastDigit;
    U128 ignored;
    U128 kept = divPow10(divPow10(smaller.value, cut - 1, ignored), 1, lastDigit);
    // What a sum drops, a difference rounds.
    kept += static_cast<U128>(differ != 0 && lastDigit >= 5);
    const CodInt32 exp = larger.exp - static_cast<CodInt32>(kMaxPower128);
    return combine(mul128(larger.value, kPow10_38), kept, differ, larger.negative, exp, result);
}

}  // namespace

CodResult addGeneral(const CodNumber *n1, const CodNumber *n2, CodUint64 flip, CodNumber *result) {
    const CodInt32 difference = CodInt32{n1->exp} - n2->exp;
    const CodUint64 isSwapped = difference < 0;
    const CodInt32 gap = isSwapped != 0 ? -difference : difference;
    // By address and not by a branch: which operand has the larger exponent is as random as the data.
    Operand larger = loadOperand(isSwapped != 0 ? n2 : n1);
    Operand smaller = loadOperand(isSwapped != 0 ? n1 : n2);
    larger.negative ^= flip & isSwapped;
    smaller.negative ^= flip & (isSwapped ^ 1);
    if (COD_UNLIKELY(gap >= kFarGap)) {
        return addFar(larger, smaller, result);
    }
    const U128 power = pow10(static_cast<CodUint32>(gap));
    const CodUint64 differ = larger.negative ^ smaller.negative;
    // Most gaps are short, and their power a single word.
    if (highOf(power) == 0) {
        return combine(mulWord(larger.value, lowOf(power)), smaller.value, differ, larger.negative, smaller.exp, result);
    }
    return combine(mul128(larger.value, power), smaller.value, differ, larger.negative, smaller.exp, result);
}

// ---- Multiplying and dividing ----

CodResult mulGeneral(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    const Operand a = loadOperand(n1);
    const Operand b = loadOperand(n2);
    // A zero product is zero whatever the exponents.
    return storeRounded(mul128(a.value, b.value), a.exp + b.exp, a.negative ^ b.negative, result);
}

namespace {

// dividend * 10^(38 + shift) / divisor for a divisor of 39 digits, whose scaled dividend may exceed 256 bits: the last digit of the
// quotient comes from the remainder.
COD_COLD U256 divideWide(U128 dividend, CodUint32 shift, U128 divisor, U128 &remainder) {
    U256 scaled;
    mul256(widen(dividend), kPowers.pow10Wide[kMaxPower128 + shift - 1], scaled);
    const U256 quotient = divide256(scaled, divisor, remainder);
    const U256 digit = divide256(mul128(remainder, 10), divisor, remainder);
    U256 result;
    mul256(quotient, widen(10), result);
    add256(result, digit, result);
    return result;
}

// The steps as they are stated: a quotient of 38 digits or more, rounded to an integer and then to 38 digits. The operands are not zero.
COD_COLD CodResult divByTheSteps(const Operand &a, const Operand &b, CodNumber *result) {
    const CodUint32 digits1 = digits128(a.value);
    const CodUint32 digits2 = digits128(b.value);
    const CodUint32 shift = digits2 > digits1 ? digits2 - digits1 : 0;
    U128 remainder;
    U256 quotient;
    if (shift > 0 && digits2 > COD_NUMBER_DIGITS) {
        quotient = divideWide(a.value, shift, b.value, remainder);
    } else {
        // Brought to the divisor's digits the dividend still fits 128 bits.
        quotient = divide256(mul128(a.value * pow10(shift), kPow10_38), b.value, remainder);
    }
    const U128 isHalf = remainder >= b.value - remainder;
    add256(quotient, widen(isHalf), quotient);
    const CodInt32 exp = a.exp - b.exp - static_cast<CodInt32>(kMaxPower128 + shift);
    return storeRounded(quotient, exp, a.negative ^ b.negative, result);
}

// The quotient of 38 digits that the steps lead to, found at once: dividend * 10^power / divisor, where power is such that the quotient
// has 38 digits. Of the two roundings the first one matters only when the digits that it takes away stand less than half a unit of the
// last of them below a half of the 38th. When the quotient grows to 10^38 the steps decide.
struct Quotient {
    U128 value;
    CodInt32 power;
};

template <class Integer>
inline Quotient divideOnce(Integer dividend, Integer divisor, CodUint32 digits1, CodUint32 digits2) {
    const bool isShorter = digits1 < digits2;
    const CodUint32 difference = isShorter ? digits2 - digits1 : digits1 - digits2;
    const Integer power = static_cast<Integer>(pow10(difference));
    // Whether the digits of the dividend, as a fraction, are not below those of the divisor.
    const CodUint32 isAbove = isShorter ? dividend * power >= divisor : dividend >= divisor * power;
    const CodUint32 exponent = kMaxPower128 + digits2 - digits1 - isAbove;
    const U128 scaled = exponent > kMaxPower128 ? dividend * pow10(exponent - kMaxPower128) : U128{dividend};
    const U256 numerator = mul128(scaled, pow10(exponent > kMaxPower128 ? kMaxPower128 : exponent));
    U128 quotient;
    Integer remainder;
    if constexpr (sizeof(Integer) == sizeof(CodUint64)) {
        // The quotient has two words.
        CodUint64 rest = numerator.w[2];
        const CodUint64 high = div128By64(rest, numerator.w[1], divisor, rest);
        quotient = makeU128(high, div128By64(rest, numerator.w[0], divisor, rest));
        remainder = rest;
    } else {
        quotient = lowHalf(divide256(numerator, divisor, remainder));
    }
    const Integer toFull = divisor - remainder;
    bool isHalfUp = remainder >= toFull;
    const CodUint32 extraDigits = (isShorter ? 0 : difference) + isAbove;
    // A factor of 8 a digit tells most that are not so near below half.
    if (!isHalfUp && extraDigits > 0 && 3 * extraDigits < 8 * sizeof(Integer) && toFull - remainder <= divisor >> 3 * extraDigits) {
        isHalfUp = !lessThan(widen(divisor), mul128(toFull - remainder, pow10(extraDigits)));
    }
    return {quotient + static_cast<U128>(isHalfUp), static_cast<CodInt32>(exponent)};
}

}  // namespace

CodResult divNumbers(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    const Operand a = loadOperand(n1);
    const Operand b = loadOperand(n2);
    if (COD_UNLIKELY(b.value == 0)) {
        return codRaise(ERR_CMM_DIVISION_BY_ZERO);
    }
    if (COD_UNLIKELY(a.value == 0)) {
        storeZero(result);
        return COD_SUCCESS;
    }
    Quotient quotient = {kPow10_38, 0};
    constexpr CodUint64 wordLimit = 1000000000000000000;  // both sides times a power of ten, up to the other's digits, stay a word
    if (a.value < wordLimit && b.value < wordLimit) {
        const CodUint64 dividend = lowOf(a.value);
        const CodUint64 divisor = lowOf(b.value);
        quotient = divideOnce(dividend, divisor, digits64(dividend), digits64(divisor));
    } else if (a.value < kPow10_38 && b.value < kPow10_38) {
        quotient = divideOnce(a.value, b.value, digits128(a.value), digits128(b.value));
    }
    const CodInt32 exp = a.exp - b.exp - quotient.power;
    if (COD_UNLIKELY(quotient.value >= kPow10_38 || !isMagnitudeHeld(exp + COD_NUMBER_DIGITS))) {
        return divByTheSteps(a, b, result);
    }
    storeNumber(result, quotient.value, exp, a.negative ^ b.negative);
    return COD_SUCCESS;
}

namespace {

// value * 10^power mod divisor.
U128 scaledRemainder(U128 value, CodUint32 power, U128 divisor) {
    U128 rest = value % divisor;
    for (CodUint32 left = power; left > 0 && rest != 0;) {
        const CodUint32 part = left < kMaxPower128 ? left : kMaxPower128;
        divide256(mul128(rest, pow10(part)), divisor, rest);
        left -= part;
    }
    return rest;
}

CodResult modNumbers(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    const Operand a = loadOperand(n1);
    const Operand b = loadOperand(n2);
    const CodInt32 order = b.value == 0 ? -1 : compareMagnitudes(a, b);
    if (order < 0) {
        storeCanonical(result, a.value, a.exp, a.negative);
        return COD_SUCCESS;
    }
    U128 rest;
    if (a.exp >= b.exp) {
        rest = scaledRemainder(a.value, static_cast<CodUint32>(a.exp - b.exp), b.value);
    } else {
        // The divisor is the smaller magnitude: brought to the dividend's exponent it fits its 128 bits.
        rest = a.value % (b.value * pow10(static_cast<CodUint32>(b.exp - a.exp)));
    }
    return storeRounded(widen(rest), a.exp < b.exp ? a.exp : b.exp, a.negative, result);
}

}  // namespace

// ---- Comparing ----

// The order of two magnitudes whose exponents are at most 38 apart.
CodInt32 compareScaled(U128 value1, U128 value2, CodInt32 gap) {
    const bool isSwapped = gap < 0;
    const U128 larger = isSwapped ? value2 : value1;
    const U128 smaller = isSwapped ? value1 : value2;
    const U256 aligned = mul128(larger, pow10(static_cast<CodUint32>(isSwapped ? -gap : gap)));
    const bool isAbove = highHalf(aligned) != 0 || lowHalf(aligned) > smaller;
    const bool isBelow = highHalf(aligned) == 0 && lowHalf(aligned) < smaller;
    const CodInt32 order = static_cast<CodInt32>(isAbove) - static_cast<CodInt32>(isBelow);
    return isSwapped ? -order : order;
}

namespace {

COD_COLD CodInt32 compareNulls(const CodNumber *n1, const CodNumber *n2) {
    return static_cast<CodInt32>(n1 != nullptr) - static_cast<CodInt32>(n2 != nullptr);
}

}  // namespace

// ---- Square root ----

namespace {

// floor(sqrt(value)) for a value from 10^74 to below 10^76. Newton's step doubles the right bits: two bring the 53 of a double to 106 and
// then past all 127, but for the last unit.
U128 squareRoot(const U256 &value) {
    const double approximate = std::ldexp(static_cast<double>(value.w[3]), 192) + std::ldexp(static_cast<double>(value.w[2]), 128);
    U128 root = static_cast<U128>(std::sqrt(approximate));
    for (int i = 0; i < 2; i++) {
        U128 ignored;
        root = (root + lowHalf(divide256(value, root, ignored))) / 2;
    }
    while (lessThan(value, mul128(root, root))) {
        root--;
    }
    while (!lessThan(value, mul128(root + 1, root + 1))) {
        root++;
    }
    return root;
}

}  // namespace

}  // namespace cod

using namespace cod;

// ---- The interface ----

CodResult codNumberAdd(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    return COD_LIKELY(n1 && n2 && result) ? addNumbers(n1, n2, 0, result) : raiseNull();
}

CodResult codNumberSub(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    return COD_LIKELY(n1 && n2 && result) ? addNumbers(n1, n2, 1, result) : raiseNull();
}

CodResult codNumberMul(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    return COD_LIKELY(n1 && n2 && result) ? mulNumbers(n1, n2, result) : raiseNull();
}

CodResult codNumberDiv(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    return COD_LIKELY(n1 && n2 && result) ? divNumbers(n1, n2, result) : raiseNull();
}

CodResult codNumberMod(const CodNumber *n1, const CodNumber *n2, CodNumber *result) {
    return COD_LIKELY(n1 && n2 && result) ? modNumbers(n1, n2, result) : raiseNull();
}

CodResult codNumberSqrt(CodNumber *vNum) {
    if (vNum == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(vNum);
    if (a.value == 0) {
        storeZero(vNum);
        return COD_SUCCESS;
    }
    if (a.negative) {
        return COD_ERROR;
    }
    // Scaled to 75 or 76 digits, whichever leaves an even exponent, the root has 38 digits.
    CodInt32 shift = 76 - static_cast<CodInt32>(digits128(a.value));
    shift -= (a.exp - shift) & 1;
    U256 scaled;
    mul256(widen(a.value), kPowers.pow10Wide[shift], scaled);
    U128 root = squareRoot(scaled);
    // The root is nearer to root + 1 when the rest exceeds root; a tie cannot be, its square would be no integer.
    U256 rest;
    sub256(scaled, mul128(root, root), rest);
    root += static_cast<U128>(lessThan(widen(root), rest));
    COD_TRY(storeRounded(widen(root), (a.exp - shift) / 2, 0, vNum));
    return codNumberNormalize(vNum);
}

CodInt32 codNumberCompare(const CodNumber *n1, const CodNumber *n2) {
    return COD_LIKELY(n1 && n2) ? compareOperands(loadOperand(n1), loadOperand(n2)) : compareNulls(n1, n2);
}
CodInt32 codNumberCompareExported(const CodNumber *n1, const CodNumber *n2) COD_SECOND_NAME(codNumberCompare);

CodInt32 codNumberAbsCompare(const CodNumber *n1, const CodNumber *n2) {
    return COD_LIKELY(n1 && n2) ? compareMagnitudes(loadOperand(n1), loadOperand(n2)) : compareNulls(n1, n2);
}

CodBool codNumberIsInteger(const CodNumber *n) {
    if (n == nullptr) {
        return false;
    }
    Operand a = loadOperand(n);
    if (a.exp >= 0 || a.value == 0) {
        return true;
    }
    const CodUint32 fraction = static_cast<CodUint32>(-a.exp);
    return fraction <= kMaxPower128 && stripZeros(a.value, fraction) == fraction;
}
