#ifndef VEL_INFRA_VELON_ANI_VELON_H
#define VEL_INFRA_VELON_ANI_VELON_H

/* A document as a whole: its handle, its root value, validation. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* An empty handle. */
COD_API void velonInit(Velon *velon);
/* A handle of these bytes. owner frees them in velonFree; null: the handle only views them. */
COD_API Velon velonNew(CodMemAlloc *owner, const VelonData *data);
/* Frees the bytes through the owner, if there is one. The handle is empty afterwards. */
COD_API void velonFree(Velon *velon);

COD_API const CodUint8 *velonGetDataPtr(const Velon *velon);
COD_API CodUint32 velonGetDataLength(const Velon *velon);

/* ---- The root value ---- */

COD_NODISCARD COD_API CodResult velonGetType(const Velon *velon, VelonType *type);
COD_NODISCARD COD_API CodResult velonCheckType(const Velon *velon, VelonType type, CodBool *isType);
COD_NODISCARD COD_API CodResult velonIsNull(const Velon *velon, CodBool *isNull);
COD_NODISCARD COD_API CodResult velonGetValue(const Velon *velon, VelonValue *value);

/* The value of one type. Errors: ERR_CMM_VELON_UNEXPECTED_TYPE when the root is of another. */
COD_NODISCARD COD_API CodResult velonGetObject(const Velon *velon, VelonObject *value);
COD_NODISCARD COD_API CodResult velonGetArray(const Velon *velon, VelonArray *value);
COD_NODISCARD COD_API CodResult velonGetString(const Velon *velon, CodText *value);
COD_NODISCARD COD_API CodResult velonGetBool(const Velon *velon, CodBool *value);
COD_NODISCARD COD_API CodResult velonGetTinyint(const Velon *velon, CodInt8 *value);
COD_NODISCARD COD_API CodResult velonGetSmallint(const Velon *velon, CodInt16 *value);
COD_NODISCARD COD_API CodResult velonGetInteger(const Velon *velon, CodInt32 *value);
COD_NODISCARD COD_API CodResult velonGetBigint(const Velon *velon, CodInt64 *value);
COD_NODISCARD COD_API CodResult velonGetFloat(const Velon *velon, CodFloat *value);
COD_NODISCARD COD_API CodResult velonGetDouble(const Velon *velon, CodDouble *value);
COD_NODISCARD COD_API CodResult velonGetTimestamp(const Velon *velon, CodDate *value);
COD_NODISCARD COD_API CodResult velonGetDate(const Velon *velon, CodDate *value);
COD_NODISCARD COD_API CodResult velonGetTime(const Velon *velon, CodShortTime *value);
COD_NODISCARD COD_API CodResult velonGetBinary(const Velon *velon, CodBytes *value);
COD_NODISCARD COD_API CodResult velonGetNumber(const Velon *velon, CodNumber *value);

/* The same without a look at the type byte, for callers that know it. */
COD_NODISCARD COD_API CodResult velonGetObjectUnchecked(const Velon *velon, VelonObject *value);
COD_NODISCARD COD_API CodResult velonGetArrayUnchecked(const Velon *velon, VelonArray *value);
COD_NODISCARD COD_API CodResult velonGetStringUnchecked(const Velon *velon, CodText *value);
COD_NODISCARD COD_API CodResult velonGetBoolUnchecked(const Velon *velon, CodBool *value);
COD_NODISCARD COD_API CodResult velonGetTinyintUnchecked(const Velon *velon, CodInt8 *value);
COD_NODISCARD COD_API CodResult velonGetSmallintUnchecked(const Velon *velon, CodInt16 *value);
COD_NODISCARD COD_API CodResult velonGetIntegerUnchecked(const Velon *velon, CodInt32 *value);
COD_NODISCARD COD_API CodResult velonGetBigintUnchecked(const Velon *velon, CodInt64 *value);
COD_NODISCARD COD_API CodResult velonGetFloatUnchecked(const Velon *velon, CodFloat *value);
COD_NODISCARD COD_API CodResult velonGetDoubleUnchecked(const Velon *velon, CodDouble *value);
COD_NODISCARD COD_API CodResult velonGetTimestampUnchecked(const Velon *velon, CodDate *value);
COD_NODISCARD COD_API CodResult velonGetDateUnchecked(const Velon *velon, CodDate *value);
COD_NODISCARD COD_API CodResult velonGetTimeUnchecked(const Velon *velon, CodShortTime *value);
COD_NODISCARD COD_API CodResult velonGetBinaryUnchecked(const Velon *velon, CodBytes *value);
COD_NODISCARD COD_API CodResult velonGetNumberUnchecked(const Velon *velon, CodNumber *value);

/* ---- Validation ---- */

/* Accepts a document that is one whole value, in which every value is readable and lies within its container, object keys ascend
 * strictly, strings are UTF-8, NUMBERs decode, dates and times are in range, array entries agree with the values they lead to, and at most
 * VELON_MAX_DEPTH containers lie around another. Takes at most VELON_WORK_FACTOR steps for each byte. Keys may be any bytes.
 * Errors: the readers'; ERR_CMM_VELON_DATA_LENGTH_MISMATCHED, ERR_CMM_VELON_INVALID_KEY, ERR_CMM_VELON_INVALID_UNICODE,
 * ERR_CMM_VELON_INVALID_DATETIME, ERR_CMM_VELON_NESTING_TOO_DEEPLY (too much work as well). */
COD_NODISCARD COD_API CodResult velonCheckData(const Velon *velon);

COD_END_DECLS

#endif
