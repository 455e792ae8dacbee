#ifndef VEL_INFRA_BITOPS_ANI_BITPACK_H
#define VEL_INFRA_BITOPS_ANI_BITPACK_H

/* Bit packing: unsigned integers with a fixed number of bits each, in blocks of 32.
 *
 * Value i of width N takes bits i * N to i * N + N - 1 of the stream, the low bit first; bit b of the stream is bit b % 8 of byte b / 8. A
 * block takes 4 * N bytes. Persisted: every packer writes, and every unpacker reads, this one layout; they differ in speed alone.
 *
 * 1. Nothing here checks sizes or widths, but for codUnpack32Checked: a width is 0 to 32, and the buffers hold what the counts say. No byte
 *    outside of the blocks is read or written.
 * 2. Packed bytes may stand at any address; values at one that suits their type. Input and output must not overlap.
 * 3. Packers take the low N bits of a value; width 0 packs to nothing, and unpacks to zeros.
 * 4. Pure functions, but for the choice of codBitPackSetSimdType, which is made at start-up. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

#define COD_BITPACK_BLOCK 32u     /* values of a block */
#define COD_BITPACK_MAX_WIDTH 32u /* bits of a value */

/* ---- Columns ---- */

/* Packs the whole blocks of the batch, and returns how many values that were: batchLen less its remainder by 32. out takes bitsNum / 8
 * bytes for each. The rest is the caller's. */
COD_API CodUint32 codPack32(const CodUint32 *batch, CodUint32 batchLen, CodUint32 bitsNum, void *out);
COD_API CodUint32 codPack64(const CodUint64 *batch, CodUint32 batchLen, CodUint32 bitsNum, void *out);
/* Unpacks as many values, and returns the same count. codUnpack64 is scalar whatever the choice. */
COD_API CodUint32 codUnpack32(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen);
COD_API CodUint32 codUnpack64(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen);

/* The same by one decoder. The Simd ones are for processors that have what they are named for: AVX2; AVX-512 with its byte permutations
 * (VBMI). */
COD_API CodUint32 codUnpack32Normal(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen);
COD_API CodUint32 codUnpack32Simd256(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen);
COD_API CodUint32 codUnpack32Simd512(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen);
COD_API CodUint32 codUnpack64Normal(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen);

/* What codBitPackSetSimdType takes. */
typedef enum CodSimdType COD_ENUM_BASE {
    COD_SIMD_NONE = 0,
    COD_SIMD_256 = 1,
    COD_SIMD_512 = 2,
} CodSimdType;

/* Chooses the decoder of codUnpack32, codUnpack64Fast and codPackedCompare32: 1 the 256-bit one, 2 the 512-bit one, any other value the
 * scalar one, which is the choice at first. codPack32 has a 512-bit form besides the scalar one. What the processor lacks is the next
 * narrower one. At start-up, before packing. */
COD_API void codBitPackSetSimdType(CodUint32 type);
/* The choice in force, and the best one that this processor has. */
COD_API CodUint32 codBitPackGetSimdType(void);
COD_API CodUint32 codBitPackDetectSimdType(void);

/* For bytes from outside: unpacks exactly batchLen values, whole blocks and the rest, reads no more than inBytes bytes, and says when they
 * are too few. Errors: ERR_CMM_INVALID_PARAMETER for a width above 32, ERR_CMM_BUFFER_SIZE_TOO_SMALL for fewer than batchLen * bitsNum
 * bits. */
COD_NODISCARD COD_API CodResult codUnpack32Checked(const void *in, CodUint32 inBytes, CodUint32 bitsNum, CodUint32 *batch,
                                                   CodUint32 batchLen);

/* ---- Beyond 32 bits ---- */

/* codUnpack64 by the chosen decoder. */
COD_API CodUint32 codUnpack64Fast(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen);
/* Widths 0 to 64, in the same layout; scalar. */
COD_API CodUint32 codPack64Wide(const CodUint64 *batch, CodUint32 batchLen, CodUint32 bitsNum, void *out);
COD_API CodUint32 codUnpack64Wide(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen);

/* ---- One block ---- */

/* pack32_7 and its kin: one block of the width in their name. They return the place behind what they wrote (pack) or read (unpack). */
typedef void *(*CodPack32Block)(const CodUint32 *in, void *out);
typedef void *(*CodPack64Block)(const CodUint64 *in, void *out);
typedef const void *(*CodUnpack32Block)(const void *in, CodUint32 *out);
typedef const void *(*CodUnpack64Block)(const void *in, CodUint64 *out);

/* M(N) for each vector width, and for each width. */
/* clang-format off */
#define COD_FOR_EACH_SIMD_WIDTH(M)                                                  \
    M(1) M(2) M(3) M(4) M(5) M(6) M(7) M(8) M(9) M(10) M(11) M(12) M(13) M(14)      \
    M(15) M(16) M(17) M(18) M(19) M(20) M(21) M(22) M(23) M(24) M(25) M(26) M(27)   \
    M(28) M(29) M(30) M(31)
/* clang-format on */
#define COD_FOR_EACH_WIDTH(M) M(0) COD_FOR_EACH_SIMD_WIDTH(M) M(32)

#define COD_DECLARE_BLOCKS(N)                                         \
    COD_API void *pack32_##N(const CodUint32 *in, void *out);         \
    COD_API void *pack64_##N(const CodUint64 *in, void *out);         \
    COD_API const void *unpack32_##N(const void *in, CodUint32 *out); \
    COD_API const void *unpack64_##N(const void *in, CodUint64 *out);
COD_FOR_EACH_WIDTH(COD_DECLARE_BLOCKS)
#undef COD_DECLARE_BLOCKS

#define COD_DECLARE_SIMD_BLOCKS(N)                                        \
    COD_API const void *unpack32_256_##N(const void *in, CodUint32 *out); \
    COD_API const void *unpack32_512_##N(const void *in, CodUint32 *out);
COD_FOR_EACH_SIMD_WIDTH(COD_DECLARE_SIMD_BLOCKS)
#undef COD_DECLARE_SIMD_BLOCKS

/* The blocks by width, 0 to 32. The vector tables have the scalar ones at 0 and 32. */
COD_API extern const CodPack32Block gPack32Normal[33];
COD_API extern const CodPack64Block gPack64Normal[33];
COD_API extern const CodUnpack32Block gUnpack32Normal[33];
COD_API extern const CodUnpack64Block gUnpack64Normal[33];
COD_API extern const CodUnpack32Block gUnpack32Simd256[33];
COD_API extern const CodUnpack32Block gUnpack32Simd512[33];

COD_END_DECLS

#endif
