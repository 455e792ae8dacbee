#include <vel_infra/velon/ani_velon_equal.h>

#include <bit>
#include <cmath>
#include <limits>

#include <vel_infra/algorithm/ani_hashfunc.h>

#include "number/ani_number_internal.h"
#include "velon/ani_velon_base_internal.h"

namespace cod::velon {
namespace {

// ---- Numbers ----

enum class NumberKind : CodUint8 { kNone, kInteger, kBinary, kDecimal };

// A number of whatever type.
struct AnyNumber {
    NumberKind kind;
    CodInt64 integer;
    CodDouble binary;
    CodNumber decimal;
};

AnyNumber numberOf(const VelonValue &value) {
    switch (value.type) {
        case VELON_TYPE_TINYINT:
            return {NumberKind::kInteger, value.u.tinyint, 0, {}};
        case VELON_TYPE_SMALLINT:
            return {NumberKind::kInteger, value.u.smallint, 0, {}};
        case VELON_TYPE_INTEGER:
            return {NumberKind::kInteger, value.u.integer, 0, {}};
        case VELON_TYPE_BIGINT:
            return {NumberKind::kInteger, value.u.bigint, 0, {}};
        case VELON_TYPE_FLOAT:
            return {NumberKind::kBinary, 0, static_cast<CodDouble>(value.u.float32), {}};
        case VELON_TYPE_DOUBLE:
            return {NumberKind::kBinary, 0, value.u.float64, {}};
        case VELON_TYPE_NUMBER:
            return {NumberKind::kDecimal, 0, 0, value.u.number};
        default:
            return {NumberKind::kNone, 0, 0, {}};
    }
}

bool isEqualInteger(CodInt64 integer, CodDouble binary) {
    constexpr CodDouble kLimit = 0x1p63;
    return binary >= -kLimit && binary < kLimit && std::trunc(binary) == binary && static_cast<CodInt64>(binary) == integer;
}

// A value that is not 0, as odd * 2^twos.
struct OddPart {
    U128 odd;
    CodInt32 twos;

