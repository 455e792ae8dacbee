#ifndef VEL_INFRA_ALGORITHM_ANI_HYPERLOGLOG_H
#define VEL_INFRA_ALGORITHM_ANI_HYPERLOGLOG_H

/* An estimate of the number of distinct values (HyperLogLog; Flajolet, Fusy, Gandouet, Meunier 2007).
 *
 * The state is `count` one-byte registers in the caller's memory, count a power of two of at least 16. They may be stored, copied and
 * merged as bytes: the layout is persisted and never changes. The relative error is about 1.04 / sqrt(count): 0.8 % at 16,384.
 *
 * 1. No state of its own: threads that add at the same time use an array each and merge.
 * 2. A count that is no power of two is accepted; its estimate means nothing. Count 0 adds nothing and estimates 0. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* Zeroes the registers. */
COD_API void codHllInit(CodUint8 *buckets, CodUint32 count);
/* Adds one value; the empty one is a value too. */
COD_API void codHllAdd(CodUint8 *buckets, CodUint32 count, const CodBytes *value);
/* Makes dst the estimate of both: the larger of each pair of registers. dst may be src. */
COD_API void codHllMerge(CodUint8 *dst, const CodUint8 *src, CodUint32 count);
/* The estimated number of distinct values. */
COD_API CodUint64 codHllCalculate(const CodUint8 *buckets, CodUint32 count);

COD_END_DECLS

#endif
