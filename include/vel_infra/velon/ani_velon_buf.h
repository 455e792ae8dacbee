#ifndef VEL_INFRA_VELON_ANI_VELON_BUF_H
#define VEL_INFRA_VELON_ANI_VELON_BUF_H

/* The output buffer of builders. It belongs to one thread. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

/* An empty buffer that will take its memory from owner. */
COD_API VelonBuf velonBufNew(CodMemAlloc *owner);
/* A buffer of memory that owner allocated: capacity bytes at ptr, of which the first len are in use. It is the buffer's from now on.
 * Errors: ERR_CMM_INVALID_PARAMETER when len exceeds the capacity. */
COD_NODISCARD COD_API CodResult velonBufFromRaw(CodMemAlloc *owner, CodUint8 *ptr, CodUint32 capacity, CodUint32 len, VelonBuf *buf);
/* A buffer of exactly this capacity; none is allocated for 0. On failure buf is empty.
 * Errors: ERR_CMM_VELON_EXCEEDS_MAX_SIZE above VELON_MAX_SIZE; the owner's. */
COD_NODISCARD COD_API CodResult velonBufWithCapacity(CodMemAlloc *owner, CodUint32 capacity, VelonBuf *buf);

/* Makes room for `extra` bytes behind len; the capacity at least doubles when it grows. On failure the buffer is as it was.
 * Errors: ERR_CMM_VELON_EXCEEDS_MAX_SIZE when len + extra exceeds VELON_MAX_SIZE; the owner's. */
COD_NODISCARD COD_API CodResult velonBufReserve(VelonBuf *buf, CodUint32 extra);

/* Append a payload, as it stands behind a type byte: varint and bytes, varint and bytes, length byte and stored NUMBER. The source may
 * lie in the buffer itself. On failure no byte is written. Errors: ERR_CMM_VELON_STRING_TOO_LONG and ERR_CMM_VELON_BINARY_TOO_LONG above
 * VELON_MAX_LENGTH, checked first; ERR_CMM_NUMERIC_OVERFLOW for a NUMBER that has no stored form; those of velonBufReserve. */
COD_NODISCARD COD_API CodResult velonBufPushString(VelonBuf *buf, const CodText *text);
COD_NODISCARD COD_API CodResult velonBufPushBinary(VelonBuf *buf, const CodBytes *bytes);
COD_NODISCARD COD_API CodResult velonBufPushNumber(VelonBuf *buf, const CodNumber *number);

/* Hands the bytes to *velon, whose owner becomes the buffer's; the buffer is empty afterwards and may be used again. */
COD_API CodResult velonBufMoveToVelon(VelonBuf *buf, Velon *velon);
/* Frees the bytes; the buffer is empty afterwards. */
COD_API void velonBufFree(VelonBuf *buf);

COD_END_DECLS

#endif
