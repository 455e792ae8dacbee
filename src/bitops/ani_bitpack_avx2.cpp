// The kernels with 256-bit vectors.
//
// Eight values of width N are N bytes, so that every group of eight begins at a byte. A byte shuffle gives each value the four bytes that
// it begins in, a shift by lane brings it to their bottom, a mask cuts it. Values wider than 25 bits may reach into a fifth byte: a second
// shuffle, one byte further, and a left shift bring their top. Each half of the vector is loaded by itself; a load that would reach behind
// the block begins earlier, and its shuffle says so.

#include <immintrin.h>

#include <vel_infra/bitops/ani_bitpack.h>

#include "bitops/ani_bitpack_internal.h"

namespace {

using cod::kBlock;

constexpr CodUint32 kGroup = 8;
constexpr CodUint32 kHalf = 16;  // bytes
constexpr CodUint32 kPrefetch = 256;

struct alignas(32) Bytes {
    CodUint8 at[32];
};
struct alignas(32) Words {
    CodUint32 at[kGroup];
};

// Where half a vector is loaded from. Blocks below 16 bytes are loaded otherwise.
constexpr CodUint32 halfBegin(CodUint32 width, CodUint32 group, CodUint32 half) {
    const CodUint32 wanted = group * width + half * width / 2;
    const CodUint32 last = 4 * width < kHalf ? 0 : 4 * width - kHalf;
    return wanted < last ? wanted : last;
}

// The four bytes from `ahead` bytes behind the one that each value begins in; those behind the half become 0.
constexpr Bytes shuffleOf(CodUint32 width, CodUint32 group, CodUint32 ahead) {
    Bytes bytes{};
    for (CodUint32 i = 0; i < 4 * kGroup; i++) {
        const CodUint32 value = i / 4;
        const CodUint32 begin = width < 4 ? 0 : halfBegin(width, group, value / 4);
        const CodUint32 byte = (group * kGroup + value) * width / 8 + ahead + i % 4 - begin;
        bytes.at[i] = static_cast<CodUint8>(byte < kHalf ? byte : 0x80);
    }
    return bytes;
}

// base - the value's bit in its first byte, or that bit itself.
constexpr Words shiftsOf(CodUint32 width, CodUint32 group, bool isLeft) {
    Words words{};
    for (CodUint32 i = 0; i < kGroup; i++) {
        const CodUint32 bit = (group * kGroup + i) * width % 8;
        words.at[i] = isLeft ? 8 - bit : bit;
    }
    return words;
}

template <CodUint32 kWidth, CodUint32 kIndex>
constexpr Bytes kLow = shuffleOf(kWidth, kIndex, 0);
template <CodUint32 kWidth, CodUint32 kIndex>
constexpr Bytes kHigh = shuffleOf(kWidth, kIndex, 1);
template <CodUint32 kWidth, CodUint32 kIndex>
constexpr Words kRight = shiftsOf(kWidth, kIndex, false);
template <CodUint32 kWidth, CodUint32 kIndex>
constexpr Words kLeft = shiftsOf(kWidth, kIndex, true);

template <class T>
[[gnu::always_inline]] inline __m256i load(const T *vector) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(vector));
}

[[gnu::always_inline]] inline __m128i loadHalf(const CodUint8 *in) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
}

template <class T>
[[gnu::always_inline]] inline T loadWord(const CodUint8 *in) {
    T word;
    __builtin_memcpy(&word, in, sizeof(word));
    return word;
}

// A block of less than 16 bytes, in both halves.
template <CodUint32 kWidth>
[[gnu::always_inline]] inline __m256i loadSmallBlock(const CodUint8 *in) {
    if constexpr (kWidth == 1) {
        return _mm256_set1_epi32(loadWord<int>(in));
    } else if constexpr (kWidth == 2) {
        return _mm256_set1_epi64x(loadWord<long long>(in));
    } else {
        return _mm256_broadcastsi128_si256(_mm_insert_epi32(_mm_cvtsi64_si128(loadWord<long long>(in)), loadWord<int>(in + 8), 2));
    }
}

template <CodUint32 kWidth, CodUint32 kIndex>
[[gnu::always_inline]] inline __m256i loadGroup(const CodUint8 *in) {
    if constexpr (kWidth < 4) {
        return loadSmallBlock<kWidth>(in);
    } else {
        const __m256i low = _mm256_castsi128_si256(loadHalf(in + halfBegin(kWidth, kIndex, 0)));
        return _mm256_inserti128_si256(low, loadHalf(in + halfBegin(kWidth, kIndex, 1)), 1);
    }
}

