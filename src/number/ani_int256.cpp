#include <vel_infra/number/ani_int256.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/error/ani_error_code.h>

#include "number/ani_int256_internal.h"

namespace cod {

// ---- The tables, made by the compiler ----

namespace {

constexpr U256 timesSmall(const U256 &value, CodUint64 factor, CodUint64 &carry) {
    U256 result{};
    for (int i = 0; i < 4; i++) {
        const U128 product = U128{value.w[i]} * factor + carry;
        result.w[i] = lowOf(product);
        carry = highOf(product);
    }
    return result;
}

constexpr CodUint32 bitLength256(const U256 &value) {
    for (CodUint32 i = 4; i > 0; i--) {
        if (value.w[i - 1] != 0) {
            return 64 * (i - 1) + bitLength(value.w[i - 1]);
        }
    }
    return 0;
}

constexpr U128 powerOf5(CodUint32 exponent) {
    U128 result = 1;
    for (CodUint32 i = 0; i < exponent; i++) {
        result *= 5;
    }
    return result;
}

// 2^bits / 10^exponent, below 2^192, by long division. Dividing by 5^exponent keeps the remainder in 128 bits.
constexpr U256 dividePowers(CodUint32 bits, CodUint32 exponent) {
    const U128 divisor = powerOf5(exponent);
    U128 remainder = 1;
    U256 quotient{};
    for (CodUint32 i = exponent; i < bits; i++) {
        remainder <<= 1;
        CodUint64 digit = remainder >= divisor;
        remainder -= digit != 0 ? divisor : 0;
        quotient = timesSmall(quotient, 2, digit);
    }
    return quotient;
}

// The highest word that is not zero, and the one below it.
constexpr U128 topWords(const U256 &value) {
    const CodUint32 top = (bitLength256(value) - 1) / 64;
    return makeU128(value.w[top], top > 0 ? value.w[top - 1] : 0);
}

constexpr PowerTables makePowers() {
    PowerTables tables{};
    tables.pow10Wide[0] = {{1, 0, 0, 0}};
    for (CodUint32 i = 1; i <= kMaxPower + 1; i++) {
        CodUint64 carry = 0;
        tables.pow10Wide[i] = timesSmall(tables.pow10Wide[i - 1], 10, carry);
    }
    for (CodUint32 i = 0; i <= kMaxPower128; i++) {
        tables.pow10[i] = makeU128(tables.pow10Wide[i].w[1], tables.pow10Wide[i].w[0]);
    }
    tables.reciprocals[0] = {~U128{0}, 1, 0};
    for (CodUint32 i = 1; i <= kMaxCut; i++) {
        // With one bit less than 10^i has, the factor has 128 bits.
        const CodUint32 shift = bitLength256(tables.pow10Wide[i]) - 1;
        const U256 factor = dividePowers(128 + shift, i);
        tables.reciprocals[i] = {makeU128(factor.w[1], factor.w[0]), powerOf5(i), shift};

        const CodUint32 digits = kMaxPower128 + i;
        const CodUint32 up = 256 - (digits <= kMaxPower + 1 ? bitLength256(tables.pow10Wide[digits]) : 256);
        const U256 longFactor = dividePowers(320 - up, i);
        tables.longReciprocals[i] = {{longFactor.w[0], longFactor.w[1], longFactor.w[2]}, up};
    }
    for (CodUint32 bits = 1; bits <= 256; bits++) {
        const CodUint32 digits = digitsBelow(bits);
        const U256 &power = tables.pow10Wide[digits];
        tables.digitBounds[bits] = {bitLength256(power) == bits ? topWords(power) : 0, digits};
    }
    return tables;
}

constexpr PowerTables kMadePowers = makePowers();

constexpr bool factorsAreFull() {
    for (const Reciprocal &r : kMadePowers.reciprocals) {
        if (highOf(r.factor) >> 63 == 0) {
            return false;
        }
    }
    return true;
}
static_assert(factorsAreFull());

// A value of `bits` bits has digitsBelow(bits) digits or one more.
constexpr bool digitsBelowHolds() {
    for (CodUint32 bits = 1; bits <= 256; bits++) {
        const CodUint32 digits = digitsBelow(bits);
        const bool tooMany = digits > 1 && bitLength256(kMadePowers.pow10Wide[digits - 1]) >= bits;
        const bool tooFew = digits <= kMaxPower && bitLength256(kMadePowers.pow10Wide[digits + 1]) <= bits;
        if (tooMany || tooFew) {
            return false;
        }
    }
    return true;
}
static_assert(digitsBelowHolds());

constexpr CodHugeInt powerEntry(CodUint32 i) {
    const U256 &power = kMadePowers.pow10Wide[i];
    return {{power.w[0], power.w[1], power.w[2], power.w[3]}};
}

constexpr CodHugeInt roundingEntry(CodUint32 i) {
    if (i == 0) {
        return {};
    }
    CodUint64 carry = 0;
    const U256 half = timesSmall(kMadePowers.pow10Wide[i - 1], 5, carry);
    return {{half.w[0], half.w[1], half.w[2], half.w[3]}};
}

constexpr CodUint8 bytesEntry(CodUint32 i) {
    return i == 0 ? 16 : static_cast<CodUint8>((bitLength256(kMadePowers.pow10Wide[i]) + 7) / 8);
}

}  // namespace

constexpr PowerTables kPowers = kMadePowers;

}  // namespace cod

