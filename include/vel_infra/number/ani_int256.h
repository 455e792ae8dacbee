#ifndef VEL_INFRA_NUMBER_ANI_INT256_H
#define VEL_INFRA_NUMBER_ANI_INT256_H

/* Unsigned integers of 128 and 256 bits, and the powers of ten: what exact decimal arithmetic (ani_number.h) is made of.
 *
 * 1. Words are little-endian: item64[0] is the lowest. Every bit pattern is a value.
 * 2. Results may be operands: they are written when all operands have been read.
 * 3. A result that does not fit raises ERR_CMM_NUMERIC_OVERFLOW; *result then holds its low bits, as wrapping arithmetic has it. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

typedef struct CodLargeInt {
    CodUint64 item64[2];
} CodLargeInt;
COD_STATIC_ASSERT(sizeof(CodLargeInt) == 16, "layout is fixed");

typedef struct CodHugeInt {
    CodUint64 item64[4];
} CodHugeInt;
COD_STATIC_ASSERT(sizeof(CodHugeInt) == 32, "layout is fixed");

/* ---- Powers of ten ---- */

#define COD_DECIMAL_EXPONENTS 77

/* Entry i is 10^i. */
COD_API extern const CodHugeInt gDecimalExponents[COD_DECIMAL_EXPONENTS];
/* Entry 0 is 0, entry i is 5 * 10^(i-1): half of 10^i. */
COD_API extern const CodHugeInt gDecimalRoundings[COD_DECIMAL_EXPONENTS];
/* Entry i is the length of 10^i in bytes; entry 0 holds 16. */
COD_API extern const CodUint8 gDecimalExponentsBytes[COD_DECIMAL_EXPONENTS];

/* gDecimalExponentsBytes[index]; 0 for an index past the table. */
COD_API CodUint32 aniGetDecimalExponentsBytes(CodUint32 index);

/* ---- Arithmetic ---- */

/* 128 by 128 bits; always fits. */
COD_API CodResult codMulLargeInt(const CodLargeInt *iLarge1, const CodLargeInt *iLarge2, CodHugeInt *result);
/* 128 by 64 bits; always fits. */
COD_API CodResult codMulLargeIntI64(const CodLargeInt *iLarge, CodUint64 i64, CodHugeInt *result);
COD_API CodResult codMulHugeIntI64(const CodHugeInt *iHuge, CodUint64 i64, CodHugeInt *result);
COD_API CodResult codMulHugeLarge(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result);
COD_API CodResult codMulHugeInt(const CodHugeInt *iHuge1, const CodHugeInt *iHuge2, CodHugeInt *result);
COD_API CodResult codAddHugeLarge(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result);
/* *result = iHuge - iLarge. A difference below zero does not fit. */
COD_API CodResult codSubHugeLarge(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result);
/* Adds in place. */
COD_API CodResult codIncreaseHugeIntI64(CodHugeInt *iHuge, CodUint64 i64);
COD_API CodResult codIncreaseLargeIntI64(CodLargeInt *iLarge, CodUint64 i64);
/* *result = iLarge1 * 10^e. */
COD_API CodResult codPowLargeIntDecimal(const CodLargeInt *iLarge1, CodUint32 e, CodHugeInt *result);

/* Quotient and remainder. Errors: ERR_CMM_DIVISION_BY_ZERO. */
COD_API CodResult codDivHugeInt(const CodHugeInt *iHuge, const CodLargeInt *iLarge, CodHugeInt *result, CodLargeInt *mod);
COD_API CodResult codDivLargeIntI64(const CodLargeInt *iLarge, CodUint64 i64, CodLargeInt *result, CodUint64 *mod);

/* Decimal digits; 0 for zero. */
COD_API CodUint32 codGetLargeIntDigits(const CodLargeInt *iLarge);
COD_API CodUint32 codGetHugeIntDigits(const CodHugeInt *iHuge);

/* ---- Text: decimal digits, no sign ---- */

/* Writes the digits, without leading zeros, and a terminator. 79 bytes hold every value.
 * Errors: ERR_CMM_FORMAT_STR_OVERFLOW, and nothing is written. */
COD_API CodResult codLargeInt2Str(const CodLargeInt *iLarge, CodChar *str, CodUint32 bufSize);
COD_API CodResult codHugeInt2Str(const CodHugeInt *iHuge, CodChar *str, CodUint32 bufSize);
/* The same into text->str, a buffer of bufSize bytes; sets text->len to the digits alone. */
COD_API CodResult codLargeInt2Text(const CodLargeInt *iLarge, CodText *text, CodUint32 bufSize);
COD_API CodResult codHugeInt2Text(const CodHugeInt *iHuge, CodText *text, CodUint32 bufSize);

/* Reads one digit or more and nothing else; leading zeros are free.
 * Errors: ERR_CMM_INVALID_NUMBER; ERR_CMM_NUMERIC_OVERFLOW, and *result is left alone. */
COD_API CodResult codStr2LargeInt(const CodChar *str, CodLargeInt *result);
COD_API CodResult codText2LargeInt(const CodText *text, CodLargeInt *result);
COD_API CodResult codStr2HugeInt(const CodChar *str, CodHugeInt *result);
COD_API CodResult codText2HugeInt(const CodText *text, CodHugeInt *result);
/* The same from a UTF-16 text (little-endian, length in bytes). An odd length is ERR_CMM_INVALID_NUMBER. */
COD_API CodResult codUtf16Text2LargeInt(const CodText *text, CodLargeInt *result);

COD_END_DECLS

#endif
