#ifndef VEL_INFRA_VELON_ANI_VELON_LAZY_H
#define VEL_INFRA_VELON_ANI_VELON_LAZY_H

/* Lazy values: found by a lookup, decoded on demand. Each getter checks the type, then decodes at the type byte or by the array's entry.
 * Errors: ERR_CMM_VELON_UNEXPECTED_TYPE when the value is of another type, or of another one than its entry says. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

COD_NODISCARD COD_API CodResult velonLazyGetObject(const VelonLazyValue *lazy, VelonObject *value);
COD_NODISCARD COD_API CodResult velonLazyGetArray(const VelonLazyValue *lazy, VelonArray *value);
COD_NODISCARD COD_API CodResult velonLazyGetString(const VelonLazyValue *lazy, CodText *value);
COD_NODISCARD COD_API CodResult velonLazyGetBool(const VelonLazyValue *lazy, CodBool *value);
COD_NODISCARD COD_API CodResult velonLazyGetTinyint(const VelonLazyValue *lazy, CodInt8 *value);
COD_NODISCARD COD_API CodResult velonLazyGetSmallint(const VelonLazyValue *lazy, CodInt16 *value);
COD_NODISCARD COD_API CodResult velonLazyGetInteger(const VelonLazyValue *lazy, CodInt32 *value);
COD_NODISCARD COD_API CodResult velonLazyGetBigint(const VelonLazyValue *lazy, CodInt64 *value);
COD_NODISCARD COD_API CodResult velonLazyGetFloat(const VelonLazyValue *lazy, CodFloat *value);
COD_NODISCARD COD_API CodResult velonLazyGetDouble(const VelonLazyValue *lazy, CodDouble *value);
COD_NODISCARD COD_API CodResult velonLazyGetTimestamp(const VelonLazyValue *lazy, CodDate *value);
COD_NODISCARD COD_API CodResult velonLazyGetDate(const VelonLazyValue *lazy, CodDate *value);
COD_NODISCARD COD_API CodResult velonLazyGetTime(const VelonLazyValue *lazy, CodShortTime *value);
COD_NODISCARD COD_API CodResult velonLazyGetBinary(const VelonLazyValue *lazy, CodBytes *value);
COD_NODISCARD COD_API CodResult velonLazyGetNumber(const VelonLazyValue *lazy, CodNumber *value);

/* Validates one value as velonCheckData does, but that it may be followed by other bytes: work is bounded by lazy->data.len. depth: the
 * containers that lie around it; above VELON_MAX_DEPTH is an error at once. */
COD_NODISCARD COD_API CodResult velonLazyValueCheck(const VelonLazyValue *lazy, CodUint8 depth);

COD_END_DECLS

#endif
