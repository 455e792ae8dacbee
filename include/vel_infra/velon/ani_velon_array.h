#ifndef VEL_INFRA_VELON_ANI_VELON_ARRAY_H
#define VEL_INFRA_VELON_ANI_VELON_ARRAY_H

/* Arrays: elements by index, in constant time. An index that is negative, or not below the count, is
 * ERR_CMM_VELON_INDEX_OUT_OF_BOUNDS, with the count and the index in its message. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

COD_API CodUint16 velonArrayGetElementCount(const VelonArray *array);
/* Bytes of the whole array. */
COD_API CodUint32 velonArrayGetDataLength(const VelonArray *array);

/* The entry itself: its type and its u32, the inline value or the offset. */
COD_NODISCARD COD_API CodResult velonArrayGetValueEntry(const VelonArray *array, CodInt32 index, VelonType *type, CodUint32 *value);
COD_NODISCARD COD_API CodResult velonArrayGetType(const VelonArray *array, CodInt32 index, VelonType *type);
COD_NODISCARD COD_API CodResult velonArrayCheckType(const VelonArray *array, CodInt32 index, VelonType type, CodBool *isType);
COD_NODISCARD COD_API CodResult velonArrayIsNull(const VelonArray *array, CodInt32 index, CodBool *isNull);
/* Errors: ERR_CMM_VELON_UNEXPECTED_TYPE when the value is of another type than its entry says. */
COD_NODISCARD COD_API CodResult velonArrayGetValue(const VelonArray *array, CodInt32 index, VelonValue *value);
COD_NODISCARD COD_API CodResult velonArrayGetLazyValue(const VelonArray *array, CodInt32 index, VelonLazyValue *lazy);

/* The value of one type. Errors: ERR_CMM_VELON_UNEXPECTED_TYPE when the element is of another. */
COD_NODISCARD COD_API CodResult velonArrayGetObject(const VelonArray *array, CodInt32 index, VelonObject *value);
COD_NODISCARD COD_API CodResult velonArrayGetArray(const VelonArray *array, CodInt32 index, VelonArray *value);
COD_NODISCARD COD_API CodResult velonArrayGetString(const VelonArray *array, CodInt32 index, CodText *value);
COD_NODISCARD COD_API CodResult velonArrayGetBool(const VelonArray *array, CodInt32 index, CodBool *value);
COD_NODISCARD COD_API CodResult velonArrayGetTinyint(const VelonArray *array, CodInt32 index, CodInt8 *value);
COD_NODISCARD COD_API CodResult velonArrayGetSmallint(const VelonArray *array, CodInt32 index, CodInt16 *value);
COD_NODISCARD COD_API CodResult velonArrayGetInteger(const VelonArray *array, CodInt32 index, CodInt32 *value);
COD_NODISCARD COD_API CodResult velonArrayGetBigint(const VelonArray *array, CodInt32 index, CodInt64 *value);
COD_NODISCARD COD_API CodResult velonArrayGetFloat(const VelonArray *array, CodInt32 index, CodFloat *value);
COD_NODISCARD COD_API CodResult velonArrayGetDouble(const VelonArray *array, CodInt32 index, CodDouble *value);
COD_NODISCARD COD_API CodResult velonArrayGetTimestamp(const VelonArray *array, CodInt32 index, CodDate *value);
COD_NODISCARD COD_API CodResult velonArrayGetDate(const VelonArray *array, CodInt32 index, CodDate *value);
COD_NODISCARD COD_API CodResult velonArrayGetTime(const VelonArray *array, CodInt32 index, CodShortTime *value);
COD_NODISCARD COD_API CodResult velonArrayGetBinary(const VelonArray *array, CodInt32 index, CodBytes *value);
COD_NODISCARD COD_API CodResult velonArrayGetNumber(const VelonArray *array, CodInt32 index, CodNumber *value);

/* ---- Iteration ---- */

typedef struct VelonArrayIter {
    const VelonArray *array; /* must outlive the iterator */
    CodUint16 index;         /* the next element's */
} VelonArrayIter;