    explicit OddPart(U128 value) : odd(value), twos(0) {
        const CodUint64 low = lowOf(value);
        twos = low != 0 ? std::countr_zero(low) : 64 + std::countr_zero(highOf(value));
        odd >>= twos;
    }
};

// factor * 5^power == product, where power may be beyond all bounds.
bool isTimesFives(U128 factor, CodInt32 power, U128 product) {
    for (; power > 0 && factor <= product / 5; power--) {
        factor *= 5;
    }
    return power == 0 && factor == product;
}

// decimal == binary, exactly: both as an odd number times powers of two and five.
bool isEqualDecimal(const CodNumber &decimal, CodDouble binary) {
    const U128 coefficient = makeU128(decimal.value.item64[1], decimal.value.item64[0]);
    if (coefficient == 0 || binary == 0) {
        return coefficient == 0 && binary == 0;
    }
    if (!std::isfinite(binary) || (decimal.sign != 0) != std::signbit(binary)) {
        return false;
    }
    constexpr int kMantissaBits = 53;
    int exponent = 0;
    const double mantissa = std::ldexp(std::frexp(std::fabs(binary), &exponent), kMantissaBits);
    const OddPart ours(static_cast<CodUint64>(mantissa));
    const OddPart theirs(coefficient);
    if (ours.twos + exponent - kMantissaBits != theirs.twos + decimal.exp) {
        return false;
    }
    return decimal.exp >= 0 ? isTimesFives(theirs.odd, decimal.exp, ours.odd) : isTimesFives(ours.odd, -decimal.exp, theirs.odd);
}

bool isEqualNumber(const AnyNumber &left, const AnyNumber &right) {
    if (left.kind > right.kind) {
        return isEqualNumber(right, left);
    }
    if (left.kind == NumberKind::kInteger) {
        switch (right.kind) {
            case NumberKind::kInteger:
                return left.integer == right.integer;
            case NumberKind::kBinary:
                return isEqualInteger(left.integer, right.binary);
            default:
                break;
        }
        CodNumber number;
        return codNumberFromInt64(&number, left.integer) == COD_SUCCESS && codNumberCompare(&number, &right.decimal) == 0;
    }
    if (left.kind == NumberKind::kBinary) {
        if (right.kind == NumberKind::kDecimal) {
            return isEqualDecimal(right.decimal, left.binary);
        }
        return left.binary == right.binary || (std::isnan(left.binary) && std::isnan(right.binary));
    }
    return codNumberCompare(&left.decimal, &right.decimal) == 0;
}

// Whether the value is an integer of 64 bits.
bool isBigint(const CodNumber &decimal, CodInt64 *value) {
    U128 magnitude = makeU128(decimal.value.item64[1], decimal.value.item64[0]);
    CodInt32 exp = decimal.exp;
    if (magnitude == 0) {
        *value = 0;
        return true;
    }
    for (; exp < 0 && magnitude % 10 == 0; exp++) {
        magnitude /= 10;
    }
    for (; exp > 0 && magnitude <= INT64_MAX; exp--) {
        magnitude *= 10;
    }
    if (exp != 0 || magnitude > INT64_MAX) {
        return false;
    }
    *value = decimal.sign != 0 ? -static_cast<CodInt64>(lowOf(magnitude)) : static_cast<CodInt64>(lowOf(magnitude));
    return true;
}
bool isBigint(CodDouble binary, CodInt64 *value) {
    if (std::fabs(binary) < 0x1p63 && std::trunc(binary) == binary) {
        *value = static_cast<CodInt64>(binary);
        return true;
    }
    return false;
}

// The same for equal numbers, whatever their types: the integer of 64 bits, but for the smallest one, else the nearest double's bits.
CodUint64 hashOf(const AnyNumber &number) {
    CodInt64 integer = number.integer;
    CodDouble nearest = number.binary;
    bool isInteger = number.kind == NumberKind::kInteger;
    if (number.kind == NumberKind::kBinary) {
        isInteger = isBigint(number.binary, &integer);
    } else if (number.kind == NumberKind::kDecimal) {
        isInteger = isBigint(number.decimal, &integer);
        const CodLargeInt &coefficient = number.decimal.value;
        nearest = nearestDouble(makeU128(coefficient.item64[1], coefficient.item64[0]), number.decimal.exp);
        nearest = number.decimal.sign != 0 ? -nearest : nearest;
    }
    if (isInteger && integer != INT64_MIN) {
        return static_cast<CodUint64>(integer);
    }
    nearest = isInteger ? -0x1p63 : nearest;
    return std::bit_cast<CodUint64>(std::isnan(nearest) ? std::numeric_limits<CodDouble>::quiet_NaN() : nearest);
}

// ---- Values ----

// What is left of a value's comparison, or hash, when it is no number: bytes that tell it apart within its type.
CodText plainBytes(const VelonValue &value) {
    const auto bytesAt = [](const void *bytes, CodUint32 size) { return textOf(static_cast<const CodUint8 *>(bytes), size); };
    switch (value.type) {
        case VELON_TYPE_STRING:
            return value.u.text;
        case VELON_TYPE_BINARY:
            return bytesAt(value.u.bytes.data, value.u.bytes.size);
        case VELON_TYPE_BOOL:
            return bytesAt(&value.u.boolean, sizeof(value.u.boolean));
        case VELON_TYPE_NULL:
            return {};
        default:
            return bytesAt(&value.u.datetime, sizeof(value.u.datetime));
    }
}

CodResult readMember(const VelonObject &object, CodUint32 index, CodText *key, VelonValue *value) {
    CodUint32 at = 0;
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readRecord(object, keyOffsetAt(object, index), key, &at));
    COD_TRY(readType(object.data, at, &type));
    return readValueOf(type, object.data, CodUint64{at} + 1, value);
}

CodResult readElementValue(const VelonArray &array, CodUint32 index, VelonValue *value) {
    VelonLazyValue lazy;
    COD_TRY(readLazyElement(array, index, &lazy));
    return readElementOf(lazy.type, array.data, lazy.valuePos, value);
}

class Comparer {
public:
    explicit Comparer(CodUint64 documentLengths) : work_(documentLengths) {}
    CodResult compare(const VelonValue &left, const VelonValue &right, CodUint32 depth, bool *isEqual);

private:
    CodResult compareObjects(const VelonObject &left, const VelonObject &right, CodUint32 depth, bool *isEqual);
    CodResult compareArrays(const VelonArray &left, const VelonArray &right, CodUint32 depth, bool *isEqual);

