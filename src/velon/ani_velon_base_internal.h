#pragma once

// What the readers of the format share: the types as one list, checked reads of single encodings, the search of key tables.
//
// Positions are 64 bits wide inside, so that no sum of a position and a length from the document wraps.

#include <string.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon_base.h>

#include "base/cod_bytes.h"

namespace cod::velon {

// Every type that has a value: name, the value's C type, the enumerator, the member of VelonValue.
/* clang-format off */
#define VELON_FOR_EACH_TYPE(X)                         \
    X(Object,    VelonObject,  OBJECT,    object)      \
    X(Array,     VelonArray,   ARRAY,     array)       \
    X(String,    CodText,      STRING,    text)        \
    X(Binary,    CodBytes,     BINARY,    bytes)       \
    VELON_FOR_EACH_SCALAR(X)
// Of them those that are passed by value ...
#define VELON_FOR_EACH_FIXED(X)                        \
    X(Bool,      CodBool,      BOOL,      boolean)     \
    X(Tinyint,   CodInt8,      TINYINT,   tinyint)     \
    X(Smallint,  CodInt16,     SMALLINT,  smallint)    \
    X(Integer,   CodInt32,     INTEGER,   integer)     \
    X(Bigint,    CodInt64,     BIGINT,    bigint)      \
    X(Float,     CodFloat,     FLOAT,     float32)     \
    X(Double,    CodDouble,    DOUBLE,    float64)     \
    X(Timestamp, CodDate,      TIMESTAMP, datetime)    \
    X(Date,      CodDate,      DATE,      datetime)    \
    X(Time,      CodShortTime, TIME,      datetime)
// ... and those that are not views.
#define VELON_FOR_EACH_SCALAR(X)                       \
    VELON_FOR_EACH_FIXED(X)                            \
    X(Number,    CodNumber,    NUMBER,    number)
/* clang-format on */

template <VelonType kType>
struct TypeRow;
#define VELON_TYPE_ROW(Name, ValueType, TYPE, member) \
    template <>                                       \
    struct TypeRow<VELON_TYPE_##TYPE> {               \
        using Value = ValueType;                      \
        static ValueType &in(VelonValue *value) {     \
            return value->u.member;                   \
        }                                             \
    };
VELON_FOR_EACH_TYPE(VELON_TYPE_ROW)
#undef VELON_TYPE_ROW

template <VelonType kType>
using ValueOf = typename TypeRow<kType>::Value;

// Bytes of an object's entry in its key table, and of an array's entry; of what stands in front of them, counted from the type byte.
constexpr CodUint32 kKeyEntry = 4;
constexpr CodUint32 kValueEntry = 5;
constexpr CodUint32 kCountAt = 5;
constexpr CodUint32 kTableAt = 7;

constexpr bool isTypeCode(CodUint32 code) {
    return code - 1 < _VELON_TYPE_COUNT_ - 1;
}

// Types whose value stands in an array's entry itself.
constexpr bool isInline(CodUint32 type) {
    constexpr CodUint32 kInline = 1u << VELON_TYPE_BOOL | 1u << VELON_TYPE_NULL | 1u << VELON_TYPE_TINYINT | 1u << VELON_TYPE_SMALLINT |
                                  1u << VELON_TYPE_INTEGER | 1u << VELON_TYPE_FLOAT;
    return (kInline >> type & 1) != 0;
}

// Payload bytes of the types that always have the same number of them; kNoWidth for the others.
constexpr CodUint8 kNoWidth = 0xFF;
struct Widths {
    CodUint8 of[256];
};
constexpr Widths makeWidths() {
    Widths widths = {};
    for (CodUint8 &width : widths.of) {
        width = kNoWidth;
    }
#define VELON_WIDTH(Name, ValueType, TYPE, member) widths.of[VELON_TYPE_##TYPE] = sizeof(ValueType);
    VELON_FOR_EACH_FIXED(VELON_WIDTH)
#undef VELON_WIDTH
    widths.of[VELON_TYPE_NULL] = 0;
    return widths;
}
inline constexpr Widths kWidths = makeWidths();

// ---- Failures ----

// Out of line is what sets the error; that it is COD_ERROR stays in sight of the caller.
COD_COLD void setOutOfBounds(CodUint64 len, CodInt64 index);
COD_COLD void setInvalidType(CodUint32 code);
COD_COLD void setUnexpectedType(VelonType expected, CodUint32 actual);
COD_COLD void setNestedTooDeeply();

inline CodResult raiseOutOfBounds(CodUint64 len, CodUint64 index) {
    setOutOfBounds(len, static_cast<CodInt64>(index));
    return COD_ERROR;
}
inline CodResult raiseInvalidType(CodUint32 code) {
    setInvalidType(code);
    return COD_ERROR;
}
// actual may be any byte.
inline CodResult raiseUnexpectedType(VelonType expected, CodUint32 actual) {
    setUnexpectedType(expected, actual);
    return COD_ERROR;
}
inline CodResult raiseNestedTooDeeply() {
    setNestedTooDeeply();
    return COD_ERROR;
}

