// The kernels with 512-bit vectors.
//
// Unpacking: a byte permutation gives each pair of values the eight bytes that it begins in, and a multishift takes both out of them, bit
// by bit. A block of up to 64 bytes is one load; a larger one is two, which overlap. Packing goes the other way: pairs become fields of
// twice the width, each is shifted to its place within a byte, and permutations bring the bytes of the fields with even numbers and of
// those with odd ones to their places, where they share at most the bytes at their ends.

#include <immintrin.h>

#include <vel_infra/bitops/ani_bitpack.h>

#include "bitops/ani_bitpack_internal.h"

namespace {

using cod::kBlock;

constexpr CodUint32 kVector = 64;  // bytes
constexpr CodUint32 kPrefetch = 256;

struct alignas(kVector) Bytes {
    CodUint8 at[kVector];
};

template <class T>
[[gnu::always_inline]] inline __m512i load(const T *vector) {
    return _mm512_loadu_si512(vector);
}

constexpr __mmask64 lowBytes(CodUint32 count) {
    return count >= 64 ? ~__mmask64{0} : (__mmask64{1} << count) - 1;
}

// ---- Unpacking ----

// Which byte of the block the vector for a group begins with. kPerVector values of a group are one vector of output.
constexpr CodUint32 vectorBegin(CodUint32 width, CodUint32 value) {
    const CodUint32 size = 4 * width;
    return size > kVector && value >= kBlock / 2 ? size - kVector : 0;
}

// Bits of each byte of output: byte i of 8-byte lane l is the eight bits from bit `bit` of its source lane, where value `first + l *
// values` begins.
struct Window {
    Bytes bytes;   // the lane's source bytes, as places in the vector
    Bytes shifts;  // of the multishift
};

// Lanes that hold `values` values each, from value `first` on, `ahead` values further; each value takes 8 / values bytes.
constexpr Window windowOf(CodUint32 width, CodUint32 first, CodUint32 values, CodUint32 ahead) {
    Window window{};
    const CodUint32 valueBytes = 8 / values;
    for (CodUint32 i = 0; i < kVector; i++) {
        const CodUint32 lane = i / 8;
        const CodUint32 begin = (first + lane * values + ahead) * width - 8 * vectorBegin(width, first);
        const CodUint32 value = i % 8 / valueBytes;
        window.bytes.at[i] = static_cast<CodUint8>((begin / 8 + i % 8) % kVector);
        window.shifts.at[i] = static_cast<CodUint8>((begin % 8 + (value - ahead) * width + i % valueBytes * 8) % 64);
    }
    return window;
}

template <CodUint32 kWidth, CodUint32 kFirst, CodUint32 kValues, CodUint32 kAhead>
constexpr Window kWindow = windowOf(kWidth, kFirst, kValues, kAhead);

template <CodUint32 kWidth>
[[gnu::always_inline]] inline __m512i loadBlock(const CodUint8 *in, CodUint32 begin) {
    if constexpr (4 * kWidth < kVector) {
        return _mm512_maskz_loadu_epi8(lowBytes(4 * kWidth), in);
    } else {
        return load(in + begin);
    }
}

template <CodUint32 kWidth, CodUint32 kFirst, CodUint32 kValues, CodUint32 kAhead>
[[gnu::always_inline]] inline __m512i takeValues(__m512i block) {
    constexpr const Window &window = kWindow<kWidth, kFirst, kValues, kAhead>;
    return _mm512_multishift_epi64_epi8(load(&window.shifts), _mm512_permutexvar_epi8(load(&window.bytes), block));
}

// Sixteen values from value kFirst on.
template <CodUint32 kWidth, CodUint32 kFirst>
[[gnu::always_inline]] inline __m512i unpackGroup(const CodUint8 *in) {
    if constexpr (kWidth == 0) {
        return _mm512_setzero_si512();
    } else if constexpr (kWidth == 32) {
        return load(in + 4 * kFirst);
    } else {
        const __m512i block = loadBlock<kWidth>(in, vectorBegin(kWidth, kFirst));
        __m512i values = takeValues<kWidth, kFirst, 2, 0>(block);
        if constexpr (kWidth == 31) {
            // Two values and the bits before them do not fit into eight bytes: the second one has a window of its own.
            values = _mm512_mask_mov_epi32(values, 0xAAAA, takeValues<kWidth, kFirst, 2, 1>(block));
        }
        return _mm512_and_si512(values, _mm512_set1_epi32(static_cast<int>((1u << kWidth) - 1)));
    }
}

// Eight values, as 64 bits each.
template <CodUint32 kWidth, CodUint32 kFirst>
[[gnu::always_inline]] inline __m512i unpackLongGroup(const CodUint8 *in) {
    if constexpr (kWidth == 0) {
        return _mm512_setzero_si512();
    } else if constexpr (kWidth == 32) {
        return _mm512_cvtepu32_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(in + 4 * kFirst)));
    } else {
        const __m512i values = takeValues<kWidth, kFirst, 1, 0>(loadBlock<kWidth>(in, vectorBegin(kWidth, kFirst)));
        return _mm512_and_si512(values, _mm512_set1_epi64((1ll << kWidth) - 1));
    }
}

