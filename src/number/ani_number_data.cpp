// The stored form: docs/number.md draws its bytes.

#include "base/cod_bytes.h"
#include "number/ani_number_internal.h"

namespace cod {
namespace {

constexpr CodUint32 kHeaderSize = 2;
constexpr CodUint32 kFullSize = kHeaderSize + 16;
constexpr CodUint32 kRawSize = sizeof(CodNumber);
static_assert(kRawSize == COD_NUMBER_STORED_SIZE);

constexpr CodUint32 kNegativeBit = 1;
constexpr CodUint32 kNegativeExpBit = 2;

bool isShort(const CodBytes *bytes) {
    return bytes->size <= kHeaderSize;
}
bool isFull(const CodBytes *bytes) {
    return bytes->size > kHeaderSize && bytes->size <= kFullSize;
}

template <class T>
void storeLe(CodUint8 *bytes, T value) {
    std::memcpy(bytes, &value, sizeof(value));
}

COD_COLD CodResult raiseBadSize(CodUint32 size) {
    return codRaise(ERR_CMM_BYTES_ERROR, size == 0 ? "a stored number cannot be empty" : "no stored number has this size");
}

// The integer in the short form of one or two bytes.
CodUint64 shortValue(const CodBytes *bytes) {
    return bytes->size == 0 ? 0 : bytes->size == 1 ? bytes->data[0] : loadLe<CodUint16>(bytes->data);
}

// The coefficient of a full form, without a read past its bytes.
U128 fullCoefficient(const CodUint8 *data, CodUint32 size) {
    if (size >= 10) {
        // The first eight bytes, and the last eight of the form, of which some are the first ones again.
        const CodUint64 low = loadLe<CodUint64>(data + kHeaderSize);
        const CodUint64 last = loadLe<CodUint64>(data + size - 8);
        const CodUint32 repeated = 8 * (kFullSize - size);
        return makeU128(repeated < 64 ? last >> repeated : 0, low);
    }
    // Header and coefficient together, from both ends.
    if (size >= 8) {
        return loadLe<CodUint64>(data) >> 16 | CodUint64{data[size - 1]} << 8 * (size - 1 - kHeaderSize);
    }
    if (size >= 4) {
        return (loadLe<CodUint32>(data) | CodUint64{loadLe<CodUint32>(data + size - 4)} << 8 * (size - 4)) >> 16;
    }
    return data[kHeaderSize];
}

// Only the header is certain to be there as a whole.
const CodNumberData *headerOf(const CodBytes *bytes) {
    static_assert(offsetof(CodNumberData, bytes) == kHeaderSize);
    return reinterpret_cast<const CodNumberData *>(bytes->data);
}

Operand fullOperand(const CodBytes *bytes) {
    const CodNumberData *header = headerOf(bytes);
    return {fullCoefficient(bytes->data, bytes->size), header->expSign != 0 ? -header->exp : header->exp, header->sign};
}

// What a decoder gives, and zero for what it refuses.
Operand storedOperand(const CodBytes *bytes) {
    if (isFull(bytes)) {
        return fullOperand(bytes);
    }
    if (isShort(bytes)) {
        return {shortValue(bytes), 0, 0};
    }
    if (bytes->size == kRawSize) {
        CodNumber raw;
        std::memcpy(&raw, bytes->data, sizeof(raw));
        return loadOperand(&raw);
    }
    return {0, 0, 0};
}

// Whether the form's last byte tells that it is not zero: forms that codEncodeNumber wrote have it.
bool hasTopByte(const CodBytes *bytes) {
    return bytes->data[bytes->size - 1] != 0;
}

// Two full forms, by sign, exponent and length as far as they decide.
CodInt32 compareFull(const CodBytes *bytes1, const CodBytes *bytes2) {
    const CodNumberData *header1 = headerOf(bytes1);
    const CodNumberData *header2 = headerOf(bytes2);
    if (COD_LIKELY(hasTopByte(bytes1) && hasTopByte(bytes2))) {
        if (header1->sign != header2->sign) {
            return header1->sign != 0 ? -1 : 1;
        }
        const bool isSameExp = header1->expSign == header2->expSign && header1->exp == header2->exp;
        if (isSameExp && bytes1->size != bytes2->size) {
            return (bytes1->size > bytes2->size) == (header1->sign == 0) ? 1 : -1;
        }
    }
    return compareOperands(fullOperand(bytes1), fullOperand(bytes2));
}

CodResult encodeNumber(const CodNumber *n, CodBytes *bytes) {
    const Operand a = loadOperand(n);
    CodUint8 *data = bytes->data;
    const CodUint64 low = lowOf(a.value);
    if (highOf(a.value) == 0 && low <= 0xFFFF && (a.negative == 0 || low == 0)) {
        static constexpr CodUint32 powers[] = {1, 10, 100, 1000, 10000, 100000};
        const CodUint32 exp = static_cast<CodUint32>(a.exp);
        // In 32 bits, wrapping: part of the format.
        const CodUint32 integer = low == 0 ? 0 : exp <= 5 ? static_cast<CodUint32>(low) * powers[exp] : ~CodUint32{0};
        if (integer <= 0xFFFF) {
            storeLe(data, static_cast<CodUint16>(integer));
            bytes->size = integer <= 0xFF ? 1 : 2;
            return COD_SUCCESS;
        }
    }
    const CodUint32 expSign = a.exp < 0;
    const CodUint32 expMagnitude = static_cast<CodUint32>(expSign != 0 ? -a.exp : a.exp);
    if (COD_UNLIKELY(expMagnitude > 0xFF)) {
        return raiseNumericOverflow();
    }
    const CodUint32 flags = static_cast<CodUint32>(a.negative) * kNegativeBit + expSign * kNegativeExpBit;
    storeLe(data, static_cast<CodUint16>(flags | expMagnitude << 8));
    storeLe(data + kHeaderSize, low);
    storeLe(data + kHeaderSize + 8, highOf(a.value));
    const CodUint64 top = highOf(a.value) != 0 ? highOf(a.value) : low;
    bytes->size = kHeaderSize + (highOf(a.value) != 0 ? 8 : 0) + (bitLength(top) + 7) / 8;
    return COD_SUCCESS;
}

bool canWrite(const CodBytes *bytes) {
    return bytes != nullptr && bytes->data != nullptr;
}
bool canRead(const CodBytes *bytes) {
    return bytes != nullptr && (bytes->data != nullptr || bytes->size == 0);
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codEncodeNumber(const CodNumber *n, CodBytes *bytes) {
    return COD_LIKELY(n != nullptr && canWrite(bytes)) ? encodeNumber(n, bytes) : raiseNull();
}

CodResult codNumberEncode(CodNumber *num, CodBytes *bytes) {
    if (num == nullptr || !canWrite(bytes)) {
        return raiseNull();
    }
    const Operand a = loadOperand(num);
    U128 value = a.value;
    CodInt32 exp = a.exp;
    if (value != 0) {
        exp += static_cast<CodInt32>(stripZeros(value, kMaxPower128));
    }
    // A raised exponent that a record cannot hold is refused by the form as well.
    if (value != 0 && exp > 0xFF) {
        return raiseNumericOverflow();
    }
    storeCanonical(num, value, exp, a.negative);
    return encodeNumber(num, bytes);
}

CodResult codDecodeNumber(const CodBytes *bytes, CodNumber *n) {
    if (COD_UNLIKELY(n == nullptr || !canRead(bytes))) {
        return raiseNull();
    }
    if (COD_LIKELY(isFull(bytes))) {
        const Operand a = fullOperand(bytes);
        storeNumber(n, a.value, a.exp, a.negative);
    } else if (bytes->size == kRawSize) {
        std::memcpy(n, bytes->data, kRawSize);
    } else if (bytes->size == 1 || bytes->size == 2) {
        storeNumber(n, shortValue(bytes), 0, 0);
    } else {
        return raiseBadSize(bytes->size);
    }
    return COD_SUCCESS;
}

CodInt32 codNumberDataCompare(const CodBytes *bytes1, const CodBytes *bytes2) {
    if (COD_UNLIKELY(!canRead(bytes1) || !canRead(bytes2))) {
        return static_cast<CodInt32>(canRead(bytes1)) - static_cast<CodInt32>(canRead(bytes2));
    }
    if (COD_LIKELY(isFull(bytes1) && isFull(bytes2))) {
        return compareFull(bytes1, bytes2);
    }
    return compareOperands(storedOperand(bytes1), storedOperand(bytes2));
}

CodInt32 cmpSimpleNumberData(const CodBytes *bytes1, const CodBytes *bytes2) {
    return codNumberDataCompare(bytes1, bytes2);
}
