#ifndef VEL_INFRA_NUMBER_ANI_NUMBER_H
#define VEL_INFRA_NUMBER_ANI_NUMBER_H

/* NUMBER, the exact decimal: up to 38 significant digits, magnitudes from 10^-130 to below 10^126.
 *
 * A value is (-1)^sign * value * 10^exp. Every result has at most 38 digits, rounded half up on the magnitude (away from zero); one that
 * would be 10^126 or more is ERR_CMM_NUMERIC_OVERFLOW, one below 10^-130 is zero without an error. Zero results have value, sign and exp 0.
 *
 * 1. The form is not unique: 1, 10 * 10^-1 and 100 * 10^-2 are equal. Each operation says which form it gives, or gives the one that its
 *    steps lead to, the same on every machine. codNumberNormalize and codNumberEncode give canonical forms.
 * 2. Every record is accepted as an operand, canonical or not: a zero coefficient is zero whatever its sign and exponent, any non-zero
 *    sign is negative, a coefficient may have 39 digits (a rounding that carries gives 10^38), an exponent any value.
 * 3. Results may be operands. After a failure the result is undefined, and what an operation changes in place may have changed.
 * 4. All are pure functions; none allocates.
 * 5. More: ani_number_key.h (keys in memcmp order), ani_number_sum.h (exact sums), ani_number_batch.h (columns of values). */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/number/ani_int256.h>

COD_BEGIN_DECLS

/* Persisted as its 20 bytes in raw stored forms. Read and write value.item64 through the record: its words are aligned to 4 bytes. */
#pragma pack(push, 4)
typedef struct CodNumber {
    CodLargeInt value; /* the coefficient, a magnitude */
    CodInt8 sign;      /* 0: zero or positive, 1: negative */
    CodUint8 unused;   /* 0 */
    CodInt16 exp;      /* power of ten */
} CodNumber;
#pragma pack(pop)
COD_STATIC_ASSERT(sizeof(CodNumber) == 20, "layout is fixed");
COD_STATIC_ASSERT(offsetof(CodNumber, sign) == 16 && offsetof(CodNumber, exp) == 18, "layout is fixed");

/* Significant digits of a result, and its range: exp + digits is at most MAX, and at least MIN or the result is zero. */
#define COD_NUMBER_DIGITS 38
#define COD_NUMBER_MAX_MAGNITUDE 126
#define COD_NUMBER_MIN_MAGNITUDE (-129)

/* ---- Arithmetic ---- */

/* Errors of all: ERR_CMM_NUMERIC_OVERFLOW. The exponent of a sum or difference is the smaller one of the operands, that of a product
 * the sum of both, unless digits had to be rounded away. Operands 39 and more powers of ten apart: the smaller one counts only as far as
 * it reaches the 38 digits kept; what is cut from it is dropped in a sum and rounded half up in a difference. */
COD_API CodResult codNumberAdd(const CodNumber *n1, const CodNumber *n2, CodNumber *result);
COD_API CodResult codNumberSub(const CodNumber *n1, const CodNumber *n2, CodNumber *result);
COD_API CodResult codNumberMul(const CodNumber *n1, const CodNumber *n2, CodNumber *result);
/* The quotient keeps 38 digits even when fewer say it: 6 / 2 is 3 * 10^37 with exponent -37. Errors: ERR_CMM_DIVISION_BY_ZERO too. */
COD_API CodResult codNumberDiv(const CodNumber *n1, const CodNumber *n2, CodNumber *result);
/* The exact remainder, with the sign of n1 (zero below 10^-130, as every result); n1 itself when n2 is zero or the larger magnitude. */
COD_API CodResult codNumberMod(const CodNumber *n1, const CodNumber *n2, CodNumber *result);
/* The square root in place, correctly rounded, in canonical form. A negative operand returns COD_ERROR and leaves no error on the stack:
 * the caller, who knows the function's name, raises its own. */
COD_API CodResult codNumberSqrt(CodNumber *vNum);

/* -1, 0 or 1, by value. Null is ordered before every number. */
COD_API CodInt32 codNumberCompare(const CodNumber *n1, const CodNumber *n2);
/* The same on magnitudes. */
COD_API CodInt32 codNumberAbsCompare(const CodNumber *n1, const CodNumber *n2);
/* By value: 10 * 10^-1 is an integer. */
COD_API CodBool codNumberIsInteger(const CodNumber *n);

