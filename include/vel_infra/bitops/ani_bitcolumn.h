#ifndef VEL_INFRA_BITOPS_ANI_BITCOLUMN_H
#define VEL_INFRA_BITOPS_ANI_BITCOLUMN_H

/* Columns of 32-bit integers, packed with a header that says how, and filters on packed values.
 *
 * Persisted forms, little-endian:
 *
 *   offset 0   4   base: the smallest value (frame of reference), or the first one (delta)
 *          4   4   count
 *          8   1   width: bits of each value packed, 0 to 32
 *          9   1   form: 1 frame of reference, 2 delta
 *          10  2   0
 *          12      count * width bits in the layout of ani_bitpack.h, the last byte filled up with zeros
 *
 * The decoders are for bytes from outside: they read within inBytes, and refuse what is no such form. All are pure functions; none
 * allocates. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

#define COD_BITCOLUMN_HEADER_SIZE 12

/* The bytes that count values of this width take, header included. */
COD_API CodUint64 codBitColumnSize(CodUint32 count, CodUint32 bitsNum);
/* The bits that hold every value; 0 when all are 0. */
COD_API CodUint32 codBitsOfMax32(const CodUint32 *values, CodUint32 count);

/* Frame of reference: each value less the smallest one. *size becomes the bytes written.
 * Errors: ERR_CMM_BUFFER_SIZE_TOO_SMALL when outSize does not hold them. */
COD_NODISCARD COD_API CodResult codForEncode32(const CodUint32 *values, CodUint32 count, void *out, CodUint32 outSize, CodUint32 *size);
/* Unpacks all values; *count becomes their number. On failure some may have been written.
 * Errors: ERR_CMM_INVALID_PARAMETER for bytes that are no frame of reference, or whose values exceed 32 bits, ERR_CMM_BUFFER_SIZE_TOO_SMALL
 * when they are too few for the values that they promise, or `capacity` is. */
COD_NODISCARD COD_API CodResult codForDecode32(const void *in, CodUint32 inBytes, CodUint32 *values, CodUint32 capacity, CodUint32 *count);

/* Delta: each value less the one before, for values that never fall. Errors: ERR_CMM_INVALID_PARAMETER when one does, and as above. */
COD_NODISCARD COD_API CodResult codDeltaEncode32(const CodUint32 *values, CodUint32 count, void *out, CodUint32 outSize, CodUint32 *size);
COD_NODISCARD COD_API CodResult codDeltaDecode32(const void *in, CodUint32 inBytes, CodUint32 *values, CodUint32 capacity,
                                                 CodUint32 *count);

typedef enum CodCompareOp COD_ENUM_BASE {
    COD_COMPARE_EQ = 0,
    COD_COMPARE_NE,
    COD_COMPARE_LT,
    COD_COMPARE_LE,
    COD_COMPARE_GT,
    COD_COMPARE_GE,
    __COD_COMPARE_OP_COUNT__
} CodCompareOp;

/* Compares `count` packed values with a constant: bit i of the bitmap (bit i % 8 of byte i / 8) becomes "value i op constant"; the bits
 * behind the last one in its byte become 0. The values are not stored. Reads the blocks that the count begins, and within the last one no
 * byte behind its last value. By the decoder that codBitPackSetSimdType has chosen. Errors: ERR_CMM_INVALID_PARAMETER for a width above 32
 * or an unknown op. */
COD_NODISCARD COD_API CodResult codPackedCompare32(const void *in, CodUint32 bitsNum, CodUint32 count, CodCompareOp op, CodUint32 constant,
                                                   CodUint8 *bitmap);

COD_END_DECLS

#endif
