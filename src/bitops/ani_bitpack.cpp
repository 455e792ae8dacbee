// The scalar kernels, and the functions over all kernels.
//
// Every width is its own function with shifts and masks that are constants. A value never spans more than 64 bits from the 32-bit word it
// begins in, so that one load gives it whole, and a 64-bit accumulator writes it.

#include <vel_infra/bitops/ani_bitpack.h>

#include <cstring>
#include <utility>

#include <vel_infra/error/ani_error_base.h>

#include "base/cod_bytes.h"
#include "base/cod_cpu.h"
#include "bitops/ani_bitpack_internal.h"

using cod::kBlock;

namespace {

constexpr CodUint32 kWideWidths = 65;
// How far ahead of the block being read the cache is told.
constexpr CodUint32 kPrefetch = 256;

constexpr CodUint64 maskOf(CodUint32 width) {
    return width == 0 ? 0 : ~CodUint64{0} >> (64 - width);
}

template <class T>
inline void storeLe(CodUint8 *out, T value) {
    std::memcpy(out, &value, sizeof(value));
}

// ---- Packing ----

template <CodUint32 kWidth, CodUint32 kIndex, class T>
[[gnu::always_inline]] inline void packValue(const T *in, CodUint8 *out, CodUint64 *bits) {
    constexpr CodUint32 begin = kIndex * kWidth;
    constexpr CodUint32 place = begin % 64;
    const CodUint64 value = in[kIndex] & maskOf(kWidth);
    *bits = place == 0 ? value : *bits | value << place;
    if constexpr (place + kWidth >= 64) {
        storeLe(out + begin / 64 * 8, *bits);
        if constexpr (place + kWidth > 64) {
            *bits = value >> (64 - place);
        }
    }
}

template <CodUint32 kWidth, class T, size_t... kIndexes>
[[gnu::always_inline]] inline void packBlock(const T *in, CodUint8 *out, std::index_sequence<kIndexes...>) {
    CodUint64 bits = 0;
    (packValue<kWidth, kIndexes>(in, out, &bits), ...);
    // A block of an odd width ends with half a word.
    if constexpr (kWidth % 2 != 0) {
        storeLe(out + 4 * kWidth - 4, static_cast<CodUint32>(bits));
    }
}

template <CodUint32 kWidth, class T>
CodUint8 *packRun(const T *in, CodUint8 *out, CodUint32 blocks) {
    for (CodUint32 i = 0; i < blocks && kWidth != 0; i++) {
        packBlock<kWidth>(in, out, std::make_index_sequence<kBlock>());
        in += kBlock;
        out += 4 * kWidth;
    }
    return out;
}

// ---- Unpacking ----

template <CodUint32 kWidth, CodUint32 kIndex>
[[gnu::always_inline]] inline CodUint64 unpackValue(const CodUint8 *in) {
    constexpr CodUint32 begin = kIndex * kWidth;
    constexpr CodUint32 place = begin % 32;
    if constexpr (kWidth == 0) {
        return 0;
    } else if constexpr (place + kWidth <= 32) {
        return cod::loadLe<CodUint32>(in + begin / 32 * 4) >> place & maskOf(kWidth);
    } else if constexpr (place + kWidth <= 64) {
        return cod::loadLe<CodUint64>(in + begin / 32 * 4) >> place & maskOf(kWidth);
    } else {
        const CodUint64 low = cod::loadLe<CodUint64>(in + begin / 32 * 4) >> place;
        return (low | CodUint64{cod::loadLe<CodUint32>(in + begin / 32 * 4 + 8)} << (64 - place)) & maskOf(kWidth);
    }
}

template <CodUint32 kWidth, class T, size_t... kIndexes>
[[gnu::always_inline]] inline void unpackBlock(const CodUint8 *in, T *out, std::index_sequence<kIndexes...>) {
    ((out[kIndexes] = static_cast<T>(unpackValue<kWidth, kIndexes>(in))), ...);
}

template <CodUint32 kWidth, class T>
const CodUint8 *unpackRun(const CodUint8 *in, T *out, CodUint32 blocks) {
    for (CodUint32 i = 0; i < blocks; i++) {
        if constexpr (kWidth != 0) {
            __builtin_prefetch(in + kPrefetch);
        }
        unpackBlock<kWidth>(in, out, std::make_index_sequence<kBlock>());
        in += 4 * kWidth;
        out += kBlock;
    }
    return in;
}

// ---- Comparing ----

template <CodUint32 kWidth, bool kIsLess, size_t... kIndexes>
[[gnu::always_inline]] inline CodUint32 compareBlock(const CodUint8 *in, CodUint32 constant, std::index_sequence<kIndexes...>) {
    const auto bit = [constant](CodUint64 value) { return CodUint32{kIsLess ? value < constant : value == constant}; };
    return ((bit(unpackValue<kWidth, kIndexes>(in)) << kIndexes) | ...);
}

template <CodUint32 kWidth, bool kIsLess>
void compareRun(const CodUint8 *in, CodUint8 *bitmap, CodUint32 blocks, CodUint32 constant, CodUint32 flip) {
    for (CodUint32 i = 0; i < blocks; i++) {
        storeLe(bitmap + 4 * i, compareBlock<kWidth, kIsLess>(in, constant, std::make_index_sequence<kBlock>()) ^ flip);
        in += 4 * kWidth;
    }
}

// ---- Tables ----

#define SCALAR_PACK32(N) packRun<N, CodUint32>,
#define SCALAR_UNPACK32(N) unpackRun<N, CodUint32>,
#define SCALAR_UNPACK64(N) unpackRun<N, CodUint64>,
#define SCALAR_EQUAL(N) compareRun<N, false>,
#define SCALAR_LESS(N) compareRun<N, true>,

using PackRun64 = CodUint8 *(*)(const CodUint64 *in, CodUint8 *out, CodUint32 blocks);

struct WideRuns {
    PackRun64 pack[kWideWidths];
    cod::UnpackRun64 unpack[kWideWidths];
};

template <size_t... kWidth>
constexpr WideRuns wideRuns(std::index_sequence<kWidth...>) {
    return {{packRun<kWidth, CodUint64>...}, {unpackRun<kWidth, CodUint64>...}};
}
constexpr WideRuns kWideRuns = wideRuns(std::make_index_sequence<kWideWidths>());

constinit CodUint32 simdType = COD_SIMD_NONE;

// ---- Drivers ----

CodUint32 unpackBatch32(const cod::BitKernels &kernels, const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    kernels.unpack32[bitsNum](static_cast<const CodUint8 *>(in), batch, batchLen / kBlock);
    return batchLen / kBlock * kBlock;
}

CodUint32 unpackBatch64(cod::UnpackRun64 run, const void *in, CodUint64 *batch, CodUint32 batchLen) {
    run(static_cast<const CodUint8 *>(in), batch, batchLen / kBlock);
    return batchLen / kBlock * kBlock;
}

CodUint32 packBatch64(PackRun64 run, const CodUint64 *batch, CodUint32 batchLen, void *out) {
    run(batch, static_cast<CodUint8 *>(out), batchLen / kBlock);
    return batchLen / kBlock * kBlock;
}

}  // namespace

