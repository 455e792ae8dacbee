// UTF-8 to UTF-16 and back with 512-bit vectors.

#include "base/cod_utf16.h"
#include "base/cod_utf8_avx512.h"

namespace cod {
namespace {

struct Convert512 : Vector512 {
    using Bytes [[gnu::vector_size(64)]] = CodUint8;
    using Lanes [[gnu::vector_size(64)]] = CodUint32;

    // For each byte the one that stands kCount places before it, or 0.
    template <int kCount>
    [[gnu::always_inline]] static Bytes behind(Bytes bytes) {
        const auto own = __m512i(bytes);
        return Bytes(before<kCount>(own, across(own, fill(0))));
    }

    [[gnu::always_inline]] static Lanes laneBehind(Lanes lanes) {
        return Lanes(_mm512_alignr_epi32(__m512i(lanes), fill(0), 15));
    }

    // A bit for each byte or lane of a comparison.
    template <class Mask>
    [[gnu::always_inline]] static CodUint64 bitsOf(Mask mask) {
        return _mm512_movepi8_mask(__m512i(mask));
    }

    template <class Mask>
    [[gnu::always_inline]] static CodUint64 bitsOfLanes(Mask mask) {
        return _mm512_test_epi32_mask(__m512i(mask), __m512i(mask));
    }

    // All bytes but continuations.
    [[gnu::always_inline]] static CodUint64 leadsOf(__m512i bytes) {
        return _mm512_cmpge_epi8_mask(bytes, fill(0xC0));
    }

    [[gnu::always_inline]] static __m512i isNotZero(__m512i bytes) {
        return _mm512_movm_epi8(_mm512_test_epi8_mask(bytes, bytes));
    }

    [[gnu::always_inline]] static void storeAscii(__m512i bytes, CodUint8 *out) {
        _mm512_storeu_si512(out, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(bytes)));
        _mm512_storeu_si512(out + kSize, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, 1)));
    }

    [[gnu::always_inline]] static void storeUnits(const Utf16Halves<Bytes> &halves, CodUint64 kept, CodUint8 *out) {
        const __m512i low = _mm512_maskz_compress_epi8(kept, __m512i(halves.low));
        const __m512i high = _mm512_maskz_compress_epi8(kept, __m512i(halves.high));
        // Weaving works within 16 bytes: the quarters 0 and 2 of the halves come first, then 1 and 3.
        const __m512i order = _mm512_setr_epi64(0, 4, 1, 5, 2, 6, 3, 7);
        const __m512i lowFirst = _mm512_permutexvar_epi64(order, low);
        const __m512i highFirst = _mm512_permutexvar_epi64(order, high);
        _mm512_storeu_si512(out, _mm512_unpacklo_epi8(lowFirst, highFirst));
        _mm512_storeu_si512(out + kSize, _mm512_unpackhi_epi8(lowFirst, highFirst));
    }

    // Whether 32 units are ASCII; their 32 bytes are then stored.
    [[gnu::always_inline]] static bool packAscii(const CodUint8 *in, CodUint8 *out) {
        const __m512i units = load(in);
        if (_mm512_test_epi16_mask(units, _mm512_set1_epi16(static_cast<short>(0xFF80))) != 0) {
            return false;
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm512_cvtepi16_epi8(units));
        return true;
    }

    // 16 units.
    [[gnu::always_inline]] static Lanes widen(const CodUint8 *in) {
        return Lanes(_mm512_cvtepu16_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i *>(in))));
    }

    // 1 to 15 units, the rest 0.
    [[gnu::always_inline]] static Lanes widenRest(const CodUint8 *in, CodUint64 count) {
        return Lanes(_mm512_cvtepu16_epi32(_mm256_maskz_loadu_epi16(static_cast<__mmask16>((1u << count) - 1), in)));
    }

    [[gnu::always_inline]] static void storeKept(Lanes lanes, CodUint64 kept, CodUint8 *out) {
        _mm512_storeu_si512(out, _mm512_maskz_compress_epi8(kept, __m512i(lanes)));
    }
};

}  // namespace

Utf16Progress utf8ToUtf16Simd512(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    return utf8ToUtf16Blocks<Convert512>(in, length, out, room);
}

Utf16Progress utf16ToUtf8Simd512(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    return utf16ToUtf8Blocks<Convert512>(in, length, out, room);
}

}  // namespace cod
