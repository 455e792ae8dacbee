// UTF-8 to UTF-16 and back with 256-bit vectors.

#include "base/cod_utf16.h"
#include "base/cod_utf8_avx2.h"

namespace cod {
namespace {

[[gnu::always_inline]] inline void storeHalf(CodUint8 *out, __m128i half) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), half);
}

// The places of the bytes that the eight lowest bits of `kept` name.
[[gnu::always_inline]] inline __m128i placesOf(CodUint64 kept) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i *>(kUtf16KeepTable.places[kept & 0xFF]));
}

[[gnu::always_inline]] inline CodUint32 countOf(CodUint64 kept) {
    return static_cast<CodUint32>(__builtin_popcount(static_cast<CodUint32>(kept & 0xFF)));
}

struct Convert256 : Vector256 {
    using Bytes [[gnu::vector_size(32)]] = CodUint8;
    using Lanes [[gnu::vector_size(32)]] = CodUint32;

    // For each byte the one that stands kCount places before it, or 0.
    template <int kCount>
    [[gnu::always_inline]] static Bytes behind(Bytes bytes) {
        const auto own = __m256i(bytes);
        return Bytes(before<kCount>(own, across(own, fill(0))));
    }

    [[gnu::always_inline]] static Lanes laneBehind(Lanes lanes) {
        return Lanes(behind<4>(Bytes(lanes)));
    }

    // A bit for each byte or lane of a comparison.
    template <class Mask>
    [[gnu::always_inline]] static CodUint64 bitsOf(Mask mask) {
        return Vector256::bitsOf(__m256i(mask));
    }

    template <class Mask>
    [[gnu::always_inline]] static CodUint64 bitsOfLanes(Mask mask) {
        return static_cast<CodUint64>(_mm256_movemask_ps(__m256(mask)));
    }

    // All bytes but continuations.
    [[gnu::always_inline]] static CodUint64 leadsOf(__m256i bytes) {
        return bitsOf(_mm256_cmpgt_epi8(bytes, fill(0xBF)));
    }

    [[gnu::always_inline]] static auto isNotZero(__m256i bytes) {
        return Bytes(bytes) != 0;
    }

    [[gnu::always_inline]] static void storeAscii(__m256i bytes, CodUint8 *out) {
        const __m256i order = _mm256_permute4x64_epi64(bytes, 0xD8);
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), _mm256_unpacklo_epi8(order, fill(0)));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out + kSize), _mm256_unpackhi_epi8(order, fill(0)));
    }

    // Eight units, of which the lowest bits of `kept` name those to keep. Their low bytes come first.
    [[gnu::always_inline]] static CodUint8 *storeEight(__m128i halves, CodUint64 kept, CodUint8 *out) {
        const __m128i places = placesOf(kept);
        storeHalf(out, _mm_shuffle_epi8(halves, _mm_unpacklo_epi8(places, _mm_add_epi8(places, _mm_set1_epi8(8)))));
        return out + 2 * countOf(kept);
    }

    [[gnu::always_inline]] static void storeUnits(const Utf16Halves<Bytes> &halves, CodUint64 kept, CodUint8 *out) {
        const __m256i even = _mm256_unpacklo_epi64(__m256i(halves.low), __m256i(halves.high));
        const __m256i odd = _mm256_unpackhi_epi64(__m256i(halves.low), __m256i(halves.high));
        out = storeEight(_mm256_castsi256_si128(even), kept, out);
        out = storeEight(_mm256_castsi256_si128(odd), kept >> 8, out);
        out = storeEight(_mm256_extracti128_si256(even, 1), kept >> 16, out);
        storeEight(_mm256_extracti128_si256(odd, 1), kept >> 24, out);
    }

    // Whether 16 units are ASCII; their 16 bytes are then stored.
    [[gnu::always_inline]] static bool packAscii(const CodUint8 *in, CodUint8 *out) {
        const __m256i units = load(in);
        if (_mm256_testz_si256(units, _mm256_set1_epi16(static_cast<short>(0xFF80))) == 0) {
            return false;
        }
        storeHalf(out, _mm_packus_epi16(_mm256_castsi256_si128(units), _mm256_extracti128_si256(units, 1)));
        return true;
    }

    // Eight units.
    [[gnu::always_inline]] static Lanes widen(const CodUint8 *in) {
        return Lanes(_mm256_cvtepu16_epi32(loadHalf(in)));
    }

    // 1 to 7 units, the rest 0.
    [[gnu::always_inline]] static Lanes widenRest(const CodUint8 *in, CodUint64 count) {
        return Lanes(_mm256_cvtepu16_epi32(_mm256_castsi256_si128(loadRest(in, 2 * count))));
    }

    // Eight bytes, the lowest of a half.
    [[gnu::always_inline]] static CodUint8 *storeSome(__m128i half, CodUint64 kept, CodUint8 *out) {
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out), _mm_shuffle_epi8(half, placesOf(kept)));
        return out + countOf(kept);
    }

    [[gnu::always_inline]] static void storeKept(Lanes lanes, CodUint64 kept, CodUint8 *out) {
        const __m128i low = _mm256_castsi256_si128(__m256i(lanes));
        const __m128i high = _mm256_extracti128_si256(__m256i(lanes), 1);
        out = storeSome(low, kept, out);
        out = storeSome(_mm_unpackhi_epi64(low, low), kept >> 8, out);
        out = storeSome(high, kept >> 16, out);
        storeSome(_mm_unpackhi_epi64(high, high), kept >> 24, out);
    }
};

}  // namespace

Utf16Progress utf8ToUtf16Simd256(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    return utf8ToUtf16Blocks<Convert256>(in, length, out, room);
}

Utf16Progress utf16ToUtf8Simd256(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    return utf16ToUtf8Blocks<Convert256>(in, length, out, room);
}

}  // namespace cod