namespace cod {

constexpr BitKernels kScalarKernels = {
    {COD_FOR_EACH_WIDTH(SCALAR_PACK32)}, {COD_FOR_EACH_WIDTH(SCALAR_UNPACK32)}, {COD_FOR_EACH_WIDTH(SCALAR_UNPACK64)},
    {COD_FOR_EACH_WIDTH(SCALAR_EQUAL)},  {COD_FOR_EACH_WIDTH(SCALAR_LESS)},
};

const BitKernels &bitKernels() {
    const CodUint32 type = codBitPackGetSimdType();
    return type == COD_SIMD_512 ? kSimd512Kernels : type == COD_SIMD_256 ? kSimd256Kernels : kScalarKernels;
}

}  // namespace cod

// ---- Members ----

#define DEFINE_BLOCKS(N)                                                \
    void *pack32_##N(const CodUint32 *in, void *out) {                  \
        return packRun<N>(in, static_cast<CodUint8 *>(out), 1);         \
    }                                                                   \
    void *pack64_##N(const CodUint64 *in, void *out) {                  \
        return packRun<N>(in, static_cast<CodUint8 *>(out), 1);         \
    }                                                                   \
    const void *unpack32_##N(const void *in, CodUint32 *out) {          \
        return unpackRun<N>(static_cast<const CodUint8 *>(in), out, 1); \
    }                                                                   \
    const void *unpack64_##N(const void *in, CodUint64 *out) {          \
        return unpackRun<N>(static_cast<const CodUint8 *>(in), out, 1); \
    }
COD_FOR_EACH_WIDTH(DEFINE_BLOCKS)

#define PACK32_ROW(N) pack32_##N,
#define PACK64_ROW(N) pack64_##N,
#define UNPACK32_ROW(N) unpack32_##N,
#define UNPACK64_ROW(N) unpack64_##N,
#define SIMD256_ROW(N) unpack32_256_##N,
#define SIMD512_ROW(N) unpack32_512_##N,