COD_API VelonArrayIter velonArrayIterNew(const VelonArray *array);
COD_API CodBool velonArrayIterHasNext(const VelonArrayIter *iter);
/* Each gives the next element and steps on; at the end the flag is false and the rest as it was. A failure does not step on. */
COD_NODISCARD COD_API CodResult velonArrayIterNextValue(VelonArrayIter *iter, CodBool *hasEntry, VelonValue *value);
COD_NODISCARD COD_API CodResult velonArrayIterNextLazyValue(VelonArrayIter *iter, CodBool *hasEntry, VelonLazyValue *lazy);

/* ---- Inline: elements of fixed width, when all is well with them ---- */

#if !defined(COD_NO_INLINE)
/* The entry of an element of this type; null: there is none. */
COD_INLINE const CodUint8 *velonArrayEntryOf(const VelonArray *array, CodInt32 index, VelonType type) {
    if (COD_LIKELY(array != NULL && (CodUint32)index < array->data.aux)) {
        const CodUint8 *entry = array->valueEntry + (CodInt64)5 * index;
        return COD_LIKELY(entry[0] == type) ? entry : NULL;
    }
    return NULL;
}

/* The payload of an element of this type and width; null: it is not there. */
COD_INLINE const CodUint8 *velonArrayPayloadOf(const VelonArray *array, CodInt32 index, VelonType type, CodUint32 width, CodBool isInline) {
    const CodUint8 *entry = velonArrayEntryOf(array, index, type);
    if (isInline || entry == NULL) {
        return entry != NULL ? entry + 1 : NULL;
    }
    CodUint32 offset;
    __builtin_memcpy(&offset, entry + 1, sizeof(offset));
    const CodUint64 at = (CodUint64)offset + 5;
    return COD_LIKELY(at + 1 + width <= array->data.len && array->data.ptr[at] == type) ? array->data.ptr + at + 1 : NULL;
}

#define VELON_ARRAY_INLINE_BODY(Name, ValueType, TYPE, isInline)                                                             \
    COD_API_INLINE CodResult velonArrayGet##Name(const VelonArray *array, CodInt32 index, ValueType *value) {                \
        const CodUint8 *payload = velonArrayPayloadOf(array, index, VELON_TYPE_##TYPE, (CodUint32)sizeof(*value), isInline); \
        if (COD_LIKELY(payload != NULL && value != NULL)) {                                                                  \
            __builtin_memcpy(value, payload, sizeof(*value));                                                                \
            return COD_SUCCESS;                                                                                              \
        }                                                                                                                    \
        return velonArrayGet##Name##Exported(array, index, value);                                                           \
    }
#else
#define VELON_ARRAY_INLINE_BODY(Name, ValueType, TYPE, isInline)
#endif

#define VELON_ARRAY_INLINE_GETTER(Name, ValueType, TYPE, isInline)                                                            \
    COD_NODISCARD COD_API CodResult velonArrayGet##Name##Exported(const VelonArray *array, CodInt32 index, ValueType *value); \
    VELON_ARRAY_INLINE_BODY(Name, ValueType, TYPE, isInline)

/* clang-format off */
VELON_ARRAY_INLINE_GETTER(Tinyint,   CodInt8,      TINYINT,   true)
VELON_ARRAY_INLINE_GETTER(Smallint,  CodInt16,     SMALLINT,  true)
VELON_ARRAY_INLINE_GETTER(Integer,   CodInt32,     INTEGER,   true)
VELON_ARRAY_INLINE_GETTER(Float,     CodFloat,     FLOAT,     true)
VELON_ARRAY_INLINE_GETTER(Bigint,    CodInt64,     BIGINT,    false)
VELON_ARRAY_INLINE_GETTER(Double,    CodDouble,    DOUBLE,    false)
VELON_ARRAY_INLINE_GETTER(Timestamp, CodDate,      TIMESTAMP, false)
VELON_ARRAY_INLINE_GETTER(Date,      CodDate,      DATE,      false)
VELON_ARRAY_INLINE_GETTER(Time,      CodShortTime, TIME,      false)
/* clang-format on */
#undef VELON_ARRAY_INLINE_GETTER
#undef VELON_ARRAY_INLINE_BODY

COD_END_DECLS

#endif
