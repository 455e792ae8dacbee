#pragma once

// Characters as collations see them, and the charsets that read and write them.
//
// A character is its code in its charset: a code point, or the number that its bytes make in GBK and GB18030. What is invalid is one byte
// (in UTF16 a surrogate, or the odd byte at the end) with a code from kInvalidCode on. A charset is a struct of these members:
//
//   kId, kUnit               its id; bytes of a unit
//   kIsSingleByte            every byte is a character
//   kIsSelfSynchronising     where characters begin shows nearby; `before` and `startOf` are quick
//   kIsFoldableByUnits       a unit that is an ASCII letter is a character, wherever it stands
//   kHasCase, kIsFixedLen, kIsNational, kName
//   read(in, end)            the character at in < end
//   step(in, end)            the bytes of the character that is counted at in < end; 0: invalid
//   startOf(begin, at, end)  where the character begins that has the byte at `at` < end
//   before(begin, at)        where the character begins that ends at the boundary `at` > begin
//   write(code, out)         its bytes; the code is valid
//   lower(code), upper(code) by another case, else the code itself; isCaseKnown(): also above ASCII
//   isCaseless(code)         no other character has this one's lower case; false when that is not clear at once
//   codePointOf(code)        the code point; kNoPoint: none
//   toPoint(code)            the same; kNoPoint also when another code is written for it
//   fromPoint(codePoint)     the code; kNoPoint: none; isPageLoaded(): also above ASCII
//   raiseInvalid(), raiseNoRoom(needed, bufSize)

#include <emmintrin.h>
#include <string.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/string/ani_charset.h>

#include "string/ani_charset_internal.h"

namespace cod {

struct Character {
    CodUint32 code;
    CodUint32 bytes;
};

constexpr CodUint32 kInvalidCode = 0xFF000000;
constexpr CodUint32 kOddByte = kInvalidCode | 0x10000;
constexpr CodUint32 kNoPoint = ~0u;

constexpr bool isInvalid(CodUint32 code) {
    return code >= kInvalidCode;
}
constexpr bool isAscii(CodUint32 code) {
    return code < 0x80;
}

// ---- Case ----

constexpr CodUint32 kCaseBit = 0x20;

constexpr CodUint32 asciiLowerCode(CodUint32 code) {
    return code - 'A' < 26 ? code | kCaseBit : code;
}
constexpr CodUint32 asciiUpperCode(CodUint32 code) {
    return code - 'a' < 26 ? code & ~kCaseBit : code;
}

CodUint32 lowerWithoutPages(CodUint32 codePoint);

inline CodUint32 lowerPoint(CodUint32 codePoint) {
    if (isAscii(codePoint)) {
        return asciiLowerCode(codePoint);
    }
    if (COD_UNLIKELY(!gCodepages[CODEPAGE_UCS].isLoaded)) {
        return lowerWithoutPages(codePoint);
    }
    const CodUint32 lower = codeToLower<CODEPAGE_UCS>(codePoint);
    return lower != 0 ? lower : codePoint;
}

// Code points of scripts without case, to which nothing else maps either.
constexpr bool isCaselessPoint(CodUint32 codePoint) {
    return isAscii(codePoint) ? (codePoint | kCaseBit) - 'a' >= 26
                              : codePoint - 0x2E80 < 0xA640 - 0x2E80 || codePoint - 0xAC00 < 0xFB00 - 0xAC00;
}

// ---- Vectors of 16 bytes ----

inline __m128i loadBlock(const CodUint8 *in) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(in));
}

// Letters of ASCII in lower case, by units.
template <CodUint32 kUnit>
inline __m128i lowerBlock(__m128i block) {
    if constexpr (kUnit == 1) {
        // The 26 letters are moved to the least numbers.
        const __m128i moved = _mm_add_epi8(block, _mm_set1_epi8(static_cast<char>(0x80 - 'A')));
        const __m128i isLetter = _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(0x80 + 26)));
        return _mm_or_si128(block, _mm_and_si128(isLetter, _mm_set1_epi8(kCaseBit)));
    } else {
        const __m128i moved = _mm_add_epi16(block, _mm_set1_epi16(static_cast<CodInt16>(0x8000 - 'A')));
        const __m128i isLetter = _mm_cmplt_epi16(moved, _mm_set1_epi16(static_cast<CodInt16>(0x8000 + 26)));
        return _mm_or_si128(block, _mm_and_si128(isLetter, _mm_set1_epi16(kCaseBit)));
    }
}
template <CodUint32 kUnit>
inline __m128i upperBlock(__m128i block) {
    if constexpr (kUnit == 1) {
        const __m128i moved = _mm_add_epi8(block, _mm_set1_epi8(static_cast<char>(0x80 - 'a')));
        const __m128i isLetter = _mm_cmplt_epi8(moved, _mm_set1_epi8(static_cast<char>(0x80 + 26)));
        return _mm_andnot_si128(_mm_and_si128(isLetter, _mm_set1_epi8(kCaseBit)), block);
    } else {
        const __m128i moved = _mm_add_epi16(block, _mm_set1_epi16(static_cast<CodInt16>(0x8000 - 'a')));
        const __m128i isLetter = _mm_cmplt_epi16(moved, _mm_set1_epi16(static_cast<CodInt16>(0x8000 + 26)));
        return _mm_andnot_si128(_mm_and_si128(isLetter, _mm_set1_epi16(kCaseBit)), block);
    }
}

