#pragma once

// The tables of the loaded code pages and their lookups, for code that converts or compares many characters.

#include <type_traits>

#include <vel_infra/codepage/ani_codepage.h>

namespace cod {

// ---- The format ----

// A lookup has two stages: the index names a block for each 64 keys, the map has the elements of each block. Blocks that are equal are
// there once. Element 0 stands for none, and so do keys behind the index.
constexpr CodUint32 kCodepageDim = 2;
constexpr CodUint32 kCodepageBlockBits = 6;
constexpr CodUint32 kCodepageBlock = 1u << kCodepageBlockBits;
// In a case-fold map each block has two planes: 64 elements of lower case, then 64 of upper case.
constexpr CodUint32 kCaseFoldPlanes = 2;
constexpr CodUint32 kLowerPlane = 0;
constexpr CodUint32 kUpperPlane = 1;

template <CodUint32 id>
using CodepageWord = std::conditional_t<id == CODEPAGE_UCS || id == CODEPAGE_GB18030, CodUint32, CodUint16>;

// ---- Codes of GB18030 ----

// A four-byte code has a position, a number in the order of its bytes. The positions of what is beyond the basic plane follow the code
// points, and need no table.
constexpr CodUint32 kGb18030LinearBegin = 189000;
constexpr CodUint32 kUnicodeEnd = 0x110000;
constexpr CodUint32 kBasicPlaneEnd = 0x10000;
constexpr CodUint32 kNoKey = ~0u;

constexpr CodUint32 gb18030CodeAt(CodUint32 position) {
    const CodUint32 first = position / 12600 + 0x81;
    const CodUint32 second = position / 1260 % 10 + 0x30;
    const CodUint32 third = position / 10 % 126 + 0x81;
    return first << 24 | second << 16 | third << 8 | (position % 10 + 0x30);
}

// The key of a code in the tables: a code of one or two bytes itself, 10000 plus the position of one of four bytes. kNoKey for a number
// whose four bytes do not lie within their ranges.
constexpr CodUint32 gb18030Key(CodUint32 code) {
    if (code < 0x10000) {
        return code;
    }
    const CodUint32 first = (code >> 24) - 0x81;
    const CodUint32 second = (code >> 16 & 0xFF) - 0x30;
    const CodUint32 third = (code >> 8 & 0xFF) - 0x81;
    const CodUint32 fourth = (code & 0xFF) - 0x30;
    const bool isCode = (first < 126) & (second < 10) & (third < 126) & (fourth < 10);
    return isCode ? 0x10000 + first * 12600 + second * 1260 + third * 10 + fourth : kNoKey;
}
static_assert(gb18030CodeAt(0) == 0x81308130 && gb18030Key(0x81308130) == 0x10000);
static_assert(gb18030CodeAt(kGb18030LinearBegin) == 0x90308130 && gb18030Key(0xE3329A35) == 0x10000 + 189000 + 0xFFFFF);

// ---- Tables ----

struct CodepageTable {
    CodUint16 *index;
    void *map;
    CodUint32 blocks;  // entries of the index; 0: no table
};

struct Codepage {
    CodepageHead head;
    CodepageTable caseFold;
    CodepageTable toUnicode;
    CodepageTable fromUnicode;
    bool isLoaded;
};

extern Codepage gCodepages[__CODEPAGE_COUNT__];

// Every entry of the index was found to be within the map when it was loaded.
template <class Word, CodUint32 planes = 1, CodUint32 plane = 0>
inline CodUint32 tableElement(const CodepageTable &table, CodUint32 key) {
    const CodUint32 block = key >> kCodepageBlockBits;
    if (COD_UNLIKELY(block >= table.blocks)) {
        return 0;
    }
    return static_cast<const Word *>(table.map)[(table.index[block] * planes + plane) * kCodepageBlock + key % kCodepageBlock];
}

// ---- Elements, 0: none. NUL, which is 0 everywhere, is the caller's. ----

constexpr CodUint32 scalarValue(CodUint32 codePoint) {
    return codePoint < kUnicodeEnd && codePoint >> 11 != 0xD800 >> 11 ? codePoint : 0;
}

template <CodUint32 id>
inline CodUint32 codeKey(CodUint32 code) {
    return id == CODEPAGE_GB18030 ? gb18030Key(code) : code;
}

template <CodUint32 id>
inline CodUint32 codeToUnicode(CodUint32 code) {
    const Codepage &page = gCodepages[id];
    if constexpr (id == CODEPAGE_UCS) {
        return page.isLoaded ? scalarValue(code) : 0;
    }
    const CodUint32 key = codeKey<id>(code);
    if constexpr (id == CODEPAGE_GB18030) {
        const CodUint32 beyond = key - (0x10000 + kGb18030LinearBegin);
        if (COD_UNLIKELY(beyond < kUnicodeEnd - kBasicPlaneEnd)) {
            return page.isLoaded ? kBasicPlaneEnd + beyond : 0;
        }
    }
    return tableElement<CodepageWord<id>>(page.toUnicode, key);
}

template <CodUint32 id>
inline CodUint32 unicodeToCode(CodUint32 codePoint) {
    const Codepage &page = gCodepages[id];
    if constexpr (id == CODEPAGE_UCS) {
        return page.isLoaded ? scalarValue(codePoint) : 0;
    }
    const CodUint32 code = tableElement<CodepageWord<id>>(page.fromUnicode, codePoint);
    if constexpr (id == CODEPAGE_GB18030) {
        // A few of the supplementary planes have two bytes, and stand in the table.
        const CodUint32 beyond = codePoint - kBasicPlaneEnd;
        if (COD_UNLIKELY(code == 0 && beyond < kUnicodeEnd - kBasicPlaneEnd)) {
            return page.isLoaded ? gb18030CodeAt(kGb18030LinearBegin + beyond) : 0;
        }
    }
    return code;
}

template <CodUint32 id>
inline CodUint32 codeToLower(CodUint32 code) {
    return tableElement<CodepageWord<id>, kCaseFoldPlanes, kLowerPlane>(gCodepages[id].caseFold, codeKey<id>(code));
}

template <CodUint32 id>
inline CodUint32 codeToUpper(CodUint32 code) {
    return tableElement<CodepageWord<id>, kCaseFoldPlanes, kUpperPlane>(gCodepages[id].caseFold, codeKey<id>(code));
}

// 2 columns for what Unicode calls wide or fullwidth, else 1, and 1 while the page is not loaded.
inline CodUint32 displayColumns(CodUint32 codePoint) {
    return tableElement<CodepageWord<CODEPAGE_UCS>>(gCodepages[CODEPAGE_UCS].fromUnicode, codePoint) == 0 ? 1 : 2;
}

inline CodUint32 pinyinWeight(CodUint32 codePoint) {
    return tableElement<CodUint16>(gCodepages[CODEPAGE_PINYIN_SORT].fromUnicode, codePoint);
}

// The same for a character that is read otherwise before `next`, as the first one of Chongqing; the case-fold tables of the page hold
// these: the next character in the lower plane, the weight before it in the upper one.
inline CodUint32 pinyinWeightBefore(CodUint32 codePoint, CodUint32 next) {
    constexpr CodUint32 id = CODEPAGE_PINYIN_SORT;
    const CodUint32 follower = codeToLower<id>(codePoint);
    return COD_UNLIKELY(follower != 0 && follower == next) ? codeToUpper<id>(codePoint) : pinyinWeight(codePoint);
}

}  // namespace cod