#define COD_TEN_ENTRIES(entry, i) \
    entry(i), entry(i + 1), entry(i + 2), entry(i + 3), entry(i + 4), entry(i + 5), entry(i + 6), entry(i + 7), entry(i + 8), entry(i + 9)
#define COD_POWER_ENTRIES(entry)                                                                                                        \
    COD_TEN_ENTRIES(entry, 0), COD_TEN_ENTRIES(entry, 10), COD_TEN_ENTRIES(entry, 20), COD_TEN_ENTRIES(entry, 30),                      \
        COD_TEN_ENTRIES(entry, 40), COD_TEN_ENTRIES(entry, 50), COD_TEN_ENTRIES(entry, 60), entry(70), entry(71), entry(72), entry(73), \
        entry(74), entry(75), entry(76)

constinit const CodHugeInt gDecimalExponents[COD_DECIMAL_EXPONENTS] = {COD_POWER_ENTRIES(cod::powerEntry)};
constinit const CodHugeInt gDecimalRoundings[COD_DECIMAL_EXPONENTS] = {COD_POWER_ENTRIES(cod::roundingEntry)};
constinit const CodUint8 gDecimalExponentsBytes[COD_DECIMAL_EXPONENTS] = {COD_POWER_ENTRIES(cod::bytesEntry)};

