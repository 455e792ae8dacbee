#pragma once

// Slots of collations that compare: order, equality, sort keys.

#include "string/ani_text_map_internal.h"

namespace cod {

constexpr CodInt32 signOf(bool isGreater) {
    return isGreater ? 1 : -1;
}

// ---- Ranks ----

// Characters compare by rank; equal ranks by tie, where the text's other characters do not decide. Both are 0 for none.

// No character's key begins with FF.
template <class Charset>
void putInvalidKey(Target &key, CodUint32 code) {
    if constexpr (Charset::kUnit == 1) {
        key.putHighFirst<2>(0xFF00 | (code & 0xFF));
    } else {
        key.putHighFirst<4>(0xFF000000 | (code & 0xFFFFFF));
    }
}

// The codes as their bytes compare.
template <class Charset, CodCaseMode mode>
struct BinaryOrder {
    static constexpr bool kHasTies = false;
    static constexpr bool kLooksAhead = false;

    static CodUint32 rank(CodUint32 code, const CodUint8 *, const CodUint8 *) {
        const CodUint32 folded = foldedCode<Charset, mode>(code);
        if (Charset::kIsSelfSynchronising || isInvalid(folded)) {
            return folded;
        }
        return folded < 0x100 ? folded << 24 : folded < 0x10000 ? folded << 16 : folded;
    }
    static CodUint32 tie(CodUint32) {
        return 0;
    }
    static void putKey(Target &key, CodUint32 code, const CodUint8 *, const CodUint8 *) {
        if (COD_UNLIKELY(isInvalid(code))) {
            putInvalidKey<Charset>(key, code);
        } else if constexpr (Charset::kUnit == 2) {
            key.putCharacter<Utf8Charset>(foldedCode<Charset, mode>(code));
        } else {
            key.putCharacter<Charset>(foldedCode<Charset, mode>(code));
        }
    }
};

template <class Charset, bool isPinyin>
struct PointOrder {
    static constexpr bool kLooksAhead = isPinyin;