template <class... Pointers>
constexpr bool anyNull(const Pointers *...pointers) {
    return ((pointers == nullptr) || ...);
}

// ---- Single encodings ----

inline CodResult checkEnd(const VelonData &data, CodUint64 end) {
    return COD_LIKELY(end <= data.len) ? COD_SUCCESS : raiseOutOfBounds(data.len, end);
}

// The type byte at a position.
inline CodResult readType(const VelonData &data, CodUint64 at, VelonType *type) {
    if (COD_UNLIKELY(at >= data.len)) {
        return raiseOutOfBounds(data.len, at);
    }
    const CodUint32 code = data.ptr[at];
    if (COD_UNLIKELY(!isTypeCode(code))) {
        return raiseInvalidType(code);
    }
    *type = static_cast<VelonType>(code);
    return COD_SUCCESS;
}

inline CodResult checkType(const VelonData &data, CodUint64 at, VelonType type) {
    if (COD_UNLIKELY(at >= data.len)) {
        return raiseOutOfBounds(data.len, at);
    }
    return COD_LIKELY(data.ptr[at] == type) ? COD_SUCCESS : raiseUnexpectedType(type, data.ptr[at]);
}

// A varint of two bytes or more, or a faulty one.
CodResult readLongVarint(const VelonData &data, CodUint64 at, CodUint32 *value, CodUint32 *size);

inline CodResult readVarint(const VelonData &data, CodUint64 at, CodUint32 *value, CodUint32 *size) {
    if (COD_LIKELY(at < data.len && data.ptr[at] < 0x80)) {
        *value = data.ptr[at];
        *size = 1;
        return COD_SUCCESS;
    }
    return readLongVarint(data, at, value, size);
}

// The bytes behind a varint that tells their number.
inline CodResult readCounted(const VelonData &data, CodUint64 at, const CodUint8 **bytes, CodUint32 *size, CodUint32 *headerLen) {
    CodUint32 length = 0;
    CodUint32 header = 0;
    COD_TRY(readVarint(data, at, &length, &header));
    COD_TRY(checkEnd(data, at + header + length));
    *bytes = data.ptr + at + header;
    *size = length;
    *headerLen = header;
    return COD_SUCCESS;
}

inline CodText textOf(const CodUint8 *bytes, CodUint32 size) {
    return {const_cast<CodChar *>(reinterpret_cast<const CodChar *>(bytes)), size, 0};
}
inline CodBytes bytesOf(const CodUint8 *bytes, CodUint32 size) {
    return {const_cast<CodUint8 *>(bytes), size, 0};
}

// size, count and a table of entries, which must lie within the size; view: from the type byte in front.
template <CodUint32 kEntry>
inline CodResult readContainer(const VelonData &data, CodUint64 at, VelonData *view) {
    if (COD_UNLIKELY(at == 0)) {
        return raiseOutOfBounds(data.len, 0);
    }
    COD_TRY(checkEnd(data, at + 6));
    const CodUint64 size = loadLe<CodUint32>(data.ptr + at);
    const CodUint32 count = loadLe<CodUint16>(data.ptr + at + 4);
    COD_TRY(checkEnd(data, at + 6 + CodUint64{kEntry} * count));
    COD_TRY(checkEnd(data, at + 4 + size));
    if (COD_UNLIKELY(size < 2 + CodUint64{kEntry} * count)) {
        return raiseOutOfBounds(kCountAt + size, kTableAt + CodUint64{kEntry} * count);
    }
    *view = {data.ptr + at - 1, static_cast<CodUint32>(kCountAt + size), count};
    return COD_SUCCESS;
}

inline VelonObject objectOf(const VelonData &view) {
    return {view, view.ptr + kTableAt};
}
inline VelonArray arrayOf(const VelonData &view) {
    return {view, view.ptr + kTableAt};
}

CodResult readNumber(const VelonData &data, CodUint64 at, CodNumber *number);

// The payload at a position.
template <VelonType kType>
inline CodResult readPayload(const VelonData &data, CodUint64 at, ValueOf<kType> *value) {
    if constexpr (kType == VELON_TYPE_OBJECT) {
        VelonData view;
        COD_TRY(readContainer<kKeyEntry>(data, at, &view));
        *value = objectOf(view);
    } else if constexpr (kType == VELON_TYPE_ARRAY) {
        VelonData view;
        COD_TRY(readContainer<kValueEntry>(data, at, &view));
        *value = arrayOf(view);
    } else if constexpr (kType == VELON_TYPE_STRING || kType == VELON_TYPE_BINARY) {
        const CodUint8 *bytes = nullptr;
        CodUint32 size = 0;
        CodUint32 headerLen = 0;
        COD_TRY(readCounted(data, at, &bytes, &size, &headerLen));
        if constexpr (kType == VELON_TYPE_STRING) {
            *value = textOf(bytes, size);
        } else {
            *value = bytesOf(bytes, size);
        }
    } else if constexpr (kType == VELON_TYPE_NUMBER) {
        return readNumber(data, at, value);
    } else {
        COD_TRY(checkEnd(data, at + sizeof(*value)));
        if constexpr (kType == VELON_TYPE_BOOL) {
            *value = data.ptr[at] != 0;
        } else {
            *value = loadLe<ValueOf<kType>>(data.ptr + at);
        }
    }
    return COD_SUCCESS;
}