/* ---- Scale and precision ---- */

/* Fit to a column NUMBER(precision, scale): the exponent becomes -scale. Rounds half up; zero stays as it is.
 * Errors: ERR_CMM_NUMERIC_PREC_TOO_LARGE when the value does not fit the precision. */
COD_API CodResult codNumberRound(CodNumber *n, CodInt32 precision, CodInt32 scale);
/* The same, rounding toward minus infinity. */
COD_API CodResult codNumberFloor(CodNumber *n, CodInt32 precision, CodInt32 scale);
/* Brings the exponent into [lowestExp, highestExp] and the coefficient to at most `precision` digits, or 10^precision by a carry.
 * With D the coefficient's digits: an exponent below the lowest is raised to it by cutting digits, and D - precision digits more are cut
 * when what is left exceeds the precision; one above the highest is lowered to it by widening; otherwise D - precision digits are cut when
 * there are more than `precision`. Cutting is one rounding, half up, or truncation when asked for; more than 76 digits cut give zero.
 * Errors: ERR_CMM_NUMERIC_OVERFLOW when widening exceeds the precision, when a cut leaves zero and highestExp is negative, or when a cut
 * leaves the exponent above highestExp. */
COD_API CodResult codNumberRoundToPrecision(CodNumber *n, CodInt32 precision, CodInt32 highestExp, CodInt32 lowestExp, CodBool truncate);
/* Clamps into NUMBER(precision, scale), rounding half up; never fails. The exponent becomes -scale, also that of zero. Gives the sign of
 * (stored - given). A value that does not fit becomes the largest one of its sign that does, and *overflow 1; otherwise *overflow is 0.
 * overflow may be null. A precision outside [0, 38] and a scale outside [-32767, 32768] count as the nearest in range. */
COD_API CodInt32 codNumberForceAlign(CodNumber *n, CodInt32 precision, CodInt32 scale, CodInt32 *overflow);
/* Canonical form in place: an integer gets exponent 0 as far as 38 digits allow, other values lose the trailing zeros of their fraction.
 * Zero and every value with exponent 0 stay as they are. */
COD_API CodResult codNumberNormalize(CodNumber *n);
/* To an integer in place, toward minus infinity, or plus infinity when isCeil. Exponent 0 unless it was positive. */
COD_API CodResult codNumberFloorOrCeil(CodNumber *n, CodBool isCeil);
/* The same into a native integer. Errors: those of codNumberToInt64. */
COD_API CodResult codNumberToInt64FloorOrCeil(const CodNumber *n, CodInt64 *v, CodBool isCeil);
/* Fit to a column FLOAT(floatPrecision): rounds half up to the decimal digits that this many binary ones say,
 * floatPrecision * 0.30103 rounded up. Errors: ERR_CMM_INVALID_PARAMETER for a precision below 1. */
COD_API CodResult codNumericFloatRound(CodNumber *number, CodInt32 floatPrecision);
/* codNumberFloorOrCeil toward minus infinity. */
COD_API CodResult codNumericFloatFloor(CodNumber *number);

typedef enum CodRoundMode COD_ENUM_BASE {
    COD_ROUND_HALF_UP = 0, /* to the nearest; a tie away from zero */
    COD_ROUND_HALF_EVEN,   /* a tie to the even digit */
    COD_ROUND_HALF_DOWN,   /* a tie toward zero */
    COD_ROUND_UP,          /* away from zero */
    COD_ROUND_DOWN,        /* toward zero */
    COD_ROUND_CEILING,     /* toward plus infinity */
    COD_ROUND_FLOOR,       /* toward minus infinity */
} CodRoundMode;

/* Rounds in place to `scale` digits after the point (negative: before it). A value with no more digits than that stays as it is; else
 * the exponent becomes -scale. Errors: ERR_CMM_INVALID_PARAMETER for an unknown mode, ERR_CMM_NUMERIC_OVERFLOW. */
COD_API CodResult codNumberRoundMode(CodNumber *n, CodInt32 scale, CodRoundMode mode);

/* ---- Native integers ---- */