namespace cod {

// ---- What the folder shares ----

bool mul256(const U256 &left, const U256 &right, U256 &product) {
    CodUint64 words[8] = {};
    for (int i = 0; i < 4; i++) {
        CodUint64 carry = 0;
        for (int j = 0; j < 4; j++) {
            const U128 sum = U128{left.w[i]} * right.w[j] + words[i + j] + carry;
            words[i + j] = lowOf(sum);
            carry = highOf(sum);
        }
        words[i + 4] = carry;
    }
    std::memcpy(product.w, words, sizeof(product.w));
    return (words[4] | words[5] | words[6] | words[7]) != 0;
}

namespace {

// (rest, low) / divisor for a divisor whose top bit is set and rest < divisor; rest becomes the remainder.
// Knuth, The Art of Computer Programming, volume 2, 4.3.1, algorithm D: the quotient of the top words is at most two too large.
inline CodUint64 divideStep(U128 &rest, CodUint64 low, U128 divisor) {
    CodUint64 quotient = ~CodUint64{0};
    U128 partial;  // (rest, low) - quotient * the divisor's high word, as far as 128 bits hold it
    bool isLarger = false;
    if (COD_LIKELY(highOf(rest) < highOf(divisor))) {
        CodUint64 high;
        quotient = div128By64(highOf(rest), lowOf(rest), highOf(divisor), high);
        partial = makeU128(high, low);
    } else {
        // Equal: the quotient of the top words would not fit.
        const U128 high = U128{lowOf(rest)} + highOf(divisor);
        isLarger = highOf(high) != 0;
        partial = makeU128(lowOf(high), low);
    }
    const U128 product = U128{lowOf(divisor)} * quotient;
    while (!isLarger && partial < product) {
        quotient--;
        partial += divisor;
        isLarger = partial < divisor;
    }
    rest = partial - product;
    return quotient;
}

}  // namespace

U256 divide256(const U256 &value, U128 divisor, U128 &remainder) {
    if (highOf(divisor) == 0) {
        CodUint64 rest;
        const U256 quotient = divideByWord(value, lowOf(divisor), rest);
        remainder = rest;
        return quotient;
    }
    const CodUint32 shift = static_cast<CodUint32>(__builtin_clzll(highOf(divisor)));
    const U128 normal = divisor << shift;
    const auto word = [&](int i) { return lowOf(makeU128(value.w[i], i > 0 ? value.w[i - 1] : 0) << shift >> 64); };
    // Five words of value << shift, from the top. The first two are below the divisor; mostly the first is zero, and then the second and
    // third hold the divisor once or not at all.
    U256 quotient{};
    const CodUint64 top = lowOf(U128{value.w[3]} << shift >> 64);
    U128 rest;
    if (top != 0) {
        rest = makeU128(top, word(3));
        quotient.w[2] = divideStep(rest, word(2), normal);
    } else {
        rest = makeU128(word(3), word(2));
        quotient.w[2] = rest >= normal;
        rest -= rest >= normal ? normal : 0;
    }
    quotient.w[1] = divideStep(rest, word(1), normal);
    quotient.w[0] = divideStep(rest, word(0), normal);
    remainder = rest >> shift;
    return quotient;
}

// In units of 2^(cut - 1), half of 10^cut is 5^cut.
Rounded roundExactly(const U256 &value) {
    const CodUint32 cut = digits256(value) - kMaxPower128;
    U256 scaled;
    for (int i = 0; i < 4; i++) {
        scaled.w[i] = lowOf(makeU128(i < 3 ? value.w[i + 1] : 0, value.w[i]) >> (cut - 1));
    }
    const U128 half = kPowers.reciprocals[cut].pow5;
    U128 rest;
    const U128 quotient = lowHalf(divide256(scaled, 2 * half, rest));
    return {quotient + static_cast<U128>(rest >= half), cut};
}

namespace {

// Whether a value is divisible by 5^k, without dividing: its product with the inverse of 5^k modulo 2^128 is then the quotient, and no
// other value's product is as small (Granlund, Montgomery: Division by invariant integers using multiplication, 1994, section 9).
struct ZeroStep {
    U128 inverse;
    U128 bound;
    CodUint32 zeros;
};

constexpr ZeroStep makeZeroStep(CodUint32 zeros) {
    const U128 five = powerOf5(zeros);
    U128 inverse = five;  // right modulo 8; each round doubles the bits
    for (int i = 0; i < 6; i++) {
        inverse *= 2 - five * inverse;
    }
    return {inverse, ~U128{0} / five, zeros};
}

constexpr ZeroStep kZeroSteps[] = {makeZeroStep(32), makeZeroStep(16), makeZeroStep(8), makeZeroStep(4), makeZeroStep(2), makeZeroStep(1)};

CodUint32 trailingBits(U128 value) {
    return static_cast<CodUint32>(lowOf(value) != 0 ? __builtin_ctzll(lowOf(value)) : 64 + __builtin_ctzll(highOf(value)));
}

}  // namespace

CodUint32 stripZeros(U128 &value, CodUint32 limit) {
    CodUint32 left = trailingBits(value);
    left = left < limit ? left : limit;
    CodUint32 stripped = 0;
    for (const ZeroStep &step : kZeroSteps) {
        if (step.zeros <= left) {
            const U128 quotient = value * step.inverse;
            if (quotient <= step.bound) {
                value = quotient >> step.zeros;
                stripped += step.zeros;
                left -= step.zeros;
            }
        }
    }
    return stripped;
}

// ---- Errors ----

CodResult raiseInvalidNumber(const char *str, CodUint32 len, const char *reason) {
    char quoted[128] = {};
    if (len >= sizeof(quoted)) {
        std::memcpy(quoted, str, sizeof(quoted) - 4);
        std::memcpy(quoted + sizeof(quoted) - 4, "...", 4);
    } else if (len > 0) {
        std::memcpy(quoted, str, len);
    }
    return codRaise(ERR_CMM_INVALID_NUMBER, quoted, reason);
}

CodResult raiseBufferTooSmall(CodUint32 needed, CodUint32 bufSize) {
    return codRaise(ERR_CMM_FORMAT_STR_OVERFLOW, needed, bufSize);
}

CodResult raiseNull() {
    return codRaise(ERR_CMM_POINTER_NULL);
}

CodResult raiseNumericOverflow() {
    return codRaise(ERR_CMM_NUMERIC_OVERFLOW);
}

// ---- Records and text ----

namespace {

U128 load(const CodLargeInt &value) {
    return makeU128(value.item64[1], value.item64[0]);
}

U256 load(const CodHugeInt &value) {
    return {{value.item64[0], value.item64[1], value.item64[2], value.item64[3]}};
}

void store(U128 value, CodLargeInt &result) {
    result = {{lowOf(value), highOf(value)}};
}

void store(const U256 &value, CodHugeInt &result) {
    result = {{value.w[0], value.w[1], value.w[2], value.w[3]}};
}

CodResult storeWrapped(const U256 &value, bool lost, CodHugeInt &result) {
    store(value, result);
    return lost ? raiseNumericOverflow() : COD_SUCCESS;
}

CodResult writeHuge(U256 value, CodChar *str, CodUint32 bufSize, CodUint32 *len) {
    if (str == nullptr) {
        return raiseNull();
    }
    const CodUint32 digits = digits256(value);
    const CodUint32 length = digits == 0 ? 1 : digits;
    if (length >= bufSize) {
        return raiseBufferTooSmall(length, bufSize);
    }
    for (CodUint32 i = length; i > 0; i--) {
        CodUint64 digit;
        value = divideByWord(value, 10, digit);
        str[i - 1] = static_cast<char>('0' + digit);
    }
    str[length] = '\0';
    *len = length;
    return COD_SUCCESS;
}

CodResult writeHugeText(const U256 &value, CodText *text, CodUint32 bufSize) {
    return text == nullptr ? raiseNull() : writeHuge(value, text->str, bufSize, &text->len);
}

// Reads digits that stand `step` bytes apart, the bytes between them zero.
CodResult readHuge(const char *str, CodUint32 len, CodUint32 step, U256 &result) {
    if (str == nullptr && len > 0) {
        return raiseNull();
    }
    if (len == 0) {
        return raiseInvalidNumber("", 0, "no digits");
    }
    U256 value{};
    bool lost = false;
    for (CodUint32 i = 0; i < len; i += step) {
        if (str[i] < '0' || str[i] > '9' || len - i < step || (step == 2 && str[i + 1] != 0)) {
            return raiseInvalidNumber(str, len, "not a digit");
        }
        CodUint64 carry = static_cast<CodUint64>(str[i] - '0');
        value = timesSmall(value, 10, carry);
        lost |= carry != 0;
    }
    if (lost) {
        return raiseNumericOverflow();
    }
    result = value;
    return COD_SUCCESS;
}

CodResult readInto(const char *str, CodUint32 len, CodHugeInt *result) {
    if (result == nullptr) {
        return raiseNull();
    }
    U256 value{};
    COD_TRY(readHuge(str, len, 1, value));
    store(value, *result);
    return COD_SUCCESS;
}

CodResult readInto(const char *str, CodUint32 len, CodLargeInt *result, CodUint32 step = 1) {
    if (result == nullptr) {
        return raiseNull();
    }
    U256 value{};
    COD_TRY(readHuge(str, len, step, value));
    if (highHalf(value) != 0) {
        return raiseNumericOverflow();
    }
    store(lowHalf(value), *result);
    return COD_SUCCESS;
}

template <class Integer>
CodResult readStr(const CodChar *str, Integer *result) {
    if (str == nullptr) {
        return raiseNull();
    }
    const size_t len = std::strlen(str);
    constexpr CodUint32 longest = ~CodUint32{0};
    return len <= longest ? readInto(str, static_cast<CodUint32>(len), result) : raiseInvalidNumber(str, longest, "too long");
}

}  // namespace

}  // namespace cod