const CodPack32Block gPack32Normal[33] = {COD_FOR_EACH_WIDTH(PACK32_ROW)};
const CodPack64Block gPack64Normal[33] = {COD_FOR_EACH_WIDTH(PACK64_ROW)};
const CodUnpack32Block gUnpack32Normal[33] = {COD_FOR_EACH_WIDTH(UNPACK32_ROW)};
const CodUnpack64Block gUnpack64Normal[33] = {COD_FOR_EACH_WIDTH(UNPACK64_ROW)};
const CodUnpack32Block gUnpack32Simd256[33] = {unpack32_0, COD_FOR_EACH_SIMD_WIDTH(SIMD256_ROW) unpack32_32};
const CodUnpack32Block gUnpack32Simd512[33] = {unpack32_0, COD_FOR_EACH_SIMD_WIDTH(SIMD512_ROW) unpack32_32};

// ---- Columns ----

CodUint32 codPack32(const CodUint32 *batch, CodUint32 batchLen, CodUint32 bitsNum, void *out) {
    const cod::PackRun32 chosen = cod::bitKernels().pack32[bitsNum];
    const cod::PackRun32 run = chosen != nullptr ? chosen : cod::kScalarKernels.pack32[bitsNum];
    run(batch, static_cast<CodUint8 *>(out), batchLen / kBlock);
    return batchLen / kBlock * kBlock;
}

CodUint32 codPack64(const CodUint64 *batch, CodUint32 batchLen, CodUint32 bitsNum, void *out) {
    return packBatch64(kWideRuns.pack[bitsNum], batch, batchLen, out);
}

CodUint32 codUnpack32(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    return unpackBatch32(cod::bitKernels(), in, bitsNum, batch, batchLen);
}

CodUint32 codUnpack64(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen) {
    return codUnpack64Normal(in, bitsNum, batch, batchLen);
}

CodUint32 codUnpack32Normal(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    return unpackBatch32(cod::kScalarKernels, in, bitsNum, batch, batchLen);
}

CodUint32 codUnpack32Simd256(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    return unpackBatch32(cod::kSimd256Kernels, in, bitsNum, batch, batchLen);
}

CodUint32 codUnpack32Simd512(const void *in, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    return unpackBatch32(cod::kSimd512Kernels, in, bitsNum, batch, batchLen);
}

CodUint32 codUnpack64Normal(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen) {
    return unpackBatch64(cod::kScalarKernels.unpack64[bitsNum], in, batch, batchLen);
}

CodUint32 codUnpack64Fast(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen) {
    return unpackBatch64(cod::bitKernels().unpack64[bitsNum], in, batch, batchLen);
}

CodUint32 codPack64Wide(const CodUint64 *batch, CodUint32 batchLen, CodUint32 bitsNum, void *out) {
    return packBatch64(kWideRuns.pack[bitsNum], batch, batchLen, out);
}

CodUint32 codUnpack64Wide(const void *in, CodUint32 bitsNum, CodUint64 *batch, CodUint32 batchLen) {
    return unpackBatch64(kWideRuns.unpack[bitsNum], in, batch, batchLen);
}

CodResult codUnpack32Checked(const void *in, CodUint32 inBytes, CodUint32 bitsNum, CodUint32 *batch, CodUint32 batchLen) {
    if ((in == nullptr && inBytes != 0) || (batch == nullptr && batchLen != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (bitsNum > COD_BITPACK_MAX_WIDTH) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "values are packed in 0 to 32 bits");
    }
    if (cod::packedBytes(batchLen, bitsNum) > inBytes) {
        return codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "packed");
    }
    const CodUint32 whole = codUnpack32(in, bitsNum, batch, batchLen);
    const CodUint32 rest = batchLen - whole;
    if (rest != 0) {
        CodUint8 block[4 * COD_BITPACK_MAX_WIDTH] = {};
        CodUint32 values[kBlock];
        if (in != nullptr) {
            std::memcpy(block, static_cast<const CodUint8 *>(in) + cod::packedBytes(whole, bitsNum), cod::packedBytes(rest, bitsNum));
        }
        codUnpack32(block, bitsNum, values, kBlock);
        std::memcpy(batch + whole, values, rest * sizeof(values[0]));
    }
    return COD_SUCCESS;
}

// ---- The choice ----

void codBitPackSetSimdType(CodUint32 type) {
    const CodUint32 best = codBitPackDetectSimdType();
    const CodUint32 wanted = type == COD_SIMD_256 || type == COD_SIMD_512 ? type : CodUint32{COD_SIMD_NONE};
    __atomic_store_n(&simdType, wanted < best ? wanted : best, __ATOMIC_RELAXED);
}

CodUint32 codBitPackGetSimdType(void) {
    return __atomic_load_n(&simdType, __ATOMIC_RELAXED);
}

CodUint32 codBitPackDetectSimdType(void) {
    const cod::CpuFeatures features = cod::cpuFeatures();
    return features.avx512vbmi ? COD_SIMD_512 : features.avx2 ? COD_SIMD_256 : COD_SIMD_NONE;
}
