#ifndef VEL_INFRA_NUMBER_ANI_NUMBER_SUM_H
#define VEL_INFRA_NUMBER_ANI_NUMBER_SUM_H

/* Exact sums of NUMBERs: nothing is rounded before the result is taken.
 *
 * The sum is a 256-bit integer in units of 10^exp, of which all values are multiples. 2^64 values of one column NUMBER(p, s) always fit,
 * and so does any mixture whose digits span fewer than 57 powers of ten; values further apart are refused, never rounded. A sum made in
 * parts by several threads, each with its own record, and merged has the same value as one made at once. */

#include <vel_infra/number/ani_number.h>

COD_BEGIN_DECLS

/* Plain data: it may be copied. Zeroed memory is an empty sum. */
typedef struct CodNumberSum {
    CodUint64 item64[4]; /* the sum, little-endian words, two's complement */
    CodUint64 count;     /* values added */
    CodInt16 exp;        /* power of ten of the unit; means nothing while the sum is zero */
    CodUint16 reserved[3];
} CodNumberSum;
COD_STATIC_ASSERT(sizeof(CodNumberSum) == 48, "layout is fixed");

COD_API void codNumberSumInit(CodNumberSum *sum);
/* Adds one value. Errors: ERR_CMM_NUMERIC_OVERFLOW when 256 bits cannot hold the sum, or n, in the unit of both;
 * the sum is then as before. */
COD_API CodResult codNumberSumAdd(CodNumberSum *sum, const CodNumber *n);
/* Adds count values, several times as fast as one by one. On failure the values before the refused one have been added. */
COD_API CodResult codNumberSumBatch(CodNumberSum *sum, const CodNumber *numbers, CodUint32 count);
/* Adds another sum and its count. sum may be other. Errors: as codNumberSumAdd. */
COD_API CodResult codNumberSumMerge(CodNumberSum *sum, const CodNumberSum *other);
/* The sum, rounded once to 38 digits half up. An empty sum is zero. Errors: ERR_CMM_NUMERIC_OVERFLOW. */
COD_API CodResult codNumberSumResult(const CodNumberSum *sum, CodNumber *result);
/* The sum divided by the count, rounded once to 38 digits half up, in canonical form.
 * Errors: ERR_CMM_DIVISION_BY_ZERO when nothing was added, ERR_CMM_NUMERIC_OVERFLOW. */
COD_API CodResult codNumberSumAverage(const CodNumberSum *sum, CodNumber *result);

COD_END_DECLS

#endif
