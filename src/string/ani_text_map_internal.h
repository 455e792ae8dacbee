#pragma once

// Slots of collations that make texts: case, sets, translation, code points.

#include "string/ani_text_part_internal.h"

namespace cod {

constexpr CodUint32 kByteValues = 256;

// A buffer that is written up to its end, and told how much was wanted.
class Target {
public:
    Target(const CodText *dst, CodUint32 bufSize) : begin_(reinterpret_cast<CodUint8 *>(dst->str)), room_(bufSize) {}

    CodUint64 size() const {
        return size_;
    }
    void putByte(CodUint8 byte) {
        if (COD_LIKELY(size_ < room_)) {
            begin_[size_] = byte;
        }
        size_++;
    }
    // The last bytes of a number, the highest one first.
    template <CodUint32 count>
    void putHighFirst(CodUint32 number) {
        const CodUint32 bytes = __builtin_bswap32(number << (32 - 8 * count));
        if (COD_LIKELY(size_ + sizeof(bytes) <= room_)) {
            memcpy(begin_ + size_, &bytes, sizeof(bytes));
            size_ += count;
        } else {
            put(reinterpret_cast<const CodUint8 *>(&bytes), count);
        }
    }
    void put(const CodUint8 *bytes, CodUint64 count) {
        if (COD_LIKELY(size_ + count <= room_) && count != 0) {
            memcpy(begin_ + size_, bytes, count);
        }
        size_ += count;
    }
    void putBlock(__m128i block) {
        if (COD_LIKELY(size_ + sizeof(block) <= room_)) {
            _mm_storeu_si128(reinterpret_cast<__m128i *>(begin_ + size_), block);
        }
        size_ += sizeof(block);
    }
    template <class Charset>
    void putCharacter(CodUint32 code) {
        if (COD_LIKELY(size_ + kMostBytes <= room_)) {
            size_ += Charset::write(code, begin_ + size_);
            return;
        }
        CodUint8 bytes[kMostBytes];
        put(bytes, Charset::write(code, bytes));
    }
    // The text is whole.
    template <class Charset>
    CodResult give(CodText *dst) const {
        if (COD_UNLIKELY(size_ > room_)) {
            return Charset::raiseNoRoom(size_, static_cast<CodUint32>(room_));
        }
        dst->len = static_cast<CodUint32>(size_);
        return COD_SUCCESS;
    }
    bool fits() const {
        return size_ <= room_;
    }
    // The text so far, which fits.
    Span written() const {
        return {begin_, size_ != 0 ? begin_ + size_ : begin_};
    }

private:
    CodUint8 *begin_;
    CodUint64 room_;
    CodUint64 size_ = 0;
};

// ---- Case ----

template <class Charset>
struct LowerCase {
    static __m128i block(__m128i ascii) {
        return lowerBlock<Charset::kUnit>(ascii);
    }
    static CodUint32 code(CodUint32 code) {
        return Charset::lower(code);
    }
};
template <class Charset>
struct UpperCase {
    static __m128i block(__m128i ascii) {
        return upperBlock<Charset::kUnit>(ascii);
    }
    static CodUint32 code(CodUint32 code) {
        return Charset::upper(code);
    }
};

template <class Charset, class Case>
CodResult textToCase(const CodText *src, CodText *dst, CodUint32 bufSize) {
    const Span text(src);
    Target target(dst, bufSize);
    if constexpr (!Charset::kHasCase) {
        target.put(text.begin, text.size());
        return target.give<Charset>(dst);
    }
    for (const CodUint8 *in = text.begin; in != text.end;) {
        for (; text.end - in >= kBlockSize && isAsciiBlock<Charset::kUnit>(loadBlock(in)); in += kBlockSize) {
            target.putBlock(Case::block(loadBlock(in)));
        }
        // Up to the next chance of a block.
        for (CodInt64 i = 0; i < kBlockSize && in != text.end; i++) {
            const Character character = Charset::read(in, text.end);
            if (COD_UNLIKELY(isInvalid(character.code))) {
                return Charset::raiseInvalid();
            }
            if (COD_UNLIKELY(!isAscii(character.code) && !Charset::isCaseKnown())) {
                return codRaise(ERR_CMM_INVALID_CODEPAGE);
            }
            target.putCharacter<Charset>(Case::code(character.code));
            in += character.bytes;
        }
    }
    return target.give<Charset>(dst);
}

template <class Charset>
CodBool textIsCaseFoldWord(const CodText *text) {
    const Span span(text);
    for (const CodUint8 *in = span.begin; Charset::kHasCase && in != span.end;) {
        const Character character = Charset::read(in, span.end);
        const CodUint32 code = character.code;
        if (!isInvalid(code) && (Charset::lower(code) != code || Charset::upper(code) != code)) {
            return true;
        }
        in += character.bytes;
    }
    return false;
}

// ---- Sets ----

template <class Charset>
CodResult checkCharacters(const Span &text) {
    for (const CodUint8 *in = text.begin; in != text.end;) {
        const Character character = Charset::read(in, text.end);
        if (COD_UNLIKELY(isInvalid(character.code))) {
            return Charset::raiseInvalid();
        }
        in += character.bytes;
    }
    return COD_SUCCESS;
}

template <class Charset, CodCaseMode mode>
CodResult textDeDuplicate(const CodText *src, CodText *dst, CodUint32 bufSize) {
    const Span text(src);
    Target target(dst, bufSize);
    COD_TRY(checkCharacters<Charset>(text));
    [[maybe_unused]] bool isSeen[kByteValues] = {};
    for (const CodUint8 *in = text.begin; in != text.end && (Charset::kIsSingleByte || target.fits());) {
        const Character character = Charset::read(in, text.end);
        bool isNew = true;
        if constexpr (Charset::kIsSingleByte) {
            bool &seen = isSeen[foldedCode<Charset, mode>(character.code)];
            isNew = !seen;
            seen = true;
        } else {
            isNew = !isInSet<Charset, mode>(target.written(), character.code);
        }
        if (isNew) {
            target.put(in, character.bytes);
        }
        in += character.bytes;
    }
    return target.give<Charset>(dst);
}

// The character at a place of a set, its bytes; empty behind its end.
template <class Charset>
Span characterOf(const Span &set, CodUint32 place) {
    const CodUint8 *in = set.begin;
    for (; place != 0 && in != set.end; place--) {
        in += Charset::read(in, set.end).bytes;
    }
    return {in, in != set.end ? in + Charset::read(in, set.end).bytes : in};
}

template <class Charset, CodCaseMode mode>
CodResult textTranslate(const CodText *src, const CodText *from, const CodText *to, CodText *dst, CodUint32 bufSize) {
    const Span text(src);
    const Span wanted(from);
    const Span given(to);
    COD_TRY(checkCharacters<Charset>(text));
    COD_TRY(checkCharacters<Charset>(wanted));
    COD_TRY(checkCharacters<Charset>(given));
    Target target(dst, bufSize);
    for (const CodUint8 *in = text.begin; in != text.end;) {
        const Character character = Charset::read(in, text.end);
        CodUint32 place = 0;
        if (isInSet<Charset, mode>(wanted, character.code, &place)) {
            const Span other = characterOf<Charset>(given, place);
            target.put(other.begin, other.size());
        } else {
            target.put(in, character.bytes);
        }
        in += character.bytes;
    }
    return target.give<Charset>(dst);
}

// ---- Code points ----

template <class Charset>
COD_COLD CodResult raiseNoPoint() {
    return Charset::isPageLoaded() ? codRaise(ERR_CMM_CONVERT_STRING) : codRaise(ERR_CMM_INVALID_CODEPAGE);
}

template <class Charset>
CodResult textToUni(const CodText *text, CodUint32 offset, CodUint32 *codePoint, CodUint32 *bytes) {
    const Span span(text);
    if (COD_UNLIKELY(offset >= span.size())) {
        return raiseOutOfIndex(offset, 0, span.size() != 0 ? span.size() - 1 : 0);
    }
    const Character character = Charset::read(span.begin + offset, span.end);
    if (COD_UNLIKELY(isInvalid(character.code))) {
        return Charset::raiseInvalid();
    }
    const CodUint32 found = Charset::codePointOf(character.code);
    if (COD_UNLIKELY(found == kNoPoint)) {
        return raiseNoPoint<Charset>();
    }
    *codePoint = found;
    *bytes = character.bytes;
    return COD_SUCCESS;
}

template <class Charset>
CodResult textFromUni(CodUint32 codePoint, CodText *dst, CodUint32 bufSize) {
    const CodUint32 code = codePoint == 0 || scalarValue(codePoint) != 0 ? Charset::fromPoint(codePoint) : kNoPoint;
    if (COD_UNLIKELY(code == kNoPoint)) {
        return codePoint == 0 || scalarValue(codePoint) != 0 ? raiseNoPoint<Charset>() : codRaise(ERR_CMM_CONVERT_STRING);
    }
    Target target(dst, bufSize);
    target.putCharacter<Charset>(code);
    return target.give<Charset>(dst);
}

}  // namespace cod