/* A fraction is rounded half up, or truncated toward zero by the members called Floor and Truncate.
 * Errors: ERR_CMM_NUMERIC_TOO_LARGE, ERR_CMM_NUMERIC_TOO_SMALL. A form with a large exponent is refused even for zero: above 2 for 8-bit
 * types, 5 for the signed and 4 for the unsigned 16-bit ones, 9 for 32-bit and 19 for signed 64-bit ones. */
COD_API CodResult codNumberToInt8(const CodNumber *n, CodInt8 *v);
COD_API CodResult codNumberToInt8Floor(const CodNumber *n, CodInt8 *v);
COD_API CodResult codNumberToInt16(const CodNumber *n, CodInt16 *v);
COD_API CodResult codNumberToInt16Floor(const CodNumber *n, CodInt16 *v);
COD_API CodResult codNumberToInt32(const CodNumber *n, CodInt32 *v);
COD_API CodResult codNumberToInt32Floor(const CodNumber *n, CodInt32 *v);
COD_API CodResult codNumberToInt64(const CodNumber *n, CodInt64 *v);
COD_API CodResult codNumberToInt64Truncate(const CodNumber *n, CodInt64 *v);
/* A negative value that rounds to zero gives 0. */
COD_API CodResult codNumberToUint8(const CodNumber *n, CodUint8 *v);
COD_API CodResult codNumberToUint16(const CodNumber *n, CodUint16 *v);
COD_API CodResult codNumberToUint32(const CodNumber *n, CodUint32 *v);
/* Accepts every integer value in range in any form. */
COD_API CodResult codNumberToUint64(const CodNumber *n, CodUint64 *v);

/* Exact, exponent 0. */
COD_API CodResult codNumberFromInt64(CodNumber *n, CodInt64 v);
COD_API CodResult codNumberFromUint64(CodNumber *n, CodUint64 v);

/* ---- Binary floating point ---- */

/* The nearest double or float, ties to even, while the processor rounds so, which is the default. Errors: ERR_CMM_TYPECONV_ERROR when the
 * magnitude is beyond the type. */
COD_API CodResult codNumberToDouble(const CodNumber *n, CodDouble *v);
COD_API CodResult codNumberToFloat(const CodNumber *n, CodFloat *v);
/* The value to 17 (double) or 9 (float) digits: 0.03 becomes 0.029999999999999999.
 * Errors of all: ERR_CMM_TYPECONV_ERROR for NaN and infinities, ERR_CMM_NUMERIC_OVERFLOW. */
COD_API CodResult codNumberFromDouble(CodNumber *n, CodDouble v);
COD_API CodResult codNumberFromFloat(CodNumber *n, CodFloat v);
/* The shortest decimal that reads back to v, nearest to v among those of its length: 0.03 becomes 3 * 10^-2. */
COD_API CodResult codNumberFromDoubleShortest(CodNumber *n, CodDouble v);
COD_API CodResult codNumberFromFloatShortest(CodNumber *n, CodFloat v);
/* bits * 2^exponent2 as codNumberFromDouble, or codNumberFromFloat, has it. The powers of two are worked off one by one in 128 bits, which
 * may drop low bits; the coefficient is cut to 17 (9) digits, one at a time, and rounded by the last digit cut alone. */
COD_API CodResult bits2Number(CodUint64 bits, CodInt32 exponent2, CodInt8 sign, CodBool isDouble, CodNumber *result);

/* ---- Stored form: docs/number.md. Persisted: never changes ---- */

/* The full form of 3 to 18 bytes, of which only those in use are there. */
typedef struct CodNumberData {
    CodUint8 sign : 1;    /* 1: negative */
    CodUint8 expSign : 1; /* 1: the exponent is negative */
    CodUint8 unused : 6;  /* 0 */
    CodUint8 exp;         /* magnitude of the exponent */
    CodUint8 bytes[16];   /* the coefficient's, low byte first; its high zero bytes are left out */
} CodNumberData;
COD_STATIC_ASSERT(sizeof(CodNumberData) == 18, "persisted");

/* Room for every stored form. */
#define COD_NUMBER_STORED_SIZE 20