constexpr CodInt64 kBlockSize = 16;

template <CodUint32 kUnit>
inline bool isAsciiBlock(__m128i block) {
    if constexpr (kUnit == 1) {
        return _mm_movemask_epi8(block) == 0;
    } else {
        const __m128i others = _mm_and_si128(block, _mm_set1_epi16(static_cast<CodInt16>(0xFF80)));
        return _mm_movemask_epi8(_mm_cmpeq_epi8(others, _mm_setzero_si128())) == 0xFFFF;
    }
}

// Past the blocks of ASCII that `in` begins with.
template <CodUint32 kUnit>
inline const CodUint8 *skipAsciiBlocks(const CodUint8 *in, const CodUint8 *end) {
    while (end - in >= kBlockSize && isAsciiBlock<kUnit>(loadBlock(in))) {
        in += kBlockSize;
    }
    return in;
}

// ---- Families of charsets ----

// A byte, a character: its number is its code point, and it has no case, unless Charset has it otherwise.
template <class Charset>
struct SingleByteText {
    static constexpr CodUint32 kUnit = 1;
    static constexpr bool kIsSingleByte = true;
    static constexpr bool kIsSelfSynchronising = true;
    static constexpr bool kIsFoldableByUnits = true;
    static constexpr bool kIsFixedLen = true;
    static constexpr bool kIsNational = false;

    static Character read(const CodUint8 *in, const CodUint8 *) {
        return {*in, 1};
    }
    static CodUint32 step(const CodUint8 *, const CodUint8 *) {
        return 1;
    }
    static const CodUint8 *startOf(const CodUint8 *, const CodUint8 *at, const CodUint8 *) {
        return at;
    }
    static const CodUint8 *before(const CodUint8 *, const CodUint8 *at) {
        return at - 1;
    }
    static CodUint32 write(CodUint32 code, CodUint8 *out) {
        *out = static_cast<CodUint8>(code);
        return 1;
    }
    static CodUint32 lower(CodUint32 code) {
        return code;
    }
    static CodUint32 upper(CodUint32 code) {
        return code;
    }
    static CodUint32 toPoint(CodUint32 code) {
        return code;
    }
    static CodUint32 fromPoint(CodUint32 codePoint) {
        return codePoint < 0x100 ? codePoint : kNoPoint;
    }
    static bool isCaseKnown() {
        return true;
    }
    static bool isPageLoaded() {
        return true;
    }
    static CodUint32 codePointOf(CodUint32 code) {
        return Charset::toPoint(code);
    }
    static bool isCaseless(CodUint32 code) {
        return Charset::lower(code) == code && Charset::upper(code) == code;
    }
    // No byte is invalid.
    COD_COLD static CodResult raiseInvalid() {
        return codRaise(ERR_CMM_CONVERT_STRING);
    }
    COD_COLD static CodResult raiseNoRoom(CodUint64 needed, CodUint32 bufSize) {
        return codRaise(ERR_CMM_COPY_DATA, static_cast<CodUint32>(needed < ~0u ? needed : ~0u), bufSize);
    }
};

// Codes are code points.
struct UnicodeText {
    static constexpr bool kIsSingleByte = false;
    static constexpr bool kIsSelfSynchronising = true;
    static constexpr bool kIsFoldableByUnits = true;
    static constexpr bool kHasCase = true;

    static CodUint32 lower(CodUint32 code) {
        return lowerPoint(code);
    }
    static CodUint32 upper(CodUint32 code) {
        if (isAscii(code)) {
            return asciiUpperCode(code);
        }
        const CodUint32 upper = codeToUpper<CODEPAGE_UCS>(code);
        return upper != 0 ? upper : code;
    }
    static bool isCaseKnown() {
        return gCodepages[CODEPAGE_UCS].isLoaded;
    }
    static bool isPageLoaded() {
        return true;
    }
    static bool isCaseless(CodUint32 code) {
        return isCaselessPoint(code);
    }
    static CodUint32 codePointOf(CodUint32 code) {
        return code;
    }
    static CodUint32 toPoint(CodUint32 code) {
        return code;
    }
    static CodUint32 fromPoint(CodUint32 codePoint) {
        return codePoint;
    }
};

