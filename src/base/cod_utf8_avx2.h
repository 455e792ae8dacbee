#pragma once

// The 256-bit vector of the algorithms for UTF-8. Each source that includes this has a copy of its own, made with its own flags.

#include <immintrin.h>

#include "base/cod_utf8.h"

namespace cod {
namespace {

[[gnu::always_inline]] inline __m128i loadHalf(const CodUint8 *in) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
}

template <class T>
[[gnu::always_inline]] inline CodUint64 loadWord(const CodUint8 *in) {
    T word;
    __builtin_memcpy(&word, in, sizeof(word));
    return word;
}

// 1 to 8 bytes, the rest 0.
[[gnu::always_inline]] inline CodUint64 loadFew(const CodUint8 *in, CodUint64 count) {
    if (count >= 4) {
        return loadWord<CodUint32>(in) | loadWord<CodUint32>(in + count - 4) << 8 * (count - 4);
    }
    return in[0] | CodUint64{in[count / 2]} << 8 * (count / 2) | CodUint64{in[count - 1]} << 8 * (count - 1);
}

// Half a vector moved down by 0 to 16 bytes. A place past its end has the top bit set, which makes the byte 0.
[[gnu::always_inline]] inline __m128i moveDown(__m128i half, CodUint64 count) {
    const __m128i places = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    return _mm_shuffle_epi8(half, _mm_add_epi8(places, _mm_set1_epi8(static_cast<char>(0x70 + count))));
}

struct Vector256 {
    static constexpr CodUint64 kSize = 32;
    static constexpr CodUint64 kHalf = 16;

    [[gnu::always_inline]] static __m256i load(const CodUint8 *in) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i *>(in));
    }

    // 1 to 31 bytes, the rest 0. Two loads that overlap, the second one moved to its place.
    [[gnu::always_inline]] static __m256i loadRest(const CodUint8 *in, CodUint64 count) {
        if (count >= kHalf) {
            return _mm256_set_m128i(moveDown(loadHalf(in + count - kHalf), 2 * kHalf - count), loadHalf(in));
        }
        if (count > 8) {
            const CodUint64 high = loadWord<CodUint64>(in + count - 8) >> 8 * (kHalf - count);
            return _mm256_set_epi64x(0, 0, static_cast<long long>(high), static_cast<long long>(loadWord<CodUint64>(in)));
        }
        return _mm256_set_epi64x(0, 0, 0, static_cast<long long>(loadFew(in, count)));
    }

    [[gnu::always_inline]] static __m256i fill(CodUint8 byte) {
        return _mm256_set1_epi8(static_cast<char>(byte));
    }

    [[gnu::always_inline]] static __m256i lowHalves(__m256i bytes) {
        return _mm256_and_si256(bytes, fill(0x0F));
    }

    [[gnu::always_inline]] static __m256i highHalves(__m256i bytes) {
        return lowHalves(_mm256_srli_epi16(bytes, 4));
    }

    [[gnu::always_inline]] static __m256i lookUp(const CodUint8 *table, __m256i places) {
        return _mm256_shuffle_epi8(_mm256_broadcastsi128_si256(loadHalf(table)), places);
    }

    // At least 0.
    [[gnu::always_inline]] static __m256i subtract(__m256i bytes, CodUint8 amount) {
        return _mm256_subs_epu8(bytes, fill(amount));
    }

    // The 16 bytes before each 16 bytes.
    [[gnu::always_inline]] static __m256i across(__m256i bytes, __m256i previous) {
        return _mm256_permute2x128_si256(previous, bytes, 0x21);
    }

    // For each byte the one that stands kCount places before it.
    template <int kCount>
    [[gnu::always_inline]] static __m256i before(__m256i bytes, __m256i across) {
        return _mm256_alignr_epi8(bytes, across, 16 - kCount);
    }

    // The top bit of each byte.
    [[gnu::always_inline]] static CodUint32 bitsOf(__m256i bytes) {
        return static_cast<CodUint32>(_mm256_movemask_epi8(bytes));
    }

    [[gnu::always_inline]] static bool isAscii(__m256i bytes) {
        return bitsOf(bytes) == 0;
    }

    [[gnu::always_inline]] static bool isZero(__m256i bytes) {
        return _mm256_testz_si256(bytes, bytes) != 0;
    }

    // Continuations.
    [[gnu::always_inline]] static CodUint64 countTails(__m256i bytes) {
        return static_cast<CodUint64>(__builtin_popcount(bitsOf(_mm256_cmpgt_epi8(fill(0xC0), bytes))));
    }
};

}  // namespace
}  // namespace cod