using namespace cod;

// ---- The interface ----

CodUint32 aniGetDecimalExponentsBytes(CodUint32 index) {
    return index < COD_DECIMAL_EXPONENTS ? gDecimalExponentsBytes[index] : 0;
}

CodResult codMulLargeInt(const CodLargeInt *iLarge1, const CodLargeInt *iLarge2, CodHugeInt *result) {
    if (iLarge1 == nullptr || iLarge2 == nullptr || result == nullptr) {
        return raiseNull();
    }
    return storeWrapped(mul128(load(*iLarge1), load(*iLarge2)), false, *result);
}

CodResult codMulLargeIntI64(const CodLargeInt *iLarge, CodUint64 i64, CodHugeInt *result) {
    const CodLargeInt factor = {{i64, 0}};
    return codMulLargeInt(iLarge, &factor, result);
}

CodResult codMulHugeInt(const CodHugeInt *iHuge1, const CodHugeInt *iHuge2, CodHugeInt *result) {
    if (iHuge1 == nullptr || iHuge2 == nullptr || result == nullptr) {
        return raiseNull();
    }
    U256 product;
    const bool lost = mul256(load(*iHuge1), load(*iHuge2), product);
    return storeWrapped(product, lost, *result);
}

CodResult codMulHugeIntI64(const CodHugeInt *iHuge, CodUint64 i64, CodHugeInt *result) {
    const CodHugeInt factor = {{i64, 0, 0, 0}};
    return codMulHugeInt(iHuge, &factor, result);
}

