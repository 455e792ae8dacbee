#ifndef VEL_INFRA_VELON_ANI_VELON_BUILD_SCALAR_H
#define VEL_INFRA_VELON_ANI_VELON_BUILD_SCALAR_H

/* Documents of one scalar, in memory of owner that is allocated to size; free them with velonFree. On failure *velon is untouched.
 * Errors: ERR_CMM_VELON_STRING_TOO_LONG and ERR_CMM_VELON_BINARY_TOO_LONG above VELON_MAX_LENGTH, ERR_CMM_VELON_EXCEEDS_MAX_SIZE,
 * ERR_CMM_NUMERIC_OVERFLOW for a NUMBER that has no stored form; the owner's. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

COD_NODISCARD COD_API CodResult velonBuildScalarString(CodMemAlloc *owner, const CodText *value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarBool(CodMemAlloc *owner, CodBool value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarTinyint(CodMemAlloc *owner, CodInt8 value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarSmallint(CodMemAlloc *owner, CodInt16 value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarInteger(CodMemAlloc *owner, CodInt32 value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarBigint(CodMemAlloc *owner, CodInt64 value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarFloat(CodMemAlloc *owner, CodFloat value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarDouble(CodMemAlloc *owner, CodDouble value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarTimestamp(CodMemAlloc *owner, CodDate value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarDate(CodMemAlloc *owner, CodDate value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarTime(CodMemAlloc *owner, CodShortTime value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarBinary(CodMemAlloc *owner, const CodBytes *value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarNumber(CodMemAlloc *owner, const CodNumber *value, Velon *velon);
COD_NODISCARD COD_API CodResult velonBuildScalarNull(CodMemAlloc *owner, Velon *velon);

COD_END_DECLS

#endif