    WorkLimit work_;
};

CodResult Comparer::compare(const VelonValue &left, const VelonValue &right, CodUint32 depth, bool *isEqual) {
    const AnyNumber leftNumber = numberOf(left);
    const AnyNumber rightNumber = numberOf(right);
    if (leftNumber.kind != NumberKind::kNone && rightNumber.kind != NumberKind::kNone) {
        *isEqual = isEqualNumber(leftNumber, rightNumber);
        return COD_SUCCESS;
    }
    if (left.type != right.type) {
        *isEqual = false;
        return COD_SUCCESS;
    }
    if (left.type == VELON_TYPE_OBJECT) {
        return compareObjects(left.u.object, right.u.object, depth, isEqual);
    }
    if (left.type == VELON_TYPE_ARRAY) {
        return compareArrays(left.u.array, right.u.array, depth, isEqual);
    }
    const CodText leftBytes = plainBytes(left);
    COD_TRY(work_.spend(leftBytes.len));
    *isEqual = compareKeys(leftBytes, plainBytes(right)) == 0;
    return COD_SUCCESS;
}

CodResult Comparer::compareObjects(const VelonObject &left, const VelonObject &right, CodUint32 depth, bool *isEqual) {
    if (depth > VELON_MAX_DEPTH) {
        return raiseNestedTooDeeply();
    }
    *isEqual = left.data.aux == right.data.aux;
    for (CodUint32 i = 0; i < left.data.aux && *isEqual; i++) {
        CodText leftKey = {};
        CodText rightKey = {};
        VelonValue leftValue;
        VelonValue rightValue;
        COD_TRY(readMember(left, i, &leftKey, &leftValue));
        COD_TRY(readMember(right, i, &rightKey, &rightValue));
        COD_TRY(work_.spend(2 + CodUint64{leftKey.len}));
        *isEqual = compareKeys(leftKey, rightKey) == 0;
        if (*isEqual) {
            COD_TRY(compare(leftValue, rightValue, depth + 1, isEqual));
        }
    }
    return COD_SUCCESS;
}

CodResult Comparer::compareArrays(const VelonArray &left, const VelonArray &right, CodUint32 depth, bool *isEqual) {
    if (depth > VELON_MAX_DEPTH) {
        return raiseNestedTooDeeply();
    }
    *isEqual = left.data.aux == right.data.aux;
    for (CodUint32 i = 0; i < left.data.aux && *isEqual; i++) {
        VelonValue leftValue;
        VelonValue rightValue;
        COD_TRY(work_.spend(kValueEntry));
        COD_TRY(readElementValue(left, i, &leftValue));
        COD_TRY(readElementValue(right, i, &rightValue));
        COD_TRY(compare(leftValue, rightValue, depth + 1, isEqual));
    }
    return COD_SUCCESS;
}

class Hasher {
public:
    explicit Hasher(CodUint64 documentLength) : work_(documentLength) {}
    CodResult add(const VelonValue &value, CodUint32 depth);
    CodUint64 hash() const {
        return hash_;
    }

private:
    CodResult addObject(const VelonObject &object, CodUint32 depth);
    CodResult addArray(const VelonArray &array, CodUint32 depth);
    CodResult addBytes(const CodText &bytes) {
        COD_TRY(work_.spend(bytes.len));
        mix(codMurmurHash64(bytes.str, bytes.len));
        return COD_SUCCESS;
    }
    void mix(CodUint64 part) {
        hash_ = (std::rotl(hash_, 23) ^ part) * 0x9E3779B97F4A7C15;
        hash_ ^= hash_ >> 32;
    }

    WorkLimit work_;
    CodUint64 hash_ = 0;
};

CodResult Hasher::add(const VelonValue &value, CodUint32 depth) {
    const AnyNumber number = numberOf(value);
    if (number.kind != NumberKind::kNone) {
        mix(VELON_TYPE_NUMBER);
        mix(hashOf(number));
        return COD_SUCCESS;
    }
    mix(static_cast<CodUint64>(value.type));
    switch (value.type) {
        case VELON_TYPE_OBJECT:
            return addObject(value.u.object, depth);
        case VELON_TYPE_ARRAY:
            return addArray(value.u.array, depth);
        default:
            return addBytes(plainBytes(value));
    }
}

CodResult Hasher::addObject(const VelonObject &object, CodUint32 depth) {
    if (depth > VELON_MAX_DEPTH) {
        return raiseNestedTooDeeply();
    }
    mix(object.data.aux);
    for (CodUint32 i = 0; i < object.data.aux; i++) {
        CodText key = {};
        VelonValue value;
        COD_TRY(work_.spend(kKeyEntry));
        COD_TRY(readMember(object, i, &key, &value));
        COD_TRY(addBytes(key));
        COD_TRY(add(value, depth + 1));
    }
    return COD_SUCCESS;
}

CodResult Hasher::addArray(const VelonArray &array, CodUint32 depth) {
    if (depth > VELON_MAX_DEPTH) {
        return raiseNestedTooDeeply();
    }
    mix(array.data.aux);
    for (CodUint32 i = 0; i < array.data.aux; i++) {
        VelonValue value;
        COD_TRY(work_.spend(kValueEntry));
        COD_TRY(readElementValue(array, i, &value));
        COD_TRY(add(value, depth + 1));
    }
    return COD_SUCCESS;
}

CodResult readRoot(const Velon &velon, VelonValue *value) {
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readType(velon.data, 0, &type));
    return readValueOf(type, velon.data, 1, value);
}

}  // namespace
}  // namespace cod::velon

using namespace cod::velon;

CodResult velonEqual(const Velon *left, const Velon *right, CodBool *isEqual) {
    if (anyNull(left, right, isEqual)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonValue leftValue;
    VelonValue rightValue;
    bool areEqual = false;
    COD_TRY(readRoot(*left, &leftValue));
    COD_TRY(readRoot(*right, &rightValue));
    COD_TRY(Comparer(CodUint64{left->data.len} + right->data.len).compare(leftValue, rightValue, 0, &areEqual));
    *isEqual = areEqual;
    return COD_SUCCESS;
}

CodResult velonHash(const Velon *velon, CodUint64 *hash) {
    if (anyNull(velon, hash)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonValue value;
    Hasher hasher(velon->data.len);
    COD_TRY(readRoot(*velon, &value));
    COD_TRY(hasher.add(value, 0));
    *hash = hasher.hash();
    return COD_SUCCESS;
}
