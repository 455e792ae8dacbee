#pragma once

// The kernels of bit packing: runs of whole blocks, one of each kind by width, in three forms. The sources of the vector forms are compiled
// with flags of their own, and so use no inline function of another header.

#include <vel_infra/base/cod_types.h>

namespace cod {

constexpr CodUint32 kBlock = 32;
constexpr CodUint32 kWidths = 33;

// Each returns the place behind what it wrote or read.
using PackRun32 = CodUint8 *(*)(const CodUint32 *in, CodUint8 *out, CodUint32 blocks);
using UnpackRun32 = const CodUint8 *(*)(const CodUint8 *in, CodUint32 *out, CodUint32 blocks);
using UnpackRun64 = const CodUint8 *(*)(const CodUint8 *in, CodUint64 *out, CodUint32 blocks);
// Bit i of the bitmap's four bytes for a block: value i is equal to, or less than, the constant, which fits the width; all bits flipped by
// `flip`, 0 or all ones.
using CompareRun = void (*)(const CodUint8 *in, CodUint8 *bitmap, CodUint32 blocks, CodUint32 constant, CodUint32 flip);

struct BitKernels {
    PackRun32 pack32[kWidths];  // null: the scalar one
    UnpackRun32 unpack32[kWidths];
    UnpackRun64 unpack64[kWidths];
    CompareRun equal[kWidths];
    CompareRun less[kWidths];
};

extern const BitKernels kScalarKernels;
extern const BitKernels kSimd256Kernels;  // AVX2
extern const BitKernels kSimd512Kernels;  // AVX-512 F, BW and VBMI

// By the choice of codBitPackSetSimdType.
const BitKernels &bitKernels();

// Bytes of `count` values, the last one filled up.
constexpr CodUint64 packedBytes(CodUint64 count, CodUint32 bitsNum) {
    return (count * bitsNum + 7) / 8;
}

}  // namespace cod
