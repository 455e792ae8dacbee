#pragma once

// The bytes of JSON strings as reader and writer look at them.

#include <emmintrin.h>
#include <string.h>

#include <vel_infra/base/cod_types.h>

namespace cod::velon {

constexpr CodUint32 kChunk = 16;

// The next sixteen of `left` bytes, zeros where there are fewer.
inline __m128i loadChunk(const CodUint8 *bytes, CodUint64 left) {
    if (COD_LIKELY(left >= kChunk)) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes));
    }
    CodUint8 rest[kChunk] = {};
    if (left != 0) {
        memcpy(rest, bytes, left);
    }
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(rest));
}

inline void storeChunk(CodUint8 *out, __m128i chunk) {
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out), chunk);
}

// A bit for each byte that cannot stand in a JSON string as it is: quote, backslash, control character.
inline CodUint32 specialBytes(__m128i chunk) {
    const __m128i control = _mm_cmpeq_epi8(_mm_min_epu8(chunk, _mm_set1_epi8(0x1F)), chunk);
    const __m128i quote = _mm_cmpeq_epi8(chunk, _mm_set1_epi8('"'));
    const __m128i backslash = _mm_cmpeq_epi8(chunk, _mm_set1_epi8('\\'));
    return static_cast<CodUint32>(_mm_movemask_epi8(_mm_or_si128(control, _mm_or_si128(quote, backslash))));
}

// What bytes are mapped to; the others to 0.
struct ByteMap {
    CodUint8 to[256];
};
constexpr ByteMap mapBytes(const char *from, const char *to) {
    ByteMap map = {};
    for (; *from != '\0'; from++, to++) {
        map.to[static_cast<CodUint8>(*from)] = static_cast<CodUint8>(*to);
    }
    return map;
}
// The letters behind a backslash and what they stand for; and the way back, for what must be escaped.
inline constexpr ByteMap kUnescaped = mapBytes("\"\\/bfnrt", "\"\\/\b\f\n\r\t");
inline constexpr ByteMap kEscapeLetters = mapBytes("\"\\\b\f\n\r\t", "\"\\bfnrt");

}  // namespace cod::velon
