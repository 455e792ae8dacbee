#ifndef VEL_INFRA_VELON_ANI_VELON_BUILD_OBJECT_H
#define VEL_INFRA_VELON_ANI_VELON_BUILD_OBJECT_H

/* The builder of objects; arrays are built alike (ani_velon_build_array.h).
 *
 *   VelonObjectBuilder order;
 *   COD_TRY(velonObjectBuilderCreate(owner, 2, false, 0, &order));
 *   COD_TRY(velonObjectBuilderPushInteger(&order, &id, 7));
 *   COD_TRY(velonObjectBuilderPushString(&order, &name, &text));
 *   COD_TRY(velonObjectBuilderFinish(&order, &velon));
 *
 * 1. Create opens an outermost builder with a buffer of its own; PushObject and PushArray open a nested one, which writes behind what its
 *    parent has written. Then come exactly elementCount pushes, then Finish. While a nested builder is open, its parent takes no push and
 *    no Finish (ERR_CMM_VELON_INNER_UNCOMPLETED).
 * 2. A failed push or Finish leaves the builder as it was, but that its buffer may have grown: the same call may be made again. Free gives
 *    up an outermost builder, finished or not; a nested one owns nothing.
 * 3. Finish of an outermost builder moves the bytes to *velon, to be freed with velonFree; that of a nested one gives a view into the
 *    parent's buffer, valid until the next push.
 * 4. keySorted promises that keys come in the order of velonCompareKey, which saves the search; it is not checked. Equal keys are not
 *    refused here, but validation and readers of JSON do not take them.
 * 5. Builders point at one another: none moves in memory between opening and Finish. A builder belongs to one thread.
 * 6. Strings are not checked; velonCheckData wants UTF-8. Keys, texts and copied values may lie in the builder's own buffer.
 * 7. Errors of every push: ERR_CMM_VELON_INNER_UNCOMPLETED, ERR_CMM_VELON_REACHES_ELEMENT_COUNT, ERR_CMM_INVALID_PARAMETER for a key above
 *    VELON_MAX_KEY_LENGTH, those of velonBufPushString and its siblings, those of velonBufReserve; of PushLazyValue the readers' too. */

#include <vel_infra/velon/ani_velon_base.h>
#include <vel_infra/velon/ani_velon_build_array.h>

COD_BEGIN_DECLS

struct VelonObjectBuilder {
    VelonBuf bufOwned;      /* the outermost builder's own buffer */
    VelonBuf *buf;          /* the buffer written */
    CodUint16 elementCount; /* declared */
    CodUint16 kvCount;      /* written */
    CodBool keySorted;
    CodUint32 startPos;     /* the count field's position in the buffer */
    CodUint32 keyOffsetPos; /* the next free place in the key table */
    VelonDepth depth;
};

/* initialSize: room to begin with, in bytes; 0 for what the key table needs. On failure the builder may be freed.
 * Errors of the openers: ERR_CMM_VELON_NESTING_TOO_DEEPLY when VELON_MAX_DEPTH builders are open; those of velonBufReserve. */
COD_NODISCARD COD_API CodResult velonObjectBuilderCreate(CodMemAlloc *owner, CodUint16 elementCount, CodBool keySorted,
                                                         CodUint32 initialSize, VelonObjectBuilder *objBuilder);
/* Opens in a buffer of the caller's. depth: the parent's, whose builders this one counts among; zeroed or null: it is outermost, the
 * buffer must be empty (else ERR_CMM_INVALID_PARAMETER), Finish takes the bytes out of it, and Free leaves it to the caller. */
COD_NODISCARD COD_API CodResult velonObjectBuilderNew(VelonBuf *buf, CodUint16 elementCount, CodBool keySorted, CodUint32 initialSize,
                                                      VelonDepth *depth, VelonObjectBuilder *objBuilder);
COD_API void velonObjectBuilderFree(VelonObjectBuilder *objBuilder);

COD_NODISCARD COD_API CodResult velonObjectBuilderPushString(VelonObjectBuilder *objBuilder, const CodText *key, const CodText *value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushBool(VelonObjectBuilder *objBuilder, const CodText *key, CodBool value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushTinyint(VelonObjectBuilder *objBuilder, const CodText *key, CodInt8 value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushSmallint(VelonObjectBuilder *objBuilder, const CodText *key, CodInt16 value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushInteger(VelonObjectBuilder *objBuilder, const CodText *key, CodInt32 value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushBigint(VelonObjectBuilder *objBuilder, const CodText *key, CodInt64 value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushFloat(VelonObjectBuilder *objBuilder, const CodText *key, CodFloat value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushDouble(VelonObjectBuilder *objBuilder, const CodText *key, CodDouble value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushTimestamp(VelonObjectBuilder *objBuilder, const CodText *key, CodDate value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushDate(VelonObjectBuilder *objBuilder, const CodText *key, CodDate value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushTime(VelonObjectBuilder *objBuilder, const CodText *key, CodShortTime value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushBinary(VelonObjectBuilder *objBuilder, const CodText *key, const CodBytes *value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushNumber(VelonObjectBuilder *objBuilder, const CodText *key, const CodNumber *value);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushNull(VelonObjectBuilder *objBuilder, const CodText *key);
/* Copies a value: decoded and pushed by its type, containers byte by byte. */
COD_NODISCARD COD_API CodResult velonObjectBuilderPushLazyValue(VelonObjectBuilder *objBuilder, const CodText *key,
                                                                const VelonLazyValue *lazy);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushFullObject(VelonObjectBuilder *objBuilder, const CodText *key,
                                                                 const VelonObject *inner);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushFullArray(VelonObjectBuilder *objBuilder, const CodText *key,
                                                                const VelonArray *inner);
/* Open a nested builder. Errors: ERR_CMM_VELON_NESTING_TOO_DEEPLY too; the parent then has no new member. */
COD_NODISCARD COD_API CodResult velonObjectBuilderPushObject(VelonObjectBuilder *objBuilder, const CodText *key, CodUint16 elementCount,
                                                             CodBool keySorted, VelonObjectBuilder *nestedObjBuilder);
COD_NODISCARD COD_API CodResult velonObjectBuilderPushArray(VelonObjectBuilder *objBuilder, const CodText *key, CodUint16 elementCount,
                                                            VelonArrayBuilder *nestedArrBuilder);
/* The first step of every push: the key's record without its value, which the caller then writes to the buffer, type byte included. */
COD_NODISCARD COD_API CodResult velonObjectBuilderPushKey(VelonObjectBuilder *objBuilder, const CodText *key);

/* Errors: ERR_CMM_VELON_INNER_UNCOMPLETED, ERR_CMM_VELON_INCONSISTENT_ELEMENT_COUNT. */
COD_NODISCARD COD_API CodResult velonObjectBuilderFinish(VelonObjectBuilder *objBuilder, Velon *velon);

COD_END_DECLS

#endif
