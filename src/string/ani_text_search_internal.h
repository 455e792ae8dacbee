#pragma once

// Slots of collations that search.
//
// An occurrence is found by its bytes where these tell (first and last byte of a block of places at a time), else by its characters in the
// same case. Either checks each place that looks like one; when that has cost more than a few passes over the text, a rolling hash of the
// characters goes on, so that no text and no pattern takes more than linear time.

#include "string/ani_text_order_internal.h"

namespace cod {

// How a text is searched for.
enum SearchKind : CodUint32 {
    kSearchNothing,     // it is empty
    kSearchBytes,       // its bytes, wherever they stand in whole units
    kSearchStarts,      // its bytes, where a character begins
    kSearchCharacters,  // its characters, without case in lower case
};

// A place in a text and the bytes of the occurrence there; at null: none.
struct Found {
    const CodUint8 *at;
    CodUint64 bytes;
};
constexpr Found kNotFound = {nullptr, 0};

// ---- The rolling hash: a polynomial of the characters' codes modulo 2^61 - 1 (Karp, Rabin) ----

constexpr CodUint64 kHashPrime = (CodUint64{1} << 61) - 1;
constexpr CodUint64 kHashBase = 0x0B5297A4D3F2C6E1;  // any number below the prime

inline CodUint64 hashTimes(CodUint64 a, CodUint64 b) {
    const auto product = static_cast<unsigned __int128>(a) * b;
    const CodUint64 sum = static_cast<CodUint64>(product & kHashPrime) + static_cast<CodUint64>(product >> 61);
    return sum >= kHashPrime ? sum - kHashPrime : sum;
}
inline CodUint64 hashPlus(CodUint64 a, CodUint64 b) {
    const CodUint64 sum = a + b;
    return sum >= kHashPrime ? sum - kHashPrime : sum;
}
inline CodUint64 hashWith(CodUint64 hash, CodUint32 code) {
    return hashPlus(hashTimes(hash, kHashBase), code);
}

// ---- Preparation ----

template <class Charset, CodCaseMode mode>
void textSetLikeSubInfo(const CodText *sub, CodLikeSubInfo *info) {
    *info = {};
    info->sub = *sub;
    info->power = 1;
    const Span text(sub);
    bool isValid = true;
    bool isCaseless = true;
    for (const CodUint8 *in = text.begin; in != text.end; info->characters++) {
        const Character character = Charset::read(in, text.end);
        const CodUint32 code = foldedCode<Charset, mode>(character.code);
        if (info->characters == 0) {
            info->first = code;
        } else {
            info->second = info->characters == 1 ? code : info->second;
            info->power = hashTimes(info->power, kHashBase);
        }
        info->hash = hashWith(info->hash, code);
        isValid = isValid && !isInvalid(code);
        isCaseless = isCaseless && (mode == CASE_SENS || !Charset::kHasCase || (!isInvalid(code) && Charset::isCaseless(code)));
        in += character.bytes;
    }
    if (info->characters == 0) {
        info->kind = kSearchNothing;
    } else if (!isValid || !isCaseless) {
        info->kind = kSearchCharacters;
    } else {
        info->kind = Charset::kIsSelfSynchronising ? kSearchBytes : kSearchStarts;
    }
}

// ---- The search ----

// How much all searches of one text may look at beyond it before the hash goes on.
class Budget {
public:
    explicit Budget(const Span &text) : left_(CodUint64{4} * text.size() + 256) {}
    void spend(CodUint64 bytes) {
        left_ = left_ > bytes ? left_ - bytes : 0;
    }
    bool isSpent() const {
        return left_ == 0;
    }

private:
    CodUint64 left_;
};

// The bytes at a place that has the characters of `sub`; 0: it has not.
template <class Charset, CodCaseMode mode>
CodUint64 matchCharacters(const Span &sub, const CodUint8 *at, const CodUint8 *end, CodUint64 *looked) {
    const CodUint8 *in = at;
    for (const CodUint8 *wanted = sub.begin; wanted != sub.end;) {
        if (in == end) {
            return 0;
        }
        const Character one = Charset::read(wanted, sub.end);
        const Character other = Charset::read(in, end);
        *looked += other.bytes;
        if (one.code != other.code && foldedCode<Charset, mode>(one.code) != foldedCode<Charset, mode>(other.code)) {
            return 0;
        }
        wanted += one.bytes;
        in += other.bytes;
    }
    return static_cast<CodUint64>(in - at);
}

// From a boundary on, by the hash: isWanted(place, number of its character) is asked at each place that has it, and ends the search when it
// is true.
template <class Charset, CodCaseMode mode, class IsWanted>
COD_COLD void scanByHash(const Span &text, const CodUint8 *from, const CodLikeSubInfo &info, IsWanted isWanted) {
    const CodUint8 *begin = from;
    CodUint64 number = 0;
    CodUint64 hash = 0;
    CodUint32 count = 0;
    for (const CodUint8 *in = from; in != text.end;) {
        const Character last = Charset::read(in, text.end);
        in += last.bytes;
        if (count == info.characters) {
            const Character first = Charset::read(begin, text.end);
            hash = hashPlus(hash, kHashPrime - hashTimes(foldedCode<Charset, mode>(first.code), info.power));
            begin += first.bytes;
            number++;
        } else {
            count++;
        }
        hash = hashWith(hash, foldedCode<Charset, mode>(last.code));
        if (count == info.characters && hash == info.hash && isWanted(begin, number)) {
            return;
        }
    }
}

template <class Charset, CodCaseMode mode>
Found matchAt(const Span &text, const CodUint8 *at, const CodLikeSubInfo &info) {
    CodUint64 looked = 0;
    const CodUint64 bytes = matchCharacters<Charset, mode>(Span(&info.sub), at, text.end, &looked);
    return bytes != 0 ? Found{at, bytes} : kNotFound;
}

template <class Charset, CodCaseMode mode>
COD_COLD Found findByHash(const Span &text, const CodUint8 *from, const CodLikeSubInfo &info) {
    Found found = kNotFound;
    scanByHash<Charset, mode>(text, from, info, [&](const CodUint8 *place, CodUint64) {
        found = matchAt<Charset, mode>(text, place, info);
        return found.at != nullptr;
    });
    return found;
}

// Places of a block at which a text's first and last byte stand, a bit each; only those at whole units.
template <CodUint32 kUnit>
inline CodUint32 placesInBlock(const CodUint8 *at, CodUint32 size, __m128i first, __m128i last) {
    const __m128i alike = _mm_and_si128(_mm_cmpeq_epi8(loadBlock(at), first), _mm_cmpeq_epi8(loadBlock(at + size - 1), last));
    return static_cast<CodUint32>(_mm_movemask_epi8(alike)) & (kUnit == 1 ? 0xFFFF : 0x5555);
}

// What lies between the first and the last byte.
inline bool hasMiddle(const CodUint8 *at, const CodUint8 *sub, CodUint32 size) {
    return size <= 2 || memcmp(at + 1, sub + 1, size - 2) == 0;
}

// From a boundary on, by the bytes.
template <class Charset, CodCaseMode mode>
Found findBytes(const Span &text, const CodUint8 *from, const CodLikeSubInfo &info, Budget &budget) {
    const Span sub(&info.sub);
    const CodUint32 size = sub.size();
    if (static_cast<CodUint64>(text.end - from) < size) {
        return kNotFound;
    }
    const CodUint8 *lastPlace = text.end - size;
    const __m128i first = _mm_set1_epi8(static_cast<char>(sub.begin[0]));
    const __m128i last = _mm_set1_epi8(static_cast<char>(sub.end[-1]));
    const CodUint8 *boundary = from;  // kSearchStarts: a character begins here, at or before the place
    const auto isOccurrence = [&](const CodUint8 *at) {
        if (!hasMiddle(at, sub.begin, size)) {
            return false;
        }
        if constexpr (!Charset::kIsSelfSynchronising) {
            while (boundary < at) {
                boundary += Charset::read(boundary, text.end).bytes;
            }
            return boundary == at;
        }
        return true;
    };
    const CodUint8 *at = from;
    for (; lastPlace - at >= kBlockSize - 1; at += kBlockSize) {
        for (CodUint32 places = placesInBlock<Charset::kUnit>(at, size, first, last); places != 0; places &= places - 1) {
            const CodUint8 *place = at + __builtin_ctz(places);
            budget.spend(size);
            if (isOccurrence(place)) {
                return {place, size};
            }
            if (COD_UNLIKELY(budget.isSpent())) {
                return findByHash<Charset, mode>(text, Charset::startOf(from, place, text.end), info);
            }
        }
    }
    for (; at <= lastPlace; at += Charset::kUnit) {
        if (at[0] == sub.begin[0] && at[size - 1] == sub.end[-1] && isOccurrence(at)) {
            return {at, size};
        }
    }
    return kNotFound;
}

// Past blocks of ASCII in which no occurrence begins, from a boundary to one. What is not ASCII may equal an ASCII letter in another case.
template <class Charset, CodCaseMode mode>
inline const CodUint8 *skipOthers(const CodUint8 *in, const CodUint8 *end, const CodLikeSubInfo &info) {
    if constexpr (Charset::kUnit == 1) {
        // A byte above ASCII stands for a character that equals no ASCII byte.
        const auto byteOf = [](CodUint32 code) { return _mm_set1_epi8(static_cast<char>(isAscii(code) ? code : 0xFF)); };
        const __m128i first = byteOf(info.first);
        const __m128i second = byteOf(info.second);
        const auto folded = [](__m128i block) { return mode == CASE_INS ? lowerBlock<1>(block) : block; };
        const __m128i hasNoSecond = _mm_set1_epi8(info.characters == 1 ? -1 : 0);
        for (; end - in > kBlockSize; in += kBlockSize) {
            const __m128i block = loadBlock(in);
            const __m128i next = loadBlock(in + 1);
            const __m128i isSecond = _mm_or_si128(_mm_or_si128(next, hasNoSecond), _mm_cmpeq_epi8(folded(next), second));
            const __m128i isFirst = _mm_and_si128(_mm_cmpeq_epi8(folded(block), first), isSecond);
            const auto places = static_cast<CodUint32>(_mm_movemask_epi8(_mm_or_si128(block, isFirst)));
            if (places != 0) {
                return in + __builtin_ctz(places);
            }
        }
    }
    return in;
}

// From a boundary on, by the characters.
template <class Charset, CodCaseMode mode>
Found findCharacters(const Span &text, const CodUint8 *from, const CodLikeSubInfo &info, Budget &budget) {
    const Span sub(&info.sub);
    for (const CodUint8 *in = from; in != text.end;) {
        in = skipOthers<Charset, mode>(in, text.end, info);
        if (in == text.end) {
            break;
        }
        const Character character = Charset::read(in, text.end);
        if (character.code == info.first || foldedCode<Charset, mode>(character.code) == info.first) {
            CodUint64 looked = 0;
            const CodUint64 bytes = matchCharacters<Charset, mode>(sub, in, text.end, &looked);
            budget.spend(looked);
            if (bytes != 0) {
                return {in, bytes};
            }
            if (COD_UNLIKELY(budget.isSpent())) {
                return findByHash<Charset, mode>(text, in, info);
            }
        }
        in += character.bytes;
    }
    return kNotFound;
}

template <class Charset, CodCaseMode mode>
Found find(const Span &text, const CodUint8 *from, const CodLikeSubInfo &info, Budget &budget) {
    if (info.kind == kSearchNothing) {
        return {from, 0};
    }
    return info.kind == kSearchCharacters ? findCharacters<Charset, mode>(text, from, info, budget)
                                          : findBytes<Charset, mode>(text, from, info, budget);
}

template <class Charset, CodCaseMode mode>
Found findFirst(const Span &text, const CodUint8 *from, const CodLikeSubInfo &info) {
    Budget budget(text);
    return find<Charset, mode>(text, from, info, budget);
}

// The last place of the bytes, backwards; kNotFound also when the budget is spent on the way.
template <class Charset>
Found findBytesBackward(const Span &text, const CodLikeSubInfo &info, Budget &budget) {
    const Span sub(&info.sub);
    const CodUint32 size = sub.size();
    if (text.size() < size) {
        return kNotFound;
    }
    const __m128i first = _mm_set1_epi8(static_cast<char>(sub.begin[0]));
    const __m128i last = _mm_set1_epi8(static_cast<char>(sub.end[-1]));
    CodUint64 places = text.size() - size + 1;  // from the text's begin on
    while (places >= static_cast<CodUint64>(kBlockSize)) {
        // A block may begin within a unit: its place in the text decides.
        const CodUint8 *block = text.begin + (places - static_cast<CodUint64>(kBlockSize));
        CodUint32 found = placesInBlock<1>(block, size, first, last);
        for (; found != 0; found &= ~(1u << (31 - __builtin_clz(found)))) {
            const CodUint8 *at = block + (31 - __builtin_clz(found));
            budget.spend(size);
            if (text.offset(at) % Charset::kUnit == 0 && hasMiddle(at, sub.begin, size)) {
                return {at, size};
            }
            if (COD_UNLIKELY(budget.isSpent())) {
                return kNotFound;
            }
        }
        places -= static_cast<CodUint64>(kBlockSize);
    }
    while (places != 0) {
        const CodUint8 *at = text.begin + --places;
        if (places % Charset::kUnit == 0 && at[0] == sub.begin[0] && at[size - 1] == sub.end[-1] && hasMiddle(at, sub.begin, size)) {
            return {at, size};
        }
    }
    return kNotFound;
}

// The last occurrence, from one on. Only the last place with the hash is looked at; should it be none, all are.
template <class Charset, CodCaseMode mode>
COD_COLD Found findLastByHash(const Span &text, const Found &known, const CodLikeSubInfo &info) {
    const CodUint8 *lastPlace = known.at;
    scanByHash<Charset, mode>(text, known.at, info, [&](const CodUint8 *place, CodUint64) {
        lastPlace = place;
        return false;
    });
    Found last = matchAt<Charset, mode>(text, lastPlace, info);
    if (COD_UNLIKELY(last.at == nullptr)) {
        scanByHash<Charset, mode>(text, known.at, info, [&](const CodUint8 *place, CodUint64) {
            const Found found = matchAt<Charset, mode>(text, place, info);
            last = found.at != nullptr ? found : last;
            return false;
        });
    }
    return last;
}

// The last occurrence of all.
template <class Charset, CodCaseMode mode>
Found findLast(const Span &text, const CodLikeSubInfo &info) {
    if (info.kind == kSearchNothing) {
        return {text.end, 0};
    }
    Budget budget(text);
    if (info.kind == kSearchBytes) {
        const Found found = findBytesBackward<Charset>(text, info, budget);
        if (found.at != nullptr || !budget.isSpent()) {
            return found;
        }
    }
    Found last = kNotFound;
    for (Found next = find<Charset, mode>(text, text.begin, info, budget); next.at != nullptr;) {
        last = next;
        if (COD_UNLIKELY(budget.isSpent())) {
            return findLastByHash<Charset, mode>(text, last, info);
        }
        next = find<Charset, mode>(text, next.at + Charset::read(next.at, text.end).bytes, info, budget);
    }
    return last;
}

// ---- The slots ----

inline CodUint32 offsetOf(const Span &text, const Found &found) {
    return found.at != nullptr ? text.offset(found.at) : COD_TEXT_NOT_FOUND;
}

template <class Charset, CodCaseMode mode>
CodUint32 textInLong(const CodText *text, CodUint32 from, const CodLikeSubInfo *info) {
    const Span span(text);
    if (from > span.size()) {
        return COD_TEXT_NOT_FOUND;
    }
    return offsetOf(span, findFirst<Charset, mode>(span, span.begin + from, *info));
}

template <class Charset, CodCaseMode mode>
CodUint32 textFirstSubPos(const CodText *text, const CodText *sub) {
    CodLikeSubInfo info;
    textSetLikeSubInfo<Charset, mode>(sub, &info);
    return textInLong<Charset, mode>(text, 0, &info);
}

template <class Charset, CodCaseMode mode>
CodBool textHas(const CodText *text, const CodText *sub) {
    return textFirstSubPos<Charset, mode>(text, sub) != COD_TEXT_NOT_FOUND;
}

template <class Charset, CodCaseMode mode>
CodUint32 textBackwardInLong(const CodText *text, CodUint32 end, const CodLikeSubInfo *info) {
    const Span span(text);
    const Span before = {span.begin, end < span.size() ? span.begin + end : span.end};
    return offsetOf(before, findLast<Charset, mode>(before, *info));
}

// The nth place from `from` on, at `limit` at the latest; null: there is none. *count, which it adds to, is how many there are up to it.
//
// Occurrences that overlap repeat a part of what is searched for: with the distance of the last two, only what is new of the next one is
// looked at. Other distances are met so rarely that all of it may be (Fine and Wilf).
template <class Charset, CodCaseMode mode>
COD_COLD const CodUint8 *findNthByHash(const Span &text, const CodUint8 *from, const CodUint8 *limit, const CodLikeSubInfo &info,
                                       CodUint64 nth, CodUint64 *count) {
    const Span sub(&info.sub);
    const CodUint8 *nthPlace = nullptr;
    const CodUint8 *lastEnd = nullptr;
    CodUint64 lastNumber = 0;
    CodUint64 period = 0;
    const CodUint8 *lastPeriod = nullptr;  // of sub, up to its end
    scanByHash<Charset, mode>(text, from, info, [&](const CodUint8 *place, CodUint64 number) {
        if (place > limit) {
            return true;
        }
        const CodUint64 distance = number - lastNumber;
        const bool isRepeated = lastEnd != nullptr && distance == period;
        const Span wanted = isRepeated ? Span(lastPeriod, sub.end) : sub;
        const CodUint8 *begin = isRepeated ? lastEnd : place;
        CodUint64 looked = 0;
        const CodUint64 bytes = matchCharacters<Charset, mode>(wanted, begin, text.end, &looked);
        if (bytes == 0) {
            return false;
        }
        if (lastEnd != nullptr && !isRepeated && distance < info.characters) {
            period = distance;
            lastPeriod = sub.begin;
            for (CodUint64 skipped = info.characters - distance; skipped != 0; skipped--) {
                lastPeriod += Charset::read(lastPeriod, sub.end).bytes;
            }
        }
        lastEnd = begin + bytes;
        lastNumber = number;
        nthPlace = ++*count == nth ? place : nullptr;
        return nthPlace != nullptr;
    });
    return nthPlace;
}

template <class Charset, CodCaseMode mode>
const CodUint8 *findNth(const Span &text, const CodUint8 *from, const CodUint8 *limit, const CodLikeSubInfo &info, CodUint64 nth,
                        CodUint64 *count) {
    Budget budget(text);
    *count = 0;
    while (from != nullptr) {
        if (COD_UNLIKELY(budget.isSpent())) {
            return findNthByHash<Charset, mode>(text, from, limit, info, nth, count);
        }
        const Found found = find<Charset, mode>(text, from, info, budget);
        if (found.at == nullptr || found.at > limit) {
            return nullptr;
        }
        if (++*count == nth) {
            return found.at;
        }
        from = found.at != text.end ? found.at + Charset::read(found.at, text.end).bytes : nullptr;
    }
    return nullptr;
}

template <class Charset, CodCaseMode mode>
CodResult textIn(const CodText *text, const CodText *sub, CodInt64 start, CodUint32 nth, CodUint32 *position) {
    const Span span(text);
    CodUint64 all = 0;
    COD_TRY(checkCharacters<Charset>(span));
    COD_TRY(countCharacters<Charset>(span, &all));
    const CodInt64 places = static_cast<CodInt64>(all) + 1;
    const CodInt64 place = start > 0 ? start - 1 : start + static_cast<CodInt64>(all);
    *position = 0;
    if (start == 0 || nth == 0 || place < 0 || place >= places) {
        return COD_SUCCESS;
    }
    CodLikeSubInfo info;
    textSetLikeSubInfo<Charset, mode>(sub, &info);
    CodUint64 skipped = static_cast<CodUint64>(place);
    const CodUint8 *from = skipCharacters<Charset>(span.begin, span.end, &skipped);
    CodUint64 count = 0;
    const CodUint8 *found = nullptr;
    if (start > 0) {
        // Within a pair of surrogates no occurrence begins.
        from = from != span.end && Charset::startOf(span.begin, from, span.end) != from ? from + Charset::kUnit : from;
        found = findNth<Charset, mode>(span, from, span.end, info, nth, &count);
    } else {
        // Backwards, the nth one is that many from the last one: they are counted first.
        (void)findNth<Charset, mode>(span, span.begin, from, info, kAllCharacters, &count);
        found = count >= nth ? findNth<Charset, mode>(span, span.begin, from, info, count - nth + 1, &count) : nullptr;
    }
    if (found == nullptr) {
        return COD_SUCCESS;
    }
    CodUint64 before = 0;
    COD_TRY(countCharacters<Charset>({span.begin, found}, &before));
    *position = static_cast<CodUint32>(before + 1);
    return COD_SUCCESS;
}

// ---- Dividing ----

inline bool divide(const Span &span, const Found &found, CodText *head, CodText *tail) {
    setText(head, span.begin, found.at);
    setText(tail, found.at + found.bytes, span.end);
    return true;
}

template <class Charset, CodCaseMode mode>
CodBool textSplit(const CodText *text, const CodText *separator, CodText *head, CodText *tail) {
    const Span span(text);
    CodLikeSubInfo info;
    textSetLikeSubInfo<Charset, mode>(separator, &info);
    const Found found = info.kind != kSearchNothing ? findFirst<Charset, mode>(span, span.begin, info) : kNotFound;
    if (found.at == nullptr) {
        setText(head, span.begin, span.end);
        setText(tail, span.end, span.end);
        return false;
    }
    return divide(span, found, head, tail);
}

template <class Charset, CodCaseMode mode>
CodBool textSplitReverse(const CodText *text, const CodText *separator, CodText *head, CodText *tail) {
    const Span span(text);
    CodLikeSubInfo info;
    textSetLikeSubInfo<Charset, mode>(separator, &info);
    const Found found = info.kind != kSearchNothing ? findLast<Charset, mode>(span, info) : kNotFound;
    if (found.at == nullptr) {
        setText(head, span.begin, span.begin);
        setText(tail, span.begin, span.end);
        return false;
    }
    return divide(span, found, head, tail);
}

}  // namespace cod