// One and two bytes, in GB18030 four. Charset gives kId and read; page is its code page.
template <class Charset, CodepageId page>
struct ChineseText {
    static constexpr CodUint32 kUnit = 1;
    static constexpr bool kIsSingleByte = false;
    static constexpr bool kIsSelfSynchronising = false;
    static constexpr bool kIsFoldableByUnits = false;
    static constexpr bool kHasCase = true;
    static constexpr bool kIsFixedLen = false;
    static constexpr bool kIsNational = false;

    static bool isTrail(CodUint8 byte) {
        return byte >= 0x40 && byte != 0x7F && byte != 0xFF;
    }
    static CodUint32 step(const CodUint8 *in, const CodUint8 *end) {
        const Character character = Charset::read(in, end);
        return isInvalid(character.code) ? 0 : character.bytes;
    }
    // No character but a whole one has a byte below 30: one begins behind it.
    static const CodUint8 *startOf(const CodUint8 *begin, const CodUint8 *at, const CodUint8 *end) {
        const CodUint8 *start = at;
        while (start > begin && start[-1] >= 0x30) {
            start--;
        }
        for (;;) {
            const CodUint8 *next = start + Charset::read(start, end).bytes;
            if (next > at) {
                return start;
            }
            start = next;
        }
    }
    static const CodUint8 *before(const CodUint8 *begin, const CodUint8 *at) {
        return startOf(begin, at - 1, at);
    }
    static CodUint32 write(CodUint32 code, CodUint8 *out) {
        const CodUint32 bytes = code < 0x100 ? 1 : code < 0x10000 ? 2 : 4;
        for (CodUint32 i = bytes; i > 0; i--, code >>= 8) {
            out[i - 1] = static_cast<CodUint8>(code);
        }
        return bytes;
    }
    static CodUint32 lower(CodUint32 code) {
        if (isAscii(code)) {
            return asciiLowerCode(code);
        }
        const CodUint32 lower = codeToLower<page>(code);
        return lower != 0 ? lower : code;
    }
    static CodUint32 upper(CodUint32 code) {
        if (isAscii(code)) {
            return asciiUpperCode(code);
        }
        const CodUint32 upper = codeToUpper<page>(code);
        return upper != 0 ? upper : code;
    }
    static bool isPageLoaded() {
        return gCodepages[page].isLoaded;
    }
    static bool isCaseKnown() {
        return isPageLoaded();
    }
    // Letters stand in the rows A1 to A9.
    static bool isCaseless(CodUint32 code) {
        return isAscii(code) ? isCaselessPoint(code) : code < 0x10000 && (code < 0xA100 || code >= 0xAA00);
    }
    static CodUint32 codePointOf(CodUint32 code) {
        const CodUint32 codePoint = isAscii(code) ? code : codeToUnicode<page>(code);
        return codePoint != 0 || code == 0 ? codePoint : kNoPoint;
    }
    static CodUint32 toPoint(CodUint32 code) {
        const CodUint32 codePoint = codePointOf(code);
        // Some of the supplementary planes have codes of two bytes as well.
        const bool isWritten = codePoint < kBasicPlaneEnd || unicodeToCode<page>(codePoint) == code;
        return COD_LIKELY(isWritten) ? codePoint : kNoPoint;
    }
    static CodUint32 fromPoint(CodUint32 codePoint) {
        if (isAscii(codePoint)) {
            return codePoint;
        }
        const CodUint32 code = unicodeToCode<page>(codePoint);
        return code != 0 ? code : kNoPoint;
    }
    COD_COLD static CodResult raiseInvalid() {
        return codRaise(ERR_CMM_GBK_SEQUENCE_WRONG);
    }
    COD_COLD static CodResult raiseNoRoom(CodUint64, CodUint32) {
        return codRaise(ERR_CMM_GBK_BUFFER_SMALL);
    }
};

// ---- Order ----

// Ranks of characters in the orders by code points, from below: code points, plus 1 so that none is 0; weights of pinyin; Chinese
// characters without a weight; codes without a code point; what is invalid.
constexpr CodUint32 kWeightRank = 0x10000000;
constexpr CodUint32 kUnweightedRank = 0x20000000;
constexpr CodUint32 kUnassignedRank = 0x40000000;
constexpr CodUint32 kInvalidRank = 0x80000000;

constexpr bool isChinese(CodUint32 codePoint) {
    return codePoint - 0x3400 < 0x4DC0 - 0x3400 || codePoint - 0x4E00 < 0xA000 - 0x4E00 || codePoint - 0xF900 < 0xFB00 - 0xF900 ||
           codePoint - 0x20000 < 0x3FFFE - 0x20000;
}

}  // namespace cod
