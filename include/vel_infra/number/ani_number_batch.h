#ifndef VEL_INFRA_NUMBER_ANI_NUMBER_BATCH_H
#define VEL_INFRA_NUMBER_ANI_NUMBER_BATCH_H

/* NUMBER operations on columns of values: result[i] from n1[i] and n2[i], the same as the single operations give, without a call for each.
 *
 * 1. result may be n1 or n2; otherwise the arrays must not overlap.
 * 2. A failure stops at the value that failed and raises its error: *done values are ready, the others of result are undefined. done may
 *    be null. Sums: codNumberSumBatch (ani_number_sum.h). */

#include <vel_infra/number/ani_number.h>

COD_BEGIN_DECLS

COD_API CodResult codNumberAddBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done);
COD_API CodResult codNumberSubBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done);
COD_API CodResult codNumberMulBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done);
COD_API CodResult codNumberDivBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done);
/* result[i] is -1, 0 or 1. */
COD_API CodResult codNumberCompareBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodInt8 *result);

COD_END_DECLS

#endif