template <CodUint32 kWidth>
[[gnu::always_inline]] inline void unpackBlock(const CodUint8 *in, CodUint32 *out) {
    _mm512_storeu_si512(out, unpackGroup<kWidth, 0>(in));
    _mm512_storeu_si512(out + 16, unpackGroup<kWidth, 16>(in));
}

template <CodUint32 kWidth>
[[gnu::always_inline]] inline void unpackBlock(const CodUint8 *in, CodUint64 *out) {
    _mm512_storeu_si512(out, unpackLongGroup<kWidth, 0>(in));
    _mm512_storeu_si512(out + 8, unpackLongGroup<kWidth, 8>(in));
    _mm512_storeu_si512(out + 16, unpackLongGroup<kWidth, 16>(in));
    _mm512_storeu_si512(out + 24, unpackLongGroup<kWidth, 24>(in));
}

template <CodUint32 kWidth, class T>
const CodUint8 *unpackRun(const CodUint8 *in, T *out, CodUint32 blocks) {
    for (CodUint32 i = 0; i < blocks; i++) {
        if constexpr (kWidth != 0) {
            __builtin_prefetch(in + kPrefetch);
        }
        unpackBlock<kWidth>(in, out);
        in += 4 * kWidth;
        out += kBlock;
    }
    return in;
}

// ---- Comparing ----

template <bool kIsLess>
[[gnu::always_inline]] inline CodUint32 compareGroup(__m512i values, __m512i constant) {
    return kIsLess ? _mm512_cmplt_epu32_mask(values, constant) : _mm512_cmpeq_epu32_mask(values, constant);
}

template <CodUint32 kWidth, bool kIsLess>
void compareRun(const CodUint8 *in, CodUint8 *bitmap, CodUint32 blocks, CodUint32 constant, CodUint32 flip) {
    const __m512i compared = _mm512_set1_epi32(static_cast<int>(constant));
    for (CodUint32 i = 0; i < blocks; i++) {
        const CodUint32 bits = (compareGroup<kIsLess>(unpackGroup<kWidth, 0>(in), compared) |
                                compareGroup<kIsLess>(unpackGroup<kWidth, 16>(in), compared) << 16) ^
                               flip;
        __builtin_memcpy(bitmap + 4 * i, &bits, sizeof(bits));
        in += 4 * kWidth;
    }
}

// ---- Packing ----

// The bytes of a block from byte `first` on that fields with even (odd) numbers lie in: places in the vectors of both halves' fields, and
// which bytes those are.
struct Pick {
    Bytes bytes;
    __mmask64 mask;
};

constexpr Pick pickOf(CodUint32 width, CodUint32 first, CodUint32 parity) {
    Pick pick{};
    for (CodUint32 i = 0; i < kVector && first + i < 4 * width; i++) {
        for (CodUint32 field = parity; field < kBlock / 2; field += 2) {
            const CodUint32 begin = 2 * width * field;
            const CodUint32 byte = first + i - begin / 8;  // of the field
            if (first + i >= begin / 8 && byte < (begin % 8 + 2 * width + 7) / 8) {
                pick.bytes.at[i] = static_cast<CodUint8>(8 * field + byte);
                pick.mask |= __mmask64{1} << i;
            }
        }
    }
    return pick;
}

struct alignas(kVector) Longs {
    CodUint64 at[8];
};

// The first bit of each field in its first byte.
constexpr Longs placesOf(CodUint32 width, CodUint32 half) {
    Longs places{};
    for (CodUint32 i = 0; i < 8; i++) {
        places.at[i] = 2 * width * (8 * half + i) % 8;
    }
    return places;
}

template <CodUint32 kWidth, CodUint32 kFirst, CodUint32 kParity>
constexpr Pick kPick = pickOf(kWidth, kFirst, kParity);
template <CodUint32 kWidth, CodUint32 kIndex>
constexpr Longs kPlaces = placesOf(kWidth, kIndex);

