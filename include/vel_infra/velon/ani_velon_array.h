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

COD_END_DECLS

#endif
