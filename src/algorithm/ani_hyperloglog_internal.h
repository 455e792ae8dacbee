#pragma once

// The register sums of the estimate, plain and with 256-bit vectors.

#include <vel_infra/base/cod_types.h>

namespace cod {

struct HllSum {
    CodUint64 sum;      // over all registers of 2^scale shifted right by the register
    CodUint32 zeros;    // registers equal to 0
    CodUint32 largest;  // the largest register
};

HllSum hllSumPlain(const CodUint8 *buckets, CodUint32 count, int scale);
void hllMergePlain(CodUint8 *dst, const CodUint8 *src, CodUint32 count);

// Only on processors with AVX2.
HllSum hllSumAvx2(const CodUint8 *buckets, CodUint32 count, int scale);
void hllMergeAvx2(CodUint8 *dst, const CodUint8 *src, CodUint32 count);

}  // namespace cod