    // Of a character that is read otherwise before a certain one.
    COD_COLD static CodUint32 weightBefore(CodUint32 codePoint, const CodUint8 *next, const CodUint8 *end) {
        const CodUint32 code = next != end ? Charset::read(next, end).code : kInvalidCode;
        return pinyinWeightBefore(codePoint, isInvalid(code) ? kNoPoint : Charset::toPoint(code));
    }
    static CodUint32 rank(CodUint32 code, const CodUint8 *next, const CodUint8 *end) {
        if (COD_UNLIKELY(isInvalid(code))) {
            return kInvalidRank | (code & ~kInvalidCode);
        }
        const CodUint32 codePoint = Charset::toPoint(code);
        if (COD_UNLIKELY(codePoint == kNoPoint)) {
            return kUnassignedRank | gb18030Key(code);
        }
        if constexpr (isPinyin) {
            // Radicals come first of all that has a weight.
            constexpr CodUint32 kFirstChinese = 0x2E80;
            if (codePoint >= kFirstChinese) {
                const bool mayDiffer = COD_UNLIKELY(codeToLower<CODEPAGE_PINYIN_SORT>(codePoint) != 0);
                const CodUint32 weight = mayDiffer ? weightBefore(codePoint, next, end) : pinyinWeight(codePoint);
                if (COD_LIKELY(weight != 0)) {
                    return kWeightRank | weight;
                }
                if (isChinese(codePoint)) {
                    return kUnweightedRank | codePoint;
                }
            }
        }
        return lowerPoint(codePoint) + 1;
    }
    // Lower case first.
    static CodUint32 tie(CodUint32 code) {
        if (isInvalid(code) || Charset::isCaseless(code)) {
            return 0;
        }
        const CodUint32 codePoint = Charset::toPoint(code);
        return codePoint == kNoPoint || lowerPoint(codePoint) == codePoint ? 0 : codePoint;
    }
    static void putKey(Target &key, CodUint32 code, const CodUint8 *next, const CodUint8 *end) {
        if (COD_UNLIKELY(isInvalid(code))) {
            putInvalidKey<Charset>(key, code);
            return;
        }
        const CodUint32 found = rank(code, next, end);
        if (found < kWeightRank) {
            key.putCharacter<Utf8Charset>(found);
        } else if (found < kUnweightedRank) {
            key.putHighFirst<3>(0xF50000 | (found & 0xFFFF));
        } else {
            key.putHighFirst<4>((found < kUnassignedRank ? 0xF6000000 : 0xF7000000) | (found & 0xFFFFFF));
        }
    }
};

template <class Charset, CodCaseMode mode>
struct GeneralOrder : PointOrder<Charset, false> {
    static constexpr bool kHasTies = mode == CASE_SENS;
};
template <class Charset, CodCaseMode mode>
struct PinyinOrder : PointOrder<Charset, true> {
    static constexpr bool kHasTies = mode == CASE_SENS;
};

// ---- Where texts differ ----

// At most 16 bytes, in units of whole ones where there are any.
inline __m128i shortBlock(const CodUint8 *in, CodUint64 size) {
    if (size >= 8) {
        return _mm_set_epi64x(static_cast<CodInt64>(loadLe<CodUint64>(in + size - 8)), static_cast<CodInt64>(loadLe<CodUint64>(in)));
    }
    if (size >= 4) {
        return _mm_set_epi32(0, 0, static_cast<int>(loadLe<CodUint32>(in + size - 4)), static_cast<int>(loadLe<CodUint32>(in)));
    }
    if (size >= 2) {
        return _mm_set_epi32(0, 0, loadLe<CodUint16>(in + size - 2), loadLe<CodUint16>(in));
    }
    return size == 0 ? _mm_setzero_si128() : _mm_cvtsi32_si128(in[0]);
}

// An offset up to which two texts of that many bytes are alike; blocks are compared as `prepare` makes them. At a difference in less than
// a block, they are alike by their bytes.
template <class Prepare>
inline CodUint64 alikeBytes(const CodUint8 *left, const CodUint8 *right, CodUint64 size, Prepare prepare) {
    constexpr auto kBlock = static_cast<CodUint64>(kBlockSize);
    const auto differences = [prepare](__m128i one, __m128i other) {
        return static_cast<CodUint32>(_mm_movemask_epi8(_mm_cmpeq_epi8(prepare(one), prepare(other)))) ^ 0xFFFF;
    };
    CodUint64 i = 0;
    for (; size - i >= kBlock; i += kBlock) {
        const CodUint32 different = differences(loadBlock(left + i), loadBlock(right + i));
        if (different != 0) {
            return i + static_cast<CodUint32>(__builtin_ctz(different));
        }
    }
    if (i == size) {
        return size;
    }
    if (differences(shortBlock(left + i, size - i), shortBlock(right + i, size - i)) == 0) {
        return size;
    }
    while (left[i] == right[i]) {
        i++;
    }
    return i;
}

// An offset up to which so many bytes of two texts are the same, without case the same but for that of ASCII letters.
template <class Charset, bool isFolded>
inline CodUint64 alikePrefix(const CodUint8 *left, const CodUint8 *right, CodUint64 size) {
    const CodUint64 units = size - size % Charset::kUnit;
    if constexpr (isFolded && Charset::kIsFoldableByUnits) {
        return alikeBytes(left, right, units, [](__m128i block) { return lowerBlock<Charset::kUnit>(block); });
    } else {
        return alikeBytes(left, right, units, [](__m128i block) { return block; });
    }
}
template <class Charset, bool isFolded>
inline CodUint64 alikePrefix(const Span &left, const Span &right) {
    return alikePrefix<Charset, isFolded>(left.begin, right.begin, left.size() < right.size() ? left.size() : right.size());
}

// The first character that may differ behind such an offset: it may have begun before.
template <class Charset>
inline CodUint64 firstDifference(const Span &left, const Span &right, CodUint64 alike) {
    const auto boundary = [alike](const Span &text) {
        return static_cast<CodUint64>(boundaryAt<Charset>(text, static_cast<CodUint32>(alike)) - text.begin);
    };
    const CodUint64 inLeft = boundary(left);
    const CodUint64 inRight = boundary(right);
    return inLeft < inRight ? inLeft : inRight;
}

// ---- Comparison ----

// -1, 0, 1 by bytes.
inline CodInt32 compareBytes(const Span &left, const Span &right) {
    const CodUint32 size = left.size() < right.size() ? left.size() : right.size();
    const int order = size != 0 ? memcmp(left.begin, right.begin, size) : 0;
    return order != 0 ? signOf(order > 0) : left.size() != right.size() ? signOf(left.size() > right.size()) : 0;
}

// By characters from the boundaries on.
template <class Charset, class Order>
CodInt32 compareCharacters(const Span &left, const Span &right) {
    const CodUint8 *l = left.begin;
    const CodUint8 *r = right.begin;
    CodInt32 tie = 0;
    while (l != left.end && r != right.end) {
        const Character a = Charset::read(l, left.end);
        const Character b = Charset::read(r, right.end);
        l += a.bytes;
        r += b.bytes;
        if (!Order::kLooksAhead && a.code == b.code) {
            continue;
        }
        const CodUint32 aRank = Order::rank(a.code, l, left.end);
        const CodUint32 bRank = Order::rank(b.code, r, right.end);
        if (aRank != bRank) {
            return signOf(aRank > bRank);
        }
        if (Order::kHasTies && tie == 0 && a.code != b.code) {
            tie = signOf(Order::tie(a.code) > Order::tie(b.code));
        }
    }
    if (l != left.end || r != right.end) {
        return signOf(l != left.end);
    }
    return tie;
}

template <class Charset, template <class, CodCaseMode> class OrderOf, CodCaseMode mode>
CodInt32 textCompare(const CodText *left, const CodText *right) {
    using Order = OrderOf<Charset, mode>;
    const Span l(left);
    const Span r(right);
    const CodUint64 alike = alikePrefix<Charset, mode == CASE_INS>(l, r);
    if (alike == l.size() && alike == r.size()) {
        return 0;
    }
    CodUint64 first = firstDifference<Charset>(l, r, alike);
    if constexpr (Order::kLooksAhead) {
        // The rank of the character before may go by this one.
        first = first != 0 ? static_cast<CodUint64>(Charset::before(l.begin, l.begin + first) - l.begin) : 0;
    }
    return compareCharacters<Charset, Order>({l.begin + first, l.end}, {r.begin + first, r.end});
}

template <class Charset>
CodInt32 textCompareBytes(const CodText *left, const CodText *right) {
    return compareBytes(Span(left), Span(right));
}

inline CodBool textEqualBytes(const CodText *left, const CodText *right) {
    return left->len == right->len && (left->len == 0 || memcmp(left->str, right->str, left->len) == 0);
}

template <class Charset>
[[gnu::noinline]] CodBool equalCharacters(const CodText *text1, const CodText *text2) {
    const Span left(text1);
    const Span right(text2);
    const CodUint64 first = firstDifference<Charset>(left, right, alikePrefix<Charset, true>(left, right));
    const CodUint8 *l = left.begin + first;
    const CodUint8 *r = right.begin + first;
    while (l != left.end && r != right.end) {
        const Character a = Charset::read(l, left.end);
        const Character b = Charset::read(r, right.end);
        if (a.code != b.code && foldedCode<Charset, CASE_INS>(a.code) != foldedCode<Charset, CASE_INS>(b.code)) {
            return false;
        }
        l += a.bytes;
        r += b.bytes;
    }
    return l == left.end && r == right.end;
}

template <class Charset>
CodBool textEqualFolded(const CodText *left, const CodText *right) {
    // Mostly texts of one length are equal by their bytes or not at all.
    const CodUint64 size = left->len;
    const auto *l = reinterpret_cast<const CodUint8 *>(left->str);
    const auto *r = reinterpret_cast<const CodUint8 *>(right->str);
    return (size == right->len && alikePrefix<Charset, true>(l, r, size) == size) || equalCharacters<Charset>(left, right);
}

// ---- Sort keys: the keys of the characters, which no key's begin is another key; then, behind a zero byte, the ties up to the last one.
// Each byte of those tells whether there is one: 1 none, 2 the code point follows. ----

constexpr CodUint8 kEndOfRanks = 0;
constexpr CodUint8 kNoTie = 1;
constexpr CodUint8 kTie = 2;

template <class Charset, template <class, CodCaseMode> class OrderOf, CodCaseMode mode>
CodResult textSortKey(const CodText *src, CodText *key, CodUint32 bufSize) {
    using Order = OrderOf<Charset, mode>;
    const Span text(src);
    Target target(key, bufSize);
    const CodUint8 *tiesEnd = text.begin;
    for (const CodUint8 *in = text.begin; in != text.end;) {
        const Character character = Charset::read(in, text.end);
        in += character.bytes;
        Order::putKey(target, character.code, in, text.end);
        if (Order::kHasTies && Order::tie(character.code) != 0) {
            tiesEnd = in;
        }
    }
    if (tiesEnd != text.begin) {
        target.putByte(kEndOfRanks);
    }
    for (const CodUint8 *in = text.begin; in != tiesEnd;) {
        const Character character = Charset::read(in, text.end);
        const CodUint32 tie = Order::tie(character.code);
        in += character.bytes;
        target.putByte(tie != 0 ? kTie : kNoTie);
        if (tie != 0) {
            target.putCharacter<Utf8Charset>(tie);
        }
    }
    return target.give<Charset>(key);
}

template <class Charset>
CodResult textSortKeyOfBytes(const CodText *src, CodText *key, CodUint32 bufSize) {
    const Span text(src);
    Target target(key, bufSize);
    target.put(text.begin, text.size());
    return target.give<Charset>(key);
}

template <class Charset, CodTextMap sortKey>
CodResult textSortKeyWithoutBlanks(const CodText *src, CodText *key, CodUint32 bufSize) {
    CodText text = *src;
    textTrimRight<Charset>(&text);
    return sortKey(&text, key, bufSize);
}

}  // namespace cod
