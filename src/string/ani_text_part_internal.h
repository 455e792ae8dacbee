#pragma once

// Slots of collations that count characters, walk over them and cut texts.

#include <vel_infra/string/ani_collation.h>

#include "string/ani_text_character_internal.h"

namespace cod {

// Where a text without bytes is that is nowhere, so that no place in a text is null.
inline constexpr CodUint8 kNowhere = 0;

// The bytes of a text.
struct Span {
    const CodUint8 *begin;
    const CodUint8 *end;

    explicit Span(const CodText *text)
        : begin(text->str != nullptr ? reinterpret_cast<const CodUint8 *>(text->str) : &kNowhere), end(begin + text->len) {}
    Span(const CodUint8 *from, const CodUint8 *to) : begin(from), end(to) {}

    CodUint32 size() const {
        return static_cast<CodUint32>(end - begin);
    }
    CodUint32 offset(const CodUint8 *at) const {
        return static_cast<CodUint32>(at - begin);
    }
};

// A view of a part; the tag stays.
inline void setText(CodText *text, const CodUint8 *begin, const CodUint8 *end) {
    text->str = begin != &kNowhere ? reinterpret_cast<CodChar *>(const_cast<CodUint8 *>(begin)) : nullptr;
    text->len = static_cast<CodUint32>(end - begin);
}

COD_COLD inline CodResult raiseOutOfIndex(CodUint32 index, CodUint32 first, CodUint32 last) {
    return codRaise(ERR_CMM_OUT_OF_INDEX, index, first, last);
}

// ---- Counting ----

// Skips `count` characters, which becomes how many are missing at the text's end. Null: an invalid sequence before.
template <class Charset>
inline const CodUint8 *skipCharacters(const CodUint8 *in, const CodUint8 *end, CodUint64 *count) {
    CodUint64 left = *count;
    if constexpr (Charset::kIsSingleByte || Charset::kUnit == 2) {
        const CodUint64 units = static_cast<CodUint64>(end - in) / Charset::kUnit;
        const CodUint64 skipped = left < units ? left : units;
        in += skipped * Charset::kUnit;
        left -= skipped;
        if (COD_UNLIKELY(left != 0 && in != end)) {
            return nullptr;
        }
    } else {
        while (left != 0 && in != end) {
            if (left >= static_cast<CodUint64>(kBlockSize) && end - in >= kBlockSize && isAsciiBlock<1>(loadBlock(in))) {
                in += kBlockSize;
                left -= static_cast<CodUint64>(kBlockSize);
                continue;
            }
            const CodUint32 bytes = Charset::step(in, end);
            if (COD_UNLIKELY(bytes == 0)) {
                return nullptr;
            }
            in += bytes;
            left--;
        }
    }
    *count = left;
    return in;
}

constexpr CodUint64 kAllCharacters = ~CodUint64{0};

template <class Charset>
inline CodResult countCharacters(const Span &text, CodUint64 *count) {
    if constexpr (requires { Charset::countAll(text.begin, text.end, count); }) {
        return Charset::countAll(text.begin, text.end, count) ? COD_SUCCESS : Charset::raiseInvalid();
    } else {
        CodUint64 left = kAllCharacters;
        if (skipCharacters<Charset>(text.begin, text.end, &left) == nullptr) {
            return Charset::raiseInvalid();
        }
        *count = kAllCharacters - left;
        return COD_SUCCESS;
    }
}

template <class Charset>
CodResult textLength(const CodText *text, CodUint32 *count) {
    CodUint64 all = 0;
    COD_TRY(countCharacters<Charset>(Span(text), &all));
    *count = static_cast<CodUint32>(all);
    return COD_SUCCESS;
}

template <class Charset>
CodResult textSubstr(const CodText *src, CodInt64 start, CodUint32 count, CodText *result) {
    const Span text(src);
    CodUint64 skipped = start > 0 ? static_cast<CodUint64>(start) - 1 : 0;
    if (start < 0) {
        CodUint64 all = 0;
        COD_TRY(countCharacters<Charset>(text, &all));
        const CodUint64 fromEnd = CodUint64{0} - static_cast<CodUint64>(start);
        if (fromEnd > all) {
            setText(result, text.begin, text.begin);
            return COD_SUCCESS;
        }
        skipped = all - fromEnd;
    }
    CodUint64 taken = count;
    const CodUint8 *begin = skipCharacters<Charset>(text.begin, text.end, &skipped);
    const CodUint8 *end = begin != nullptr ? skipCharacters<Charset>(begin, text.end, &taken) : nullptr;
    if (COD_UNLIKELY(end == nullptr)) {
        return Charset::raiseInvalid();
    }
    setText(result, begin, end);
    return COD_SUCCESS;
}

// ---- Boundaries ----

template <class Charset>
inline const CodUint8 *boundaryAt(const Span &text, CodUint32 offset) {
    return offset >= text.size() ? text.end : Charset::startOf(text.begin, text.begin + offset, text.end);
}

template <class Charset>
CodUint32 textCharBoundary(const CodText *text, CodUint32 offset) {
    const Span span(text);
    return span.offset(boundaryAt<Charset>(span, offset));
}

template <class Charset>
CodResult textSubstrb(const CodText *src, CodInt64 start, CodUint32 count, CodText *result) {
    const Span text(src);
    const CodInt64 size = text.size();
    const CodInt64 from = start > 0 ? start - 1 : start < 0 ? start + size : 0;
    if (from < 0 || from >= size) {
        setText(result, text.begin, text.begin);
        return COD_SUCCESS;
    }
    const CodUint8 *begin = boundaryAt<Charset>(text, static_cast<CodUint32>(from));
    if (begin != text.begin + from) {
        begin += Charset::read(begin, text.end).bytes;
    }
    const CodUint64 to = static_cast<CodUint64>(from) + count;
    const CodUint8 *end = boundaryAt<Charset>(text, static_cast<CodUint32>(to < text.size() ? to : text.size()));
    setText(result, begin, end > begin ? end : begin);
    return COD_SUCCESS;
}

// ---- Positions ----

inline CodResult checkOffset(const Span &text, CodUint32 offset) {
    return COD_LIKELY(offset <= text.size()) ? COD_SUCCESS : raiseOutOfIndex(offset, 0, text.size());
}

template <class Charset>
COD_COLD CodResult raiseNoPosition(const Span &text, CodUint32 position) {
    CodUint64 all = 0;
    COD_TRY(countCharacters<Charset>(text, &all));
    return raiseOutOfIndex(position, 1, static_cast<CodUint32>(all + 1));
}

template <class Charset>
CodResult textCharPos(const CodText *text, CodUint32 position, CodUint32 *offset) {
    const Span span(text);
    CodUint64 left = position != 0 ? position - 1 : kAllCharacters;
    const CodUint8 *at = skipCharacters<Charset>(span.begin, span.end, &left);
    if (COD_UNLIKELY(at == nullptr)) {
        return Charset::raiseInvalid();
    }
    if (COD_UNLIKELY(left != 0)) {
        return raiseNoPosition<Charset>(span, position);
    }
    *offset = span.offset(at);
    return COD_SUCCESS;
}

template <class Charset>
CodResult textCharPos2(const CodText *text, CodUint32 offset, CodUint32 *position) {
    const Span span(text);
    COD_TRY(checkOffset(span, offset));
    const CodUint8 *wanted = span.begin + offset;
    CodUint32 passed = 0;
    for (const CodUint8 *in = span.begin; in != span.end; passed++) {
        const CodUint32 bytes = Charset::step(in, span.end);
        if (COD_UNLIKELY(bytes == 0)) {
            return Charset::raiseInvalid();
        }
        in += bytes;
        if (in > wanted) {
            break;
        }
    }
    if (COD_UNLIKELY(passed == ~0u)) {
        return raiseOutOfIndex(offset, 0, offset - 1);  // no number has its position
    }
    *position = passed + 1;
    return COD_SUCCESS;
}

template <class Charset>
CodResult textNextCharLengthB(const CodText *text, CodUint32 from, CodUint32 *bytes) {
    const Span span(text);
    COD_TRY(checkOffset(span, from));
    const CodUint8 *in = span.begin + from;
    const CodUint32 found = in != span.end ? Charset::step(in, span.end) : 0;
    if (COD_UNLIKELY(found == 0 && in != span.end)) {
        return Charset::raiseInvalid();
    }
    *bytes = found;
    return COD_SUCCESS;
}

// The boundary so many counted characters before `from`, at least the begin; null: an invalid sequence between.
template <class Charset>
const CodUint8 *moveBack(const CodUint8 *begin, const CodUint8 *from, CodUint64 count) {
    if constexpr (Charset::kIsSingleByte || Charset::kUnit == 2) {
        const auto size = static_cast<CodUint64>(from - begin);
        const CodUint64 units = size / Charset::kUnit;
        const bool isOdd = size % Charset::kUnit != 0 && count != 0;
        return isOdd ? nullptr : from - (count < units ? count : units) * Charset::kUnit;
    } else if constexpr (Charset::kIsSelfSynchronising) {
        for (; count != 0 && from != begin; count--) {
            const CodUint8 *last = Charset::before(begin, from);
            if (Charset::step(last, from) == 0) {
                return nullptr;
            }
            from = last;
        }
        return from;
    } else {
        CodUint64 all = 0;
        for (const CodUint8 *in = begin; in < from; in += Charset::read(in, from).bytes) {
            all++;
        }
        const CodUint8 *at = begin;
        for (CodUint64 left = count < all ? all - count : 0; left != 0; left--) {
            at += Charset::read(at, from).bytes;
        }
        CodUint64 rest = kAllCharacters;
        return skipCharacters<Charset>(at, from, &rest) != nullptr ? at : nullptr;
    }
}

template <class Charset>
CodResult textPosMove(const CodText *text, CodUint32 from, CodInt32 count, CodUint32 *offset) {
    const Span span(text);
    COD_TRY(checkOffset(span, from));
    const CodUint8 *at = span.begin + from;
    CodUint64 distance = static_cast<CodUint64>(count < 0 ? -CodInt64{count} : CodInt64{count});
    const CodUint8 *moved = count < 0 ? moveBack<Charset>(span.begin, at, distance) : skipCharacters<Charset>(at, span.end, &distance);
    if (COD_UNLIKELY(moved == nullptr)) {
        return Charset::raiseInvalid();
    }
    *offset = span.offset(moved);
    return COD_SUCCESS;
}

// ---- Trimming ----

template <class Charset>
inline bool isBlank(const CodUint8 *in) {
    return in[0] == ' ' && (Charset::kUnit == 1 || in[1] == 0);
}

template <class Charset>
void textTrimLeft(CodText *text) {
    Span span(text);
    while (span.end - span.begin >= CodInt64{Charset::kUnit} && isBlank<Charset>(span.begin)) {
        span.begin += Charset::kUnit;
    }
    setText(text, span.begin, span.end);
}

template <class Charset>
void textTrimRight(CodText *text) {
    Span span(text);
    if (span.size() % Charset::kUnit != 0) {
        return;
    }
    // No character of several bytes ends in a blank.
    while (span.end != span.begin && isBlank<Charset>(span.end - Charset::kUnit)) {
        span.end -= Charset::kUnit;
    }
    setText(text, span.begin, span.end);
}

template <class Charset, CodCaseMode mode>
inline CodUint32 foldedCode(CodUint32 code) {
    return mode == CASE_INS && Charset::kHasCase && !isInvalid(code) ? Charset::lower(code) : code;
}

// Whether a set has a character, by this collation's equality; *place is then its number in the set, from 0.
template <class Charset, CodCaseMode mode>
inline bool isInSet(const Span &set, CodUint32 code, CodUint32 *place = nullptr) {
    const CodUint32 wanted = foldedCode<Charset, mode>(code);
    CodUint32 number = 0;
    for (const CodUint8 *in = set.begin; in != set.end; number++) {
        const Character member = Charset::read(in, set.end);
        if (member.code == wanted || foldedCode<Charset, mode>(member.code) == wanted) {
            if (place != nullptr) {
                *place = number;
            }
            return true;
        }
        in += member.bytes;
    }
    return false;
}

template <class Charset, CodCaseMode mode>
void textTrimCharLeft(CodText *text, const CodText *set) {
    Span span(text);
    const Span members(set);
    while (span.begin != span.end) {
        const Character character = Charset::read(span.begin, span.end);
        if (!isInSet<Charset, mode>(members, character.code)) {
            break;
        }
        span.begin += character.bytes;
    }
    setText(text, span.begin, span.end);
}

// Takes the characters at the end away that isTaken(code).
template <class Charset, class IsTaken>
void trimEnd(CodText *text, IsTaken isTaken) {
    const Span span(text);
    const CodUint8 *end = span.end;
    if constexpr (Charset::kIsSelfSynchronising) {
        while (end != span.begin) {
            const CodUint8 *last = Charset::before(span.begin, end);
            if (!isTaken(Charset::read(last, end).code)) {
                break;
            }
            end = last;
        }
    } else {
        end = span.begin;
        for (const CodUint8 *in = span.begin; in != span.end;) {
            const Character character = Charset::read(in, span.end);
            in += character.bytes;
            end = isTaken(character.code) ? end : in;
        }
    }
    setText(text, span.begin, end);
}

template <class Charset, CodCaseMode mode>
void textTrimCharRight(CodText *text, const CodText *set) {
    const Span members(set);
    trimEnd<Charset>(text, [&](CodUint32 code) { return isInSet<Charset, mode>(members, code); });
}

template <class Charset>
void textTrimInvalidChar(CodText *text) {
    trimEnd<Charset>(text, isInvalid);
}

// ---- Columns ----

template <class Charset>
CodUint32 textDisplayWidth(const CodText *text) {
    const Span span(text);
    if constexpr (Charset::kIsSingleByte) {
        return span.size();
    }
    CodUint32 columns = 0;
    for (const CodUint8 *in = span.begin; in != span.end;) {
        const CodUint8 *other = skipAsciiBlocks<Charset::kUnit>(in, span.end);
        columns += static_cast<CodUint32>(other - in) / Charset::kUnit;
        // Up to the next chance of a block.
        in = other;
        for (CodInt64 i = 0; i < kBlockSize && in != span.end; i++) {
            const Character character = Charset::read(in, span.end);
            const CodUint32 codePoint = isInvalid(character.code) ? kNoPoint : Charset::codePointOf(character.code);
            columns += codePoint < 0x80 || codePoint == kNoPoint ? 1 : displayColumns(codePoint);
            in += character.bytes;
        }
    }
    return columns;
}

}  // namespace cod