// ---- Elements of arrays ----

// The value that an entry's word holds.
template <VelonType kType>
inline ValueOf<kType> inlineValue(CodUint32 word) {
    static_assert(isInline(kType));
    if constexpr (kType == VELON_TYPE_BOOL) {
        return word != 0;
    } else {
        return loadLe<ValueOf<kType>>(&word);
    }
}

// The value of an element whose entry says kType: in its word, or at the offset that it is.
template <VelonType kType>
inline CodResult readElement(const VelonData &array, CodUint32 word, ValueOf<kType> *value) {
    if constexpr (isInline(kType)) {
        *value = inlineValue<kType>(word);
        return COD_SUCCESS;
    } else {
        const CodUint64 at = CodUint64{word} + kCountAt;
        COD_TRY(checkType(array, at, kType));
        return readPayload<kType>(array, at + 1, value);
    }
}

// ---- Values of any type ----

// The payload at a position of a type that is a type code.
CodResult readValueOf(VelonType type, const VelonData &data, CodUint64 at, VelonValue *value);
// The value of an element whose entry is of this type.
CodResult readElementOf(VelonType type, const VelonData &array, CodUint32 word, VelonValue *value);

inline CodResult readLazy(const VelonData &data, CodUint64 at, VelonLazyValue *lazy) {
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readType(data, at, &type));
    *lazy = {{data.ptr + at, static_cast<CodUint32>(data.len - at), 0}, 0, type, false};
    return COD_SUCCESS;
}
inline CodResult readLazyElement(const VelonArray &array, CodUint32 index, VelonLazyValue *lazy) {
    const CodUint8 *entry = array.valueEntry + CodUint64{kValueEntry} * index;
    if (COD_UNLIKELY(!isTypeCode(entry[0]))) {
        return raiseInvalidType(entry[0]);
    }
    *lazy = {array.data, loadLe<CodUint32>(entry + 1), static_cast<VelonType>(entry[0]), true};
    return COD_SUCCESS;
}

// ---- Keys ----

// The record at keyOffset of a key table.
inline CodResult readRecord(const VelonObject &object, CodUint32 keyOffset, CodText *key, CodUint32 *valuePos) {
    const CodUint64 at = CodUint64{keyOffset} + kCountAt;
    COD_TRY(checkEnd(object.data, at + 2));
    const CodUint32 length = loadLe<CodUint16>(object.data.ptr + at);
    COD_TRY(checkEnd(object.data, at + 2 + length));
    *key = textOf(object.data.ptr + at + 2, length);
    *valuePos = static_cast<CodUint32>(at + 2 + length);
    return COD_SUCCESS;
}
inline CodUint32 keyOffsetAt(const VelonObject &object, CodUint32 index) {
    return loadLe<CodUint32>(object.keyOffsets + CodUint64{kKeyEntry} * index);
}

inline CodInt32 compareKeys(const CodText &left, const CodText &right) {
    if (left.len != right.len) {
        return left.len < right.len ? -1 : 1;
    }
    // Most keys of equal length differ early: their first bytes spare a call.
    if (left.len >= sizeof(CodUint32)) {
        const CodUint32 leftHead = __builtin_bswap32(loadLe<CodUint32>(left.str));
        const CodUint32 rightHead = __builtin_bswap32(loadLe<CodUint32>(right.str));
        if (leftHead != rightHead) {
            return leftHead < rightHead ? -1 : 1;
        }
    }
    const int order = left.len == 0 ? 0 : memcmp(left.str, right.str, left.len);
    return (order > 0) - (order < 0);
}

// The position of the key's value, counted from the object's type byte; 0: the key is absent.
CodResult findKey(const VelonObject &object, const CodText &key, CodUint32 *valuePos);

// The place in a key table, written by a builder, where a key's offset goes: that of an equal key, else of the first greater one. Offsets
// count from countField, behind which `length` bytes are written; the table stands two bytes behind it.
CodUint32 insertionPoint(const CodUint8 *countField, CodUint32 length, CodUint32 count, const CodText &key);

// The places of an object's members in key order, by the position of their records.
void orderByRecord(const VelonObject &object, CodUint16 *order);

// ---- Work on whole documents ----

// Bytes that may still be visited. Entries of a container may share nested values, which are then visited once for each; documents that
// builders make come nowhere near the limit.
class WorkLimit {
public:
    explicit WorkLimit(CodUint64 documentLength) : left_(documentLength * VELON_WORK_FACTOR) {}
    CodResult spend(CodUint64 bytes) {
        if (COD_UNLIKELY(bytes > left_)) {
            return raiseNestedTooDeeply();
        }
        left_ -= bytes;
        return COD_SUCCESS;
    }

private:
    CodUint64 left_;
};

}  // namespace cod::velon
