#ifndef VEL_INFRA_VELON_ANI_VELON_OBJECT_H
#define VEL_INFRA_VELON_ANI_VELON_OBJECT_H

/* Objects: members by key, by place in key order, one after the other.
 *
 * A lookup is a binary search of the key table. A key that is absent is no failure: *found becomes false and the other outputs keep what
 * they held. Of equal keys, which a builder may write and validation refuses, the first one that the search meets is found. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

COD_API CodUint16 velonObjectGetElementCount(const VelonObject *object);
/* Bytes of the whole object. */
COD_API CodUint32 velonObjectGetDataLength(const VelonObject *object);

COD_NODISCARD COD_API CodResult velonObjectContainsKey(const VelonObject *object, const CodText *key, CodBool *found);
COD_NODISCARD COD_API CodResult velonObjectGetValue(const VelonObject *object, const CodText *key, CodBool *found, VelonValue *value);
COD_NODISCARD COD_API CodResult velonObjectGetLazyValue(const VelonObject *object, const CodText *key, CodBool *found,
                                                        VelonLazyValue *lazyChild);
/* The member at this place in key order, from 0. */
COD_NODISCARD COD_API CodResult velonObjectGetNthLazyValue(const VelonObject *object, CodUint32 index, VelonLazyValue *lazyChild);
COD_NODISCARD COD_API CodResult velonObjectGetType(const VelonObject *object, const CodText *key, CodBool *found, VelonType *type);
COD_NODISCARD COD_API CodResult velonObjectCheckType(const VelonObject *object, const CodText *key, VelonType type, CodBool *found,
                                                     CodBool *isType);
COD_NODISCARD COD_API CodResult velonObjectIsNull(const VelonObject *object, const CodText *key, CodBool *found, CodBool *isNull);

/* The value of one type. Errors: ERR_CMM_VELON_UNEXPECTED_TYPE when the member is of another. */
COD_NODISCARD COD_API CodResult velonObjectGetObject(const VelonObject *object, const CodText *key, CodBool *found, VelonObject *value);
COD_NODISCARD COD_API CodResult velonObjectGetArray(const VelonObject *object, const CodText *key, CodBool *found, VelonArray *value);
COD_NODISCARD COD_API CodResult velonObjectGetString(const VelonObject *object, const CodText *key, CodBool *found, CodText *value);
COD_NODISCARD COD_API CodResult velonObjectGetBool(const VelonObject *object, const CodText *key, CodBool *found, CodBool *value);
COD_NODISCARD COD_API CodResult velonObjectGetTinyint(const VelonObject *object, const CodText *key, CodBool *found, CodInt8 *value);
COD_NODISCARD COD_API CodResult velonObjectGetSmallint(const VelonObject *object, const CodText *key, CodBool *found, CodInt16 *value);
COD_NODISCARD COD_API CodResult velonObjectGetInteger(const VelonObject *object, const CodText *key, CodBool *found, CodInt32 *value);
COD_NODISCARD COD_API CodResult velonObjectGetBigint(const VelonObject *object, const CodText *key, CodBool *found, CodInt64 *value);
COD_NODISCARD COD_API CodResult velonObjectGetFloat(const VelonObject *object, const CodText *key, CodBool *found, CodFloat *value);
COD_NODISCARD COD_API CodResult velonObjectGetDouble(const VelonObject *object, const CodText *key, CodBool *found, CodDouble *value);
COD_NODISCARD COD_API CodResult velonObjectGetTimestamp(const VelonObject *object, const CodText *key, CodBool *found, CodDate *value);
COD_NODISCARD COD_API CodResult velonObjectGetDate(const VelonObject *object, const CodText *key, CodBool *found, CodDate *value);
COD_NODISCARD COD_API CodResult velonObjectGetTime(const VelonObject *object, const CodText *key, CodBool *found, CodShortTime *value);
COD_NODISCARD COD_API CodResult velonObjectGetBinary(const VelonObject *object, const CodText *key, CodBool *found, CodBytes *value);
COD_NODISCARD COD_API CodResult velonObjectGetNumber(const VelonObject *object, const CodText *key, CodBool *found, CodNumber *value);

/* What the typed getters share: finds the key, checks the type, gives the payload's position in the object's view.
 * Errors: ERR_CMM_VELON_UNEXPECTED_TYPE. */
COD_NODISCARD COD_API CodResult velonObjectCheckTypeAndGetValueIndex(const VelonObject *object, const CodText *key, VelonType type,
                                                                     CodBool *found, CodUint32 *valueIndex);
/* The key of the record at keyOffset, as it stands in the key table, and its value's position in the object's view. */
COD_NODISCARD COD_API CodResult velonObjectReadKey(const VelonObject *object, CodUint32 keyOffset, CodText *key, CodUint32 *valuePos);
COD_NODISCARD COD_API CodResult velonObjectFindKey(const VelonObject *object, const CodText *key, CodBool *found, CodUint32 *valuePos);

/* ---- Iteration, in key order ---- */

typedef struct VelonObjectIter {
    const VelonObject *object; /* must outlive the iterator */
    CodUint16 index;           /* the next member's */
} VelonObjectIter;

COD_API VelonObjectIter velonObjectIterNew(const VelonObject *object);
COD_API CodBool velonObjectIterHasNext(const VelonObjectIter *iter);
/* Each gives the next member and steps on; at the end the flag is false and the rest as it was. A failure does not step on. */
COD_NODISCARD COD_API CodResult velonObjectIterNextEntry(VelonObjectIter *iter, CodBool *hasEntry, CodText *key, VelonValue *value);
COD_NODISCARD COD_API CodResult velonObjectIterNextKey(VelonObjectIter *iter, CodBool *hasKey, CodText *key);
COD_NODISCARD COD_API CodResult velonObjectIterNextValue(VelonObjectIter *iter, CodBool *hasValue, VelonValue *value);
COD_NODISCARD COD_API CodResult velonObjectIterNextKeyAndLazyValue(VelonObjectIter *iter, CodBool *hasValue, CodText *key,
                                                                   VelonLazyValue *lazyValue);

COD_END_DECLS

#endif
