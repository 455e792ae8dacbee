// Scale and precision: fitting to columns, clamping, canonical forms, rounding.

#include <algorithm>

#include "number/ani_number_internal.h"

namespace cod {
namespace {

// A coefficient without its last digits, and what they were.
struct Cut {
    U128 kept;
    bool isExact;
    CodInt32 toHalf;  // what was cut compared with half a unit: -1 below, 0 a tie, 1 above

    bool isHalfUp() const {
        return !isExact && toHalf >= 0;
    }
};

Cut cutCoefficient(U128 value, CodUint64 digits) {
    if (digits > kMaxPower128) {
        // Below half of 10^39.
        return {0, value == 0, -1};
    }
    U128 rest;
    const U128 kept = divPow10(value, static_cast<CodUint32>(digits), rest);
    const U128 half = pow10(static_cast<CodUint32>(digits)) / 2;
    return {kept, rest == 0, static_cast<CodInt32>(rest > half) - static_cast<CodInt32>(rest < half)};
}

// Whether the coefficient has at most so many digits.
bool isBelowPow10(U128 value, CodInt64 digits) {
    return digits > static_cast<CodInt64>(kMaxPower128) || value < (digits < 0 ? 1 : pow10(static_cast<CodUint32>(digits)));
}

constexpr bool isExponent(CodInt64 exp) {
    return exp >= INT16_MIN && exp <= INT16_MAX;
}

CodResult raisePrecision() {
    return codRaise(ERR_CMM_NUMERIC_PREC_TOO_LARGE);
}

// A fit of zero leaves it as it is, of another value that becomes zero gives the canonical one.
CodResult fitNumber(CodNumber *n, CodInt32 precision, CodInt32 scale, bool isRounded) {
    if (n == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(n);
    const CodInt64 widening = CodInt64{a.exp} + scale;
    if (a.value == 0) {
        return COD_SUCCESS;
    }
    if (widening >= precision) {
        return raisePrecision();
    }
    U128 fitted;
    if (widening >= 0) {
        // A precision beyond 38, which no column has, may allow more than a coefficient's 128 bits hold.
        const bool isHeld =
            widening <= static_cast<CodInt64>(kMaxPower128) && a.value <= ~U128{0} / pow10(static_cast<CodUint32>(widening));
        if (!isHeld || !isBelowPow10(a.value, precision - widening)) {
            return raisePrecision();
        }
        fitted = a.value * pow10(static_cast<CodUint32>(widening));
    } else {
        const Cut cut = cutCoefficient(a.value, static_cast<CodUint64>(-widening));
        fitted = cut.kept + (isRounded ? cut.isHalfUp() : a.negative != 0 && !cut.isExact);
        if (!isBelowPow10(fitted, precision)) {
            return raisePrecision();
        }
    }
    const CodInt64 exp = fitted == 0 ? 0 : -CodInt64{scale};
    if (!isExponent(exp)) {
        return raisePrecision();
    }
    storeCanonical(n, fitted, static_cast<CodInt32>(exp), a.negative);
    return COD_SUCCESS;
}

bool roundsAway(CodRoundMode mode, const Cut &cut, bool isNegative) {
    switch (mode) {
        case COD_ROUND_HALF_UP:
            return cut.toHalf >= 0;
        case COD_ROUND_HALF_EVEN:
            return cut.toHalf > 0 || (cut.toHalf == 0 && (cut.kept & 1) != 0);
        case COD_ROUND_HALF_DOWN:
            return cut.toHalf > 0;
        case COD_ROUND_UP:
            return true;
        case COD_ROUND_DOWN:
            return false;
        case COD_ROUND_CEILING:
            return !isNegative;
        case COD_ROUND_FLOOR:
            return isNegative;
    }
    return false;
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codNumberRound(CodNumber *n, CodInt32 precision, CodInt32 scale) {
    return fitNumber(n, precision, scale, true);
}

CodResult codNumberFloor(CodNumber *n, CodInt32 precision, CodInt32 scale) {
    return fitNumber(n, precision, scale, false);
}

CodResult codNumberRoundToPrecision(CodNumber *n, CodInt32 precision, CodInt32 highestExp, CodInt32 lowestExp, CodBool truncate) {
    if (n == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(n);
    if (a.value == 0) {
        storeZero(n);
        return COD_SUCCESS;
    }
    const CodInt64 digits = digits128(a.value);
    const CodInt64 excess = digits - precision;
    CodInt64 cutDigits;
    if (a.exp < lowestExp) {
        cutDigits = CodInt64{lowestExp} - a.exp;
        cutDigits += digits - cutDigits > precision ? excess : 0;
    } else if (a.exp > highestExp) {
        const CodInt64 widening = CodInt64{a.exp} - highestExp;
        const bool fitsPrecision = digits + widening <= precision;
        if (!fitsPrecision || !isExponent(highestExp) || !isBelowPow10(a.value, COD_NUMBER_DIGITS - widening)) {
            return raiseNumericOverflow();
        }
        storeNumber(n, a.value * pow10(static_cast<CodUint32>(widening)), highestExp, a.negative);
        return COD_SUCCESS;
    } else {
        cutDigits = excess;
    }
    if (cutDigits <= 0) {
        return COD_SUCCESS;
    }
    if (cutDigits > kMaxPower) {
        storeZero(n);
        return COD_SUCCESS;
    }
    const Cut cut = cutCoefficient(a.value, static_cast<CodUint64>(cutDigits));
    const U128 kept = cut.kept + (!truncate && cut.isHalfUp());
    const CodInt64 exp = a.exp + cutDigits;
    storeCanonical(n, kept, static_cast<CodInt32>(exp), a.negative);
    if (kept == 0 ? highestExp < 0 : exp > highestExp || !isExponent(exp)) {
        return raiseNumericOverflow();
    }
    return COD_SUCCESS;
}

CodInt32 codNumberForceAlign(CodNumber *n, CodInt32 precision, CodInt32 scale, CodInt32 *overflow) {
    CodInt32 ignored;
    CodInt32 *isClamped = overflow == nullptr ? &ignored : overflow;
    *isClamped = 0;
    if (n == nullptr) {
        return 0;
    }
    const Operand a = loadOperand(n);
    const CodInt32 digits = std::clamp(precision, 0, COD_NUMBER_DIGITS);
    const CodInt32 exp = -std::clamp(scale, -INT16_MAX, -INT16_MIN);
    const CodInt32 widening = a.exp - exp;
    U128 fitted = 0;
    CodInt32 change = 0;  // of the magnitude
    bool fits = true;
    if (a.value != 0 && widening >= 0) {
        fits = digits >= widening && isBelowPow10(a.value, digits - widening);
        fitted = fits ? a.value * pow10(static_cast<CodUint32>(widening)) : 0;
    } else {
        const Cut cut = cutCoefficient(a.value, static_cast<CodUint64>(widening < 0 ? -widening : 0));
        fitted = cut.kept + cut.isHalfUp();
        change = cut.isExact ? 0 : cut.isHalfUp() ? 1 : -1;
        fits = isBelowPow10(fitted, digits);
    }
    if (!fits) {
        *isClamped = 1;
        fitted = pow10(static_cast<CodUint32>(digits)) - 1;
        change = -1;
    }
    storeNumber(n, fitted, exp, fitted == 0 ? 0 : a.negative);
    return a.negative ? -change : change;
}

CodResult codNumberNormalize(CodNumber *n) {
    if (n == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(n);
    if (a.value == 0 || a.exp == 0) {
        return COD_SUCCESS;
    }
    U128 value = a.value;
    CodInt32 exp = a.exp;
    if (exp < 0) {
        exp += static_cast<CodInt32>(stripZeros(value, static_cast<CodUint32>(-exp)));
    } else {
        const CodInt32 room = COD_NUMBER_DIGITS - static_cast<CodInt32>(digits128(value));
        const CodInt32 widening = std::clamp(exp, 0, std::max(room, 0));
        value *= pow10(static_cast<CodUint32>(widening));
        exp -= widening;
    }
    storeNumber(n, value, exp, a.negative);
    return COD_SUCCESS;
}

CodResult codNumberFloorOrCeil(CodNumber *n, CodBool isCeil) {
    return codNumberRoundMode(n, 0, isCeil ? COD_ROUND_CEILING : COD_ROUND_FLOOR);
}

CodResult codNumberToInt64FloorOrCeil(const CodNumber *n, CodInt64 *v, CodBool isCeil) {
    if (n == nullptr) {
        return raiseNull();
    }
    CodNumber integer = *n;
    COD_TRY(codNumberFloorOrCeil(&integer, isCeil));
    return codNumberToInt64(&integer, v);
}

CodResult codNumericFloatRound(CodNumber *number, CodInt32 floatPrecision) {
    if (floatPrecision < 1) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "a precision of FLOAT is at least 1");
    }
    const CodInt64 digits = (CodInt64{floatPrecision} * 30103 + 99999) / 100000;
    return codNumberRoundToPrecision(number, static_cast<CodInt32>(digits), INT16_MAX, INT16_MIN, false);
}

CodResult codNumericFloatFloor(CodNumber *number) {
    return codNumberFloorOrCeil(number, false);
}

CodResult codNumberRoundMode(CodNumber *n, CodInt32 scale, CodRoundMode mode) {
    if (n == nullptr) {
        return raiseNull();
    }
    if (mode < COD_ROUND_HALF_UP || mode > COD_ROUND_FLOOR) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "unknown rounding mode");
    }
    const Operand a = loadOperand(n);
    const CodInt64 widening = CodInt64{a.exp} + scale;
    if (a.value == 0) {
        storeZero(n);
        return COD_SUCCESS;
    }
    if (widening >= 0) {
        return COD_SUCCESS;
    }
    const Cut cut = cutCoefficient(a.value, static_cast<CodUint64>(-widening));
    const U128 kept = cut.kept + (!cut.isExact && roundsAway(mode, cut, a.negative != 0));
    // Far beyond the range all exponents are alike.
    const CodInt32 exp = static_cast<CodInt32>(std::min(-CodInt64{scale}, CodInt64{INT16_MAX}));
    return storeRounded(widen(kept), exp, a.negative, n);
}
