// Native integers.

#include <limits>

#include "number/ani_number_internal.h"

namespace cod {
namespace {

struct NativeRule {
    const char *typeName;
    CodInt32 maxExp;  // larger exponents are refused unseen
    bool anyForm;     // every form of a value in range is accepted
    CodUint64 max;
    CodUint64 minMagnitude;
};

template <class Native>
constexpr NativeRule nativeRule(const char *typeName, CodInt32 maxExp, bool anyForm = false) {
    using Limits = std::numeric_limits<Native>;
    const CodUint64 max = static_cast<CodUint64>(Limits::max());
    return {typeName, maxExp, anyForm, max, Limits::is_signed ? max + 1 : 0};
}

constexpr NativeRule kTinyint = nativeRule<CodInt8>("TINYINT", 2);
constexpr NativeRule kSmallint = nativeRule<CodInt16>("SMALLINT", 5);
constexpr NativeRule kInteger = nativeRule<CodInt32>("INTEGER", 9);
constexpr NativeRule kBigint = nativeRule<CodInt64>("BIGINT", 19);
constexpr NativeRule kUtinyint = nativeRule<CodUint8>("UNSIGNED TINYINT", 2);
constexpr NativeRule kUsmallint = nativeRule<CodUint16>("UNSIGNED SMALLINT", 4);
constexpr NativeRule kUinteger = nativeRule<CodUint32>("UNSIGNED INTEGER", 9);
constexpr NativeRule kUbigint = nativeRule<CodUint64>("UNSIGNED BIGINT", std::numeric_limits<CodInt16>::max(), true);

COD_COLD CodResult raiseTooLarge(const char *typeName) {
    return codRaise(ERR_CMM_NUMERIC_TOO_LARGE, typeName);
}

COD_COLD CodResult raiseOutOfRange(const char *typeName, bool isNegative) {
    return isNegative ? codRaise(ERR_CMM_NUMERIC_TOO_SMALL, typeName) : raiseTooLarge(typeName);
}

// The magnitude of the integer part; `exp` below 0.
U128 integerPart(U128 value, CodInt32 exp, bool isRounded, bool anyForm) {
    constexpr CodInt32 lowest = -static_cast<CodInt32>(kMaxPower128);
    if (exp < lowest) {
        return 0;
    }
    // The only value that 38 digits can round to here.
    if (exp == lowest && isRounded && !anyForm) {
        return value >= kPow10_38 / 2;
    }
    const CodUint32 cut = static_cast<CodUint32>(-exp);
    U128 rest;
    const U128 kept = divPow10(value, cut, rest);
    return kept + (isRounded && rest >= pow10(cut) / 2);
}

template <class Native>
CodResult toNative(const CodNumber *n, const NativeRule &rule, bool isRounded, Native *v) {
    if (n == nullptr || v == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(n);
    const bool isNegative = a.negative != 0 && a.value != 0;
    if (a.exp > rule.maxExp) {
        return raiseOutOfRange(rule.typeName, isNegative);
    }
    U128 magnitude = a.value;
    if (a.exp > 0) {
        // The widest type has 20 digits.
        const bool fits = a.value == 0 || (a.exp < 20 && a.value <= rule.max / pow10(static_cast<CodUint32>(a.exp)));
        if (!fits) {
            return rule.anyForm ? raiseOutOfRange(rule.typeName, isNegative) : raiseTooLarge("datatype");
        }
        magnitude = a.value == 0 ? 0 : a.value * pow10(static_cast<CodUint32>(a.exp));
    } else if (a.exp < 0) {
        magnitude = integerPart(a.value, a.exp, isRounded, rule.anyForm);
    }
    if (magnitude > (isNegative ? rule.minMagnitude : rule.max)) {
        return raiseOutOfRange(rule.typeName, isNegative);
    }
    const CodUint64 bits = lowOf(magnitude);
    *v = static_cast<Native>(isNegative ? 0 - bits : bits);
    return COD_SUCCESS;
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codNumberToInt8(const CodNumber *n, CodInt8 *v) {
    return toNative(n, kTinyint, true, v);
}

CodResult codNumberToInt8Floor(const CodNumber *n, CodInt8 *v) {
    return toNative(n, kTinyint, false, v);
}

CodResult codNumberToInt16(const CodNumber *n, CodInt16 *v) {
    return toNative(n, kSmallint, true, v);
}

CodResult codNumberToInt16Floor(const CodNumber *n, CodInt16 *v) {
    return toNative(n, kSmallint, false, v);
}

CodResult codNumberToInt32(const CodNumber *n, CodInt32 *v) {
    return toNative(n, kInteger, true, v);
}

CodResult codNumberToInt32Floor(const CodNumber *n, CodInt32 *v) {
    return toNative(n, kInteger, false, v);
}

CodResult codNumberToInt64(const CodNumber *n, CodInt64 *v) {
    return toNative(n, kBigint, true, v);
}

CodResult codNumberToInt64Truncate(const CodNumber *n, CodInt64 *v) {
    return toNative(n, kBigint, false, v);
}

CodResult codNumberToUint8(const CodNumber *n, CodUint8 *v) {
    return toNative(n, kUtinyint, true, v);
}

CodResult codNumberToUint16(const CodNumber *n, CodUint16 *v) {
    return toNative(n, kUsmallint, true, v);
}

CodResult codNumberToUint32(const CodNumber *n, CodUint32 *v) {
    return toNative(n, kUinteger, true, v);
}

CodResult codNumberToUint64(const CodNumber *n, CodUint64 *v) {
    return toNative(n, kUbigint, true, v);
}

CodResult codNumberFromInt64(CodNumber *n, CodInt64 v) {
    if (n == nullptr) {
        return raiseNull();
    }
    const CodUint64 bits = static_cast<CodUint64>(v);
    storeNumber(n, v < 0 ? 0 - bits : bits, 0, v < 0);
    return COD_SUCCESS;
}

CodResult codNumberFromUint64(CodNumber *n, CodUint64 v) {
    if (n == nullptr) {
        return raiseNull();
    }
    storeNumber(n, v, 0, 0);
    return COD_SUCCESS;
}
