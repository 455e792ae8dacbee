#include <vel_infra/velon/ani_velon_data.h>

#include "velon/ani_velon_base_internal.h"

namespace cod::velon {

CodResult readLongVarint(const VelonData &data, CodUint64 at, CodUint32 *value, CodUint32 *size) {
    constexpr CodUint32 kMostBytes = 4;
    CodUint32 read = 0;
    for (CodUint32 i = 0; i < kMostBytes; i++) {
        if (at + i >= data.len) {
            return raiseOutOfBounds(data.len, at + i);
        }
        const CodUint32 byte = data.ptr[at + i];
        read |= (byte & 0x7F) << (7 * i);
        if (byte < 0x80) {
            *value = read;
            *size = i + 1;
            return COD_SUCCESS;
        }
    }
    return codRaise(ERR_CMM_VELON_INVALID_VARINT);
}

CodResult readNumber(const VelonData &data, CodUint64 at, CodNumber *number) {
    COD_TRY(checkEnd(data, at + 1));
    const CodUint32 length = data.ptr[at];
    if (COD_UNLIKELY(length > COD_NUMBER_STORED_SIZE)) {
        return codRaise(ERR_CMM_VELON_INVALID_NUMBER);
    }
    COD_TRY(checkEnd(data, at + 1 + length));
    const CodBytes stored = bytesOf(data.ptr + at + 1, length);
    CodNumber decoded;
    COD_TRY(codDecodeNumber(&stored, &decoded));
    *number = decoded;
    return COD_SUCCESS;
}

CodResult readValueOf(VelonType type, const VelonData &data, CodUint64 at, VelonValue *value) {
    switch (type) {
#define VELON_READ_CASE(Name, ValueType, TYPE, member)                                             \
    case VELON_TYPE_##TYPE:                                                                        \
        COD_TRY(readPayload<VELON_TYPE_##TYPE>(data, at, &TypeRow<VELON_TYPE_##TYPE>::in(value))); \
        break;
        VELON_FOR_EACH_TYPE(VELON_READ_CASE)
#undef VELON_READ_CASE
        default:
            break;
    }
    value->type = type;
    return COD_SUCCESS;
}

CodResult readElementOf(VelonType type, const VelonData &array, CodUint32 word, VelonValue *value) {
    if (!isInline(static_cast<CodUint32>(type))) {
        const CodUint64 at = CodUint64{word} + kCountAt;
        COD_TRY(checkType(array, at, type));
        return readValueOf(type, array, at + 1, value);
    }
    // The word begins with the payload; of a bool all of it counts.
    CodUint8 payload[sizeof(word)];
    word = type == VELON_TYPE_BOOL ? word != 0 : word;
    memcpy(payload, &word, sizeof(word));
    return readValueOf(type, {payload, sizeof(payload), 0}, 0, value);
}

}  // namespace cod::velon

using namespace cod::velon;

VelonData velonDataNew(const CodUint8 *ptr, CodUint32 len, CodUint32 aux) {
    return {ptr, len, aux};
}

CodResult velonDataReadObject(const VelonData *data, CodUint32 pos, VelonObject *object) {
    return anyNull(data, object) ? codRaise(ERR_CMM_POINTER_NULL) : readPayload<VELON_TYPE_OBJECT>(*data, pos, object);
}

CodResult velonDataReadArray(const VelonData *data, CodUint32 pos, VelonArray *array) {
    return anyNull(data, array) ? codRaise(ERR_CMM_POINTER_NULL) : readPayload<VELON_TYPE_ARRAY>(*data, pos, array);
}

CodResult velonDataReadString(const VelonData *data, CodUint32 pos, CodText *text, CodUint32 *headerLen) {
    CodBytes bytes = {};
    COD_TRY(velonDataReadBinary(data, pos, text != nullptr ? &bytes : nullptr, headerLen));
    *text = textOf(bytes.data, bytes.size);
    return COD_SUCCESS;
}

CodResult velonDataReadBinary(const VelonData *data, CodUint32 pos, CodBytes *bytes, CodUint32 *headerLen) {
    if (anyNull(data, bytes, headerLen)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const CodUint8 *first = nullptr;
    CodUint32 size = 0;
    COD_TRY(readCounted(*data, pos, &first, &size, headerLen));
    *bytes = bytesOf(first, size);
    return COD_SUCCESS;
}

CodResult velonDataReadValue(const VelonData *data, CodUint32 pos, VelonValue *value) {
    if (anyNull(data, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readType(*data, pos, &type));
    return readValueOf(type, *data, CodUint64{pos} + 1, value);
}

CodResult velonDataReadLazyValue(const VelonData *data, CodUint32 pos, VelonLazyValue *lazy) {
    return anyNull(data, lazy) ? codRaise(ERR_CMM_POINTER_NULL) : readLazy(*data, pos, lazy);
}
