#ifndef VEL_INFRA_BITS_ANI_BITS_H
#define VEL_INFRA_BITS_ANI_BITS_H

/* Bit strings: bit b is bit b % 8 of byte b / 8. No byte without a bit of the range is touched; the other bits of the first and the last
 * byte stay. Positions and counts are bits. Pointers may be null when the count is 0. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* `num` bits from position `pos` on, num at most 64; the first one becomes bit 0. */
COD_API CodUint64 codGetBits64(const void *bits, CodUint64 pos, CodUint32 num);
/* Sets them to the low num bits of value. */
COD_API void codSetBits64(void *bits, CodUint64 pos, CodUint32 num, CodUint64 value);
/* Sets all bits of a range to `value`. */
COD_API void codSetRangeBits(void *bits, CodUint64 pos, CodUint64 num, CodBool value);
/* Copies `num` bits. The two ranges must not share a byte. */
COD_API void codCopyBits(void *dst, CodUint64 dstPos, const void *src, CodUint64 srcPos, CodUint64 num);

COD_END_DECLS

#endif