CodResult codMulHugeLarge(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result) {
    if (iLarge == nullptr) {
        return raiseNull();
    }
    const CodHugeInt factor = {{iLarge->item64[0], iLarge->item64[1], 0, 0}};
    return codMulHugeInt(iHuge, &factor, result);
}

CodResult codAddHugeLarge(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result) {
    if (iHuge == nullptr || iLarge == nullptr || result == nullptr) {
        return raiseNull();
    }
    U256 sum;
    const bool lost = add256(load(*iHuge), widen(load(*iLarge)), sum);
    return storeWrapped(sum, lost, *result);
}

CodResult codSubHugeLarge(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result) {
    if (iHuge == nullptr || iLarge == nullptr || result == nullptr) {
        return raiseNull();
    }
    U256 difference;
    const bool lost = sub256(load(*iHuge), widen(load(*iLarge)), difference);
    return storeWrapped(difference, lost, *result);
}

CodResult codIncreaseHugeIntI64(CodHugeInt *iHuge, CodUint64 i64) {
    const CodLargeInt summand = {{i64, 0}};
    return codAddHugeLarge(iHuge, &summand, iHuge);
}

CodResult codIncreaseLargeIntI64(CodLargeInt *iLarge, CodUint64 i64) {
    if (iLarge == nullptr) {
        return raiseNull();
    }
    const U128 sum = load(*iLarge) + i64;
    store(sum, *iLarge);
    return sum < i64 ? raiseNumericOverflow() : COD_SUCCESS;
}