// The pairs of sixteen values as fields, each at its place in a byte. What exceeds the width is cut by the masks.
template <CodUint32 kWidth, CodUint32 kIndex>
[[gnu::always_inline]] inline __m512i makeFields(const CodUint32 *in) {
    constexpr long long mask = (1ll << kWidth) - 1;
    constexpr int aAndBOrC = 0xEA;
    const __m512i values = load(in + 16 * kIndex);
    const __m512i first = _mm512_and_si512(values, _mm512_set1_epi64(mask));
    const __m512i second = _mm512_srli_epi64(values, 32 - kWidth);
    const __m512i fields = _mm512_ternarylogic_epi64(second, _mm512_set1_epi64(mask << kWidth), first, aAndBOrC);
    return _mm512_sllv_epi64(fields, load(&kPlaces<kWidth, kIndex>));
}

// The 64 bytes of the block from byte kFirst on, zeros behind it.
template <CodUint32 kWidth, CodUint32 kFirst>
[[gnu::always_inline]] inline __m512i joinFields(__m512i low, __m512i high) {
    constexpr const Pick &even = kPick<kWidth, kFirst, 0>;
    constexpr const Pick &odd = kPick<kWidth, kFirst, 1>;
    return _mm512_or_si512(_mm512_maskz_permutex2var_epi8(even.mask, low, load(&even.bytes), high),
                           _mm512_maskz_permutex2var_epi8(odd.mask, low, load(&odd.bytes), high));
}

template <CodUint32 kWidth>
[[gnu::always_inline]] inline void packBlock(const CodUint32 *in, CodUint8 *out) {
    if constexpr (kWidth == 1) {
        const __m512i one = _mm512_set1_epi32(1);
        const CodUint32 bits = _mm512_test_epi32_mask(load(in), one) | CodUint32{_mm512_test_epi32_mask(load(in + 16), one)} << 16;
        __builtin_memcpy(out, &bits, sizeof(bits));
    } else {
        const __m512i low = makeFields<kWidth, 0>(in);
        const __m512i high = makeFields<kWidth, 1>(in);
        if constexpr (4 * kWidth < kVector) {
            _mm512_mask_storeu_epi8(out, lowBytes(4 * kWidth), joinFields<kWidth, 0>(low, high));
        } else {
            _mm512_storeu_si512(out, joinFields<kWidth, 0>(low, high));
        }
        if constexpr (4 * kWidth > kVector) {
            _mm512_storeu_si512(out + 4 * kWidth - kVector, joinFields<kWidth, 4 * kWidth - kVector>(low, high));
        }
    }
}

template <CodUint32 kWidth>
CodUint8 *packRun(const CodUint32 *in, CodUint8 *out, CodUint32 blocks) {
    for (CodUint32 i = 0; i < blocks; i++) {
        packBlock<kWidth>(in, out);
        in += kBlock;
        out += 4 * kWidth;
    }
    return out;
}

// Wider fields do not fit into 64 bits beside the bits before them.
template <CodUint32 kWidth>
constexpr cod::PackRun32 packRunOf() {
    if constexpr (kWidth >= 1 && kWidth <= 30) {
        return packRun<kWidth>;
    } else {
        return nullptr;
    }
}

#define SIMD512_PACK32(N) packRunOf<N>(),
#define SIMD512_UNPACK32(N) unpackRun<N, CodUint32>,
#define SIMD512_UNPACK64(N) unpackRun<N, CodUint64>,
#define SIMD512_EQUAL(N) compareRun<N, false>,
#define SIMD512_LESS(N) compareRun<N, true>,

}  // namespace

namespace cod {

constexpr BitKernels kSimd512Kernels = {
    {COD_FOR_EACH_WIDTH(SIMD512_PACK32)}, {COD_FOR_EACH_WIDTH(SIMD512_UNPACK32)}, {COD_FOR_EACH_WIDTH(SIMD512_UNPACK64)},
    {COD_FOR_EACH_WIDTH(SIMD512_EQUAL)},  {COD_FOR_EACH_WIDTH(SIMD512_LESS)},
};

}  // namespace cod

#define DEFINE_SIMD512_BLOCK(N)                                         \
    const void *unpack32_512_##N(const void *in, CodUint32 *out) {      \
        return unpackRun<N>(static_cast<const CodUint8 *>(in), out, 1); \
    }
COD_FOR_EACH_SIMD_WIDTH(DEFINE_SIMD512_BLOCK)
