#ifndef VEL_INFRA_VELON_ANI_VELON_BUILD_ARRAY_H
#define VEL_INFRA_VELON_ANI_VELON_BUILD_ARRAY_H

/* The builder of arrays, by the rules of ani_velon_build_object.h. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

typedef struct VelonObjectBuilder VelonObjectBuilder;

typedef struct VelonArrayBuilder {
    VelonBuf bufOwned;       /* the outermost builder's own buffer */
    VelonBuf *buf;           /* the buffer written */
    CodUint16 elementCount;  /* declared */
    CodUint16 valueCount;    /* written */
    CodUint32 startPos;      /* the count field's position in the buffer */
    CodUint32 valueEntryPos; /* the next free entry's */
    VelonDepth depth;
} VelonArrayBuilder;

COD_NODISCARD COD_API CodResult velonArrayBuilderCreate(CodMemAlloc *owner, CodUint16 elementCount, CodUint32 initialSize,
                                                        VelonArrayBuilder *arrBuilder);
COD_NODISCARD COD_API CodResult velonArrayBuilderNew(VelonBuf *buf, CodUint16 elementCount, CodUint32 initialSize, VelonDepth *depth,
                                                     VelonArrayBuilder *arrBuilder);
COD_API void velonArrayBuilderFree(VelonArrayBuilder *arrBuilder);

COD_NODISCARD COD_API CodResult velonArrayBuilderPushString(VelonArrayBuilder *arrBuilder, const CodText *value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushBool(VelonArrayBuilder *arrBuilder, CodBool value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushTinyint(VelonArrayBuilder *arrBuilder, CodInt8 value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushSmallint(VelonArrayBuilder *arrBuilder, CodInt16 value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushInteger(VelonArrayBuilder *arrBuilder, CodInt32 value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushBigint(VelonArrayBuilder *arrBuilder, CodInt64 value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushFloat(VelonArrayBuilder *arrBuilder, CodFloat value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushDouble(VelonArrayBuilder *arrBuilder, CodDouble value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushTimestamp(VelonArrayBuilder *arrBuilder, CodDate value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushDate(VelonArrayBuilder *arrBuilder, CodDate value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushTime(VelonArrayBuilder *arrBuilder, CodShortTime value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushBinary(VelonArrayBuilder *arrBuilder, const CodBytes *value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushNumber(VelonArrayBuilder *arrBuilder, const CodNumber *value);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushNull(VelonArrayBuilder *arrBuilder);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushLazyValue(VelonArrayBuilder *arrBuilder, const VelonLazyValue *lazy);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushFullObject(VelonArrayBuilder *arrBuilder, const VelonObject *inner);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushFullArray(VelonArrayBuilder *arrBuilder, const VelonArray *inner);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushObject(VelonArrayBuilder *arrBuilder, CodUint16 elementCount, CodBool keySorted,
                                                            VelonObjectBuilder *nestedObjBuilder);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushArray(VelonArrayBuilder *arrBuilder, CodUint16 elementCount,
                                                           VelonArrayBuilder *nestedArrBuilder);

/* An entry alone. ValueEntry: of an out-of-line type, with the offset of the buffer's end, where the caller then writes the value, type
 * byte included; InlineValue: of an inline type, with its u32. Errors: ERR_CMM_VELON_INVALID_TYPE for a type of the other kind. */
COD_NODISCARD COD_API CodResult velonArrayBuilderPushValueEntry(VelonArrayBuilder *arrBuilder, VelonType type);
COD_NODISCARD COD_API CodResult velonArrayBuilderPushInlineValue(VelonArrayBuilder *arrBuilder, VelonType type, CodUint32 value);

COD_NODISCARD COD_API CodResult velonArrayBuilderFinish(VelonArrayBuilder *arrBuilder, Velon *velon);

COD_END_DECLS

#endif