CodResult codPowLargeIntDecimal(const CodLargeInt *iLarge1, CodUint32 e, CodHugeInt *result) {
    if (iLarge1 == nullptr || result == nullptr) {
        return raiseNull();
    }
    const U256 value = widen(load(*iLarge1));
    // From 10^256 on, the low 256 bits of every product are zero.
    U256 product = value;
    bool lost = false;
    for (CodUint32 left = isZero(value) ? 0 : e < 256 ? e : 256; left > 0;) {
        const CodUint32 part = left < kMaxPower ? left : kMaxPower;
        lost |= mul256(product, kPowers.pow10Wide[part], product);
        left -= part;
    }
    return storeWrapped(product, lost, *result);
}

CodResult codDivHugeInt(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result, CodLargeInt *mod) {
    if (iHuge == nullptr || iLarge == nullptr || result == nullptr || mod == nullptr) {
        return raiseNull();
    }
    const U128 divisor = load(*iLarge);
    if (divisor == 0) {
        return codRaise(ERR_CMM_DIVISION_BY_ZERO);
    }
    U128 remainder;
    store(divide256(load(*iHuge), divisor, remainder), *result);
    store(remainder, *mod);
    return COD_SUCCESS;
}

CodResult codDivLargeIntI64(const CodLargeInt *iLarge, CodUint64 i64, CodLargeInt *result, CodUint64 *mod) {
    if (iLarge == nullptr || result == nullptr || mod == nullptr) {
        return raiseNull();
    }
    if (i64 == 0) {
        return codRaise(ERR_CMM_DIVISION_BY_ZERO);
    }
    store(lowHalf(divideByWord(widen(load(*iLarge)), i64, *mod)), *result);
    return COD_SUCCESS;
}

CodUint32 codGetLargeIntDigits(const CodLargeInt *iLarge) {
    return iLarge == nullptr ? 0 : digits128(load(*iLarge));
}

CodUint32 codGetHugeIntDigits(const CodHugeInt *iHuge) {
    return iHuge == nullptr ? 0 : digits256(load(*iHuge));
}

CodResult codLargeInt2Str(const CodLargeInt *iLarge, CodChar *str, CodUint32 bufSize) {
    CodUint32 len;
    return iLarge == nullptr ? raiseNull() : writeHuge(widen(load(*iLarge)), str, bufSize, &len);
}

CodResult codHugeInt2Str(const CodHugeInt *iHuge, CodChar *str, CodUint32 bufSize) {
    CodUint32 len;
    return iHuge == nullptr ? raiseNull() : writeHuge(load(*iHuge), str, bufSize, &len);
}

CodResult codLargeInt2Text(const CodLargeInt *iLarge, CodText *text, CodUint32 bufSize) {
    return iLarge == nullptr ? raiseNull() : writeHugeText(widen(load(*iLarge)), text, bufSize);
}

CodResult codHugeInt2Text(const CodHugeInt *iHuge, CodText *text, CodUint32 bufSize) {
    return iHuge == nullptr ? raiseNull() : writeHugeText(load(*iHuge), text, bufSize);
}

CodResult codStr2LargeInt(const CodChar *str, CodLargeInt *result) {
    return readStr(str, result);
}

CodResult codStr2HugeInt(const CodChar *str, CodHugeInt *result) {
    return readStr(str, result);
}

CodResult codText2LargeInt(const CodText *text, CodLargeInt *result) {
    return text == nullptr ? raiseNull() : readInto(text->str, text->len, result);
}

CodResult codText2HugeInt(const CodText *text, CodHugeInt *result) {
    return text == nullptr ? raiseNull() : readInto(text->str, text->len, result);
}

CodResult codUtf16Text2LargeInt(const CodText *text, CodLargeInt *result) {
    return text == nullptr ? raiseNull() : readInto(text->str, text->len, result, 2);
}
