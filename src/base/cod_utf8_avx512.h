#pragma once

// The 512-bit vector of the algorithms for UTF-8. Each source that includes this has a copy of its own, made with its own flags.

#include <immintrin.h>

#include "base/cod_utf8.h"

namespace cod {
namespace {

struct Vector512 {
    static constexpr CodUint64 kSize = 64;

    [[gnu::always_inline]] static __m512i load(const CodUint8 *in) {
        return _mm512_loadu_si512(in);
    }

    // 1 to 63 bytes, the rest 0.
    [[gnu::always_inline]] static __m512i loadRest(const CodUint8 *in, CodUint64 count) {
        return _mm512_maskz_loadu_epi8((__mmask64{1} << count) - 1, in);
    }

    [[gnu::always_inline]] static __m512i fill(CodUint8 byte) {
        return _mm512_set1_epi8(static_cast<char>(byte));
    }

    [[gnu::always_inline]] static __m512i lowHalves(__m512i bytes) {
        return _mm512_and_si512(bytes, fill(0x0F));
    }

    [[gnu::always_inline]] static __m512i highHalves(__m512i bytes) {
        return lowHalves(_mm512_srli_epi16(bytes, 4));
    }

    [[gnu::always_inline]] static __m512i lookUp(const CodUint8 *table, __m512i places) {
        const __m128i entries = _mm_loadu_si128(reinterpret_cast<const __m128i *>(table));
        return _mm512_shuffle_epi8(_mm512_broadcast_i32x4(entries), places);
    }

    // At least 0.
    [[gnu::always_inline]] static __m512i subtract(__m512i bytes, CodUint8 amount) {
        return _mm512_subs_epu8(bytes, fill(amount));
    }

    // The 16 bytes before each 16 bytes.
    [[gnu::always_inline]] static __m512i across(__m512i bytes, __m512i previous) {
        return _mm512_alignr_epi64(bytes, previous, 6);
    }

    // For each byte the one that stands kCount places before it.
    template <int kCount>
    [[gnu::always_inline]] static __m512i before(__m512i bytes, __m512i across) {
        return _mm512_alignr_epi8(bytes, across, 16 - kCount);
    }

    [[gnu::always_inline]] static bool isAscii(__m512i bytes) {
        return _mm512_movepi8_mask(bytes) == 0;
    }

    [[gnu::always_inline]] static bool isZero(__m512i bytes) {
        return _mm512_test_epi64_mask(bytes, bytes) == 0;
    }

    // Continuations.
    [[gnu::always_inline]] static CodUint64 countTails(__m512i bytes) {
        return static_cast<CodUint64>(__builtin_popcountll(_mm512_cmplt_epi8_mask(bytes, fill(0xC0))));
    }
};

}  // namespace
}  // namespace cod