// Eight values of a block.
template <CodUint32 kWidth, CodUint32 kIndex>
[[gnu::always_inline]] inline __m256i unpackGroup(const CodUint8 *in) {
    if constexpr (kWidth == 0) {
        return _mm256_setzero_si256();
    } else if constexpr (kWidth == 32) {
        return load(in + kIndex * 32);
    } else {
        const __m256i mask = _mm256_set1_epi32(static_cast<int>((1u << kWidth) - 1));
        const __m256i bytes = loadGroup<kWidth, kIndex>(in);
        __m256i values = _mm256_srlv_epi32(_mm256_shuffle_epi8(bytes, load(&kLow<kWidth, kIndex>)), load(&kRight<kWidth, kIndex>));
        if constexpr (kWidth > 25) {
            const __m256i high = _mm256_shuffle_epi8(bytes, load(&kHigh<kWidth, kIndex>));
            values = _mm256_or_si256(values, _mm256_sllv_epi32(high, load(&kLeft<kWidth, kIndex>)));
        }
        return _mm256_and_si256(values, mask);
    }
}

[[gnu::always_inline]] inline void store(CodUint32 *out, __m256i values) {
    _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), values);
}

[[gnu::always_inline]] inline void store(CodUint64 *out, __m256i values) {
    auto *vectors = reinterpret_cast<__m256i *>(out);
    _mm256_storeu_si256(vectors, _mm256_cvtepu32_epi64(_mm256_castsi256_si128(values)));
    _mm256_storeu_si256(vectors + 1, _mm256_cvtepu32_epi64(_mm256_extracti128_si256(values, 1)));
}

template <CodUint32 kWidth, class T>
const CodUint8 *unpackRun(const CodUint8 *in, T *out, CodUint32 blocks) {
    for (CodUint32 i = 0; i < blocks; i++) {
        if constexpr (kWidth != 0) {
            __builtin_prefetch(in + kPrefetch);
        }
        store(out, unpackGroup<kWidth, 0>(in));
        store(out + kGroup, unpackGroup<kWidth, 1>(in));
        store(out + 2 * kGroup, unpackGroup<kWidth, 2>(in));
        store(out + 3 * kGroup, unpackGroup<kWidth, 3>(in));
        in += 4 * kWidth;
        out += kBlock;
    }
    return in;
}

template <bool kIsLess>
[[gnu::always_inline]] inline CodUint32 compareGroup(__m256i values, __m256i constant, __m256i bias) {
    const __m256i result = kIsLess ? _mm256_cmpgt_epi32(constant, _mm256_xor_si256(values, bias)) : _mm256_cmpeq_epi32(values, constant);
    return static_cast<CodUint32>(_mm256_movemask_ps(_mm256_castsi256_ps(result)));
}

template <CodUint32 kWidth, bool kIsLess>
void compareRun(const CodUint8 *in, CodUint8 *bitmap, CodUint32 blocks, CodUint32 constant, CodUint32 flip) {
    // Comparisons are signed: only at full width is the sign a bit of the value.
    const CodUint32 sign = kIsLess && kWidth == 32 ? 1u << 31 : 0;
    const __m256i bias = _mm256_set1_epi32(static_cast<int>(sign));
    const __m256i compared = _mm256_set1_epi32(static_cast<int>(constant ^ sign));
    for (CodUint32 i = 0; i < blocks; i++) {
        const CodUint32 bits = compareGroup<kIsLess>(unpackGroup<kWidth, 0>(in), compared, bias) |
                               compareGroup<kIsLess>(unpackGroup<kWidth, 1>(in), compared, bias) << 8 |
                               compareGroup<kIsLess>(unpackGroup<kWidth, 2>(in), compared, bias) << 16 |
                               compareGroup<kIsLess>(unpackGroup<kWidth, 3>(in), compared, bias) << 24;
        const CodUint32 stored = bits ^ flip;
        __builtin_memcpy(bitmap + 4 * i, &stored, sizeof(stored));
        in += 4 * kWidth;
    }
}

#define SIMD256_UNPACK32(N) unpackRun<N, CodUint32>,
#define SIMD256_UNPACK64(N) unpackRun<N, CodUint64>,
#define SIMD256_EQUAL(N) compareRun<N, false>,
#define SIMD256_LESS(N) compareRun<N, true>,

}  // namespace

namespace cod {

constexpr BitKernels kSimd256Kernels = {
    {},  // 256-bit vectors have no instructions that would bring values together faster than an accumulator does
    {COD_FOR_EACH_WIDTH(SIMD256_UNPACK32)},
    {COD_FOR_EACH_WIDTH(SIMD256_UNPACK64)},
    {COD_FOR_EACH_WIDTH(SIMD256_EQUAL)},
    {COD_FOR_EACH_WIDTH(SIMD256_LESS)},
};

}  // namespace cod

#define DEFINE_SIMD256_BLOCK(N)                                         \
    const void *unpack32_256_##N(const void *in, CodUint32 *out) {      \
        return unpackRun<N>(static_cast<const CodUint8 *>(in), out, 1); \
    }
COD_FOR_EACH_SIMD_WIDTH(DEFINE_SIMD256_BLOCK)