/* The stored form of n into bytes->data, a buffer of COD_NUMBER_STORED_SIZE bytes (bytes behind the form may be overwritten); sets
 * bytes->size. Forms of equal values may differ. Errors: ERR_CMM_NUMERIC_OVERFLOW for an exponent beyond [-255, 255]. */
COD_API CodResult codEncodeNumber(const CodNumber *n, CodBytes *bytes);
/* First removes every trailing zero digit of *num, so equal values give equal bytes. */
COD_API CodResult codNumberEncode(CodNumber *num, CodBytes *bytes);
/* Errors: ERR_CMM_BYTES_ERROR for a size of 0, 19 or more than 20. */
COD_API CodResult codDecodeNumber(const CodBytes *bytes, CodNumber *n);
/* The order of two stored forms by value: -1, 0 or 1. A form that does not decode is ordered as zero. */
COD_API CodInt32 codNumberDataCompare(const CodBytes *bytes1, const CodBytes *bytes2);
/* The same for the case that one side or both have fewer than 3 bytes. */
COD_API CodInt32 cmpSimpleNumberData(const CodBytes *bytes1, const CodBytes *bytes2);

/* ---- Text ---- */

/* Room for every text that codNumber2Text, codNumber2Str and codNumber2SciText write, terminator included. */
#define COD_NUMBER_TEXT_SIZE 64

/* Reads blanks, sign, digits with at most one point, exponent, blanks; at least one digit, no blanks inside. The scale stays as written
 * (1.50 becomes 150 * 10^-2); more than 38 significant digits round half up. Below 10^-130 is zero.
 * Errors: ERR_CMM_INVALID_NUMBER, ERR_CMM_NUMERIC_OVERFLOW. */
COD_API CodResult codNumberFromStr(const char *str, CodNumber *n);
COD_API CodResult codNumberFromText(const CodText *text, CodNumber *n);
/* Writes plain digits ("-1234.5", "0.001", without trailing zeros of a fraction) when there are at most 38 integer digits and at most 6
 * zeros between the point and the first digit, else as codNumber2SciText. What is written reads back to the same value, as far as it has
 * at most 38 digits. Bytes of the buffer behind the terminator may be overwritten.
 * Errors: ERR_CMM_FORMAT_STR_OVERFLOW when the text with its terminator exceeds bufSize, and nothing is written. */
COD_API CodResult codNumber2Str(const CodNumber *n, char *str, CodUint32 bufSize);
/* The same into text->str, a buffer of bufSize bytes; sets text->len to the text alone. */
COD_API CodResult codNumber2Text(const CodNumber *n, CodText *text, CodUint32 bufSize);
/* d.dddE+xx: no trailing zeros of the fraction, an exponent of two digits or more. Zero is "0E+00". */
COD_API CodResult codNumber2SciText(const CodNumber *n, CodText *text, CodUint32 bufSize);

/* ---- Inline: what comparisons of columns mostly are, one sign and exponent, or two signs ---- */

COD_API CodInt32 codNumberCompareExported(const CodNumber *n1, const CodNumber *n2);

#if !defined(COD_NO_INLINE)
/* sign, unused and exp as one word. */
COD_INLINE CodUint32 codNumberTail(const CodNumber *n) {
    CodUint32 tail;
    __builtin_memcpy(&tail, (const char *)n + offsetof(CodNumber, sign), sizeof(tail));
    return tail;
}

COD_API_INLINE CodInt32 codNumberCompare(const CodNumber *n1, const CodNumber *n2) {
    if (COD_LIKELY(n1 != NULL && n2 != NULL)) {
        const CodUint64 low1 = n1->value.item64[0];
        const CodUint64 low2 = n2->value.item64[0];
        const CodUint64 high1 = n1->value.item64[1];
        const CodUint64 high2 = n2->value.item64[1];
        if (codNumberTail(n1) == codNumberTail(n2)) {
            const CodInt32 order = high1 != high2 ? (high1 > high2 ? 1 : -1) : (low1 > low2) - (low1 < low2);
            return n1->sign != 0 ? -order : order;
        }
        /* Of two signs the first number's decides, unless it may be zero. */
        if ((n1->sign != 0) != (n2->sign != 0) && low1 != 0) {
            return n1->sign != 0 ? -1 : 1;
        }
    }
    return codNumberCompareExported(n1, n2);
}
#endif

COD_END_DECLS

#endif
