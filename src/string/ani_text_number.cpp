#include "string/ani_text_number_internal.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include <vel_infra/string/ani_number_form.h>

#include "base/cod_ascii.h"
#include "number/ani_number_internal.h"

namespace cod {
namespace {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isSpace(char c) {
    return c == ' ';
}
// What may stand around a number.
constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// ---- Writing ----

// Copies ASCII into dst->str.
template <bool isWide>
CodResult giveText(const char *ascii, CodUint32 count, CodText *dst, CodUint32 bufSize) {
    const CodUint32 needed = isWide ? 2 * count : count;
    if (COD_UNLIKELY(needed > bufSize)) {
        return raiseBufferTooSmall(needed, bufSize);
    }
    if constexpr (isWide) {
        for (CodUint32 i = 0; i < count; i++) {
            dst->str[2 * i] = ascii[i];
            dst->str[2 * i + 1] = '\0';
        }
    } else {
        std::memcpy(dst->str, ascii, count);
    }
    dst->len = needed;
    return COD_SUCCESS;
}

template <bool isWide, class Integer>
CodResult fromInteger(Integer value, CodText *dst, CodUint32 bufSize) {
    char room[24];
    const char *end = std::to_chars(room, room + sizeof(room), value).ptr;
    return giveText<isWide>(room, static_cast<CodUint32>(end - room), dst, bufSize);
}

// The shortest decimal, with an exponent that NUMBER itself may not reach.
template <class Float>
CodResult toShortest(Float value, CodNumber *n) {
    char room[COD_NUMBER_TEXT_SIZE];
    const char *end = std::to_chars(room, room + sizeof(room), value, std::chars_format::scientific).ptr;
    const char *mark = std::find(room, room + sizeof(room), 'e');
    const CodText mantissa = {room, static_cast<CodUint32>(mark - room), 0};
    CodInt32 exp = 0;
    std::from_chars(mark + (mark[1] == '+' ? 2 : 1), end, exp);
    COD_TRY(codNumberFromText(&mantissa, n));
    const Operand a = loadOperand(n);
    storeCanonical(n, a.value, a.exp + exp, a.negative);
    return COD_SUCCESS;
}

template <bool isWide, class Float>
CodResult fromFloating(Float value, CodText *dst, CodUint32 bufSize) {
    if (COD_UNLIKELY(!std::isfinite(value))) {
        const char *word = std::isnan(value) ? "NaN" : value < 0 ? "-Infinity" : "Infinity";
        return giveText<isWide>(word, static_cast<CodUint32>(std::strlen(word)), dst, bufSize);
    }
    CodNumber n;
    COD_TRY(toShortest(value, &n));
    return TextNumbers<isWide>::fromNumber(&n, dst, bufSize);
}

// ---- Reading ----

// The characters of a text, from its front. One of UTF16 that is not ASCII, or lacks its second byte, is '?', which no number has.
template <bool isWide>
class Units {
public:
    explicit Units(const CodText &text) : str_(text.str), bytes_(text.len), end_(isWide ? text.len / 2 + text.len % 2 : text.len) {}

    CodUint32 count() const {
        return end_ - next_;
    }
    bool isAtEnd() const {
        return next_ == end_;
    }
    char at(CodUint32 i) const {
        const CodUint32 unit = next_ + i;
        if constexpr (isWide) {
            const CodUint32 offset = 2 * unit;
            const bool isAscii = offset + 1 < bytes_ && str_[offset + 1] == '\0' && str_[offset] >= '\0';
            return isAscii ? str_[offset] : '?';
        } else {
            return str_[unit];
        }
    }
    // The next character; 0 at the end.
    char peek() const {
        return isAtEnd() ? '\0' : at(0);
    }
    void skip() {
        next_++;
    }
    void skipAll(bool (*isSkipped)(char)) {
        while (!isAtEnd() && isSkipped(at(0))) {
            next_++;
        }
    }
    Units &trim(bool (*isTrimmed)(char)) {
        skipAll(isTrimmed);
        while (!isAtEnd() && isTrimmed(at(count() - 1))) {
            end_--;
        }
        return *this;
    }
    bool equals(const char *word) const {
        if (std::strlen(word) != count()) {
            return false;
        }
        CodUint32 i = 0;
        while (i < count() && asciiLower(at(i)) == asciiLower(word[i])) {
            i++;
        }
        return i == count();
    }
    // The first characters, at most `most`; returns how many.
    CodUint32 copy(char *to, CodUint32 most) const {
        const CodUint32 many = std::min(count(), most);
        for (CodUint32 i = 0; i < many; i++) {
            to[i] = at(i);
        }
        return many;
    }

private:
    const char *str_;
    CodUint32 bytes_;
    CodUint32 next_ = 0;
    CodUint32 end_;
};

// Characters of a text that a message quotes.
constexpr CodUint32 kQuoted = 128;

template <bool isWide>
COD_COLD CodResult raiseNoNumber(const CodText &text, const char *reason) {
    char quoted[kQuoted];
    const CodUint32 many = Units<isWide>(text).copy(quoted, sizeof(quoted));
    return raiseInvalidNumber(quoted, many, reason);
}

template <bool isWide>
COD_COLD CodResult raiseNoBoolean(const CodText &text) {
    char quoted[kQuoted] = {};
    if (Units<isWide>(text).copy(quoted, sizeof(quoted)) == sizeof(quoted)) {
        std::memcpy(quoted + sizeof(quoted) - 4, "...", 4);
    }
    return codRaise(ERR_CMM_BOOL_INVALID_VALUE, quoted);
}

// The number that a text begins with: its first digits, one more than NUMBER keeps, and its exponent.
template <bool isWide>
struct NumberScan {
    static constexpr CodUint32 kKept = COD_NUMBER_DIGITS + 1;

    char digits[1 + kKept];  // behind a sign
    CodUint32 count = 0;     // without leading zeros
    CodInt64 exp = 0;        // of the last one
    bool hasDigits = false;
    const char *reason = nullptr;  // why the whole text is no number; null: it is one

    explicit NumberScan(const CodText &text) {
        constexpr const char *notANumber = "not a valid number";
        Units<isWide> in(text);
        in.skipAll(isBlank);
        const char sign = in.peek();
        digits[0] = sign == '-' ? '-' : '+';
        if (sign == '-' || sign == '+') {
            in.skip();
        }
        readRun(in, false);
        if (in.peek() == '.') {
            in.skip();
            readRun(in, true);
        }
        if (!hasDigits) {
            reason = in.isAtEnd() || isBlank(in.peek()) ? "no digits" : notANumber;
            return;
        }
        if (asciiLower(in.peek()) == 'e' && !readExponent(in)) {
            reason = "an exponent without digits";
            return;
        }
        in.skipAll(isBlank);
        reason = in.isAtEnd() ? nullptr : notANumber;
    }

    // As NUMBER reads, but with an exponent that only the record bounds.
    CodResult give(CodNumber *n) {
        if (count == 0) {
            storeZero(n);
            return COD_SUCCESS;
        }
        const CodText text = {digits, 1 + count, 0};
        COD_TRY(codNumberFromText(&text, n));
        n->exp = static_cast<CodInt16>(std::clamp<CodInt64>(n->exp + exp, INT16_MIN, INT16_MAX));
        return COD_SUCCESS;
    }
    CodResult giveInRange(CodNumber *n) {
        COD_TRY(give(n));
        const Operand a = loadOperand(n);
        return storeRounded(widen(a.value), a.exp, a.negative, n);
    }

private:
    void readRun(Units<isWide> &in, bool isFraction) {
        for (; isDigit(in.peek()); in.skip()) {
            hasDigits = true;
            const bool isKept = count < kKept;
            if (isKept && (count > 0 || in.peek() != '0')) {
                digits[++count] = in.peek();
            }
            exp += isKept ? -isFraction : !isFraction;
        }
    }

    // Stays at the mark, and is false, where no digits follow.
    bool readExponent(Units<isWide> &in) {
        constexpr CodInt64 huge = CodInt64{1} << 40;
        Units<isWide> ahead = in;
        ahead.skip();
        const char sign = ahead.peek();
        if (sign == '-' || sign == '+') {
            ahead.skip();
        }
        if (!isDigit(ahead.peek())) {
            return false;
        }
        CodInt64 magnitude = 0;
        for (; isDigit(ahead.peek()); ahead.skip()) {
            magnitude = std::min(magnitude * 10 + (ahead.peek() - '0'), huge);
        }
        exp += sign == '-' ? -magnitude : magnitude;
        in = ahead;
        return true;
    }
};

// A text or form in ASCII.
template <bool isWide>
class Narrowed {
public:
    explicit Narrowed(const Units<isWide> &units) : count_(units.copy(room_, sizeof(room_))) {
        // No form, and no text that a form writes, is as long: what is cut off must not make one of it.
        if (count_ == sizeof(room_)) {
            room_[sizeof(room_) - 1] = '?';
        }
    }
    CodText text() {
        return {room_, count_, 0};
    }

private:
    char room_[COD_NUMBER_FORM_TEXT_SIZE + 1];
    CodUint32 count_;
};

CodResult toNative(const CodNumber *n, CodUint64 *value) {
    return codNumberToUint64(n, value);
}
CodResult toNative(const CodNumber *n, CodUint32 *value) {
    return codNumberToUint32(n, value);
}
CodResult toNative(const CodNumber *n, CodUint16 *value) {
    return codNumberToUint16(n, value);
}
CodResult toNative(const CodNumber *n, CodUint8 *value) {
    return codNumberToUint8(n, value);
}
CodResult toNative(const CodNumber *n, CodDouble *value) {
    return codNumberToDouble(n, value);
}
CodResult toNative(const CodNumber *n, CodFloat *value) {
    return codNumberToFloat(n, value);
}

template <bool isWide, class Integer>
CodResult toInteger(const CodText *text, Integer *value) {
    CodNumber n;
    COD_TRY(TextNumbers<isWide>::toNumber(text, &n));
    return toNative(&n, value);
}

template <class Float>
struct FloatWord {
    const char *word;
    Float value;
};

template <bool isWide, class Float>
CodResult toFloating(const CodText *text, Float *value) {
    using Limits = std::numeric_limits<Float>;
    static constexpr FloatWord<Float> words[] = {
        {"Infinity", Limits::infinity()},
        {"-Infinity", -Limits::infinity()},
        {"NaN", Limits::quiet_NaN()},
    };
    NumberScan<isWide> scan(*text);
    if (COD_LIKELY(scan.reason == nullptr)) {
        CodNumber n;
        COD_TRY(scan.give(&n));
        return toNative(&n, value);
    }
    const Units<isWide> trimmed = Units<isWide>(*text).trim(isBlank);
    for (const FloatWord<Float> &word : words) {
        if (trimmed.equals(word.word)) {
            *value = word.value;
            return COD_SUCCESS;
        }
    }
    return raiseNoNumber<isWide>(*text, scan.reason);
}

struct BoolWord {
    const char *word;
    bool value;
};
constexpr BoolWord kBoolWords[] = {
    {"true", true},   {"t", true},  {"yes", true}, {"y", true},  {"on", true},   {"1", true},
    {"false", false}, {"f", false}, {"no", false}, {"n", false}, {"off", false}, {"0", false},
};

bool endsInExponent(const CodText &form) {
    constexpr CodUint32 length = 4;
    return form.len >= length && equalsIgnoringCase(form.str + form.len - length, length, "EEEE");
}

}  // namespace

template <bool isWide>
CodResult TextNumbers<isWide>::fromInt(CodInt64 value, CodText *dst, CodUint32 bufSize) {
    return fromInteger<isWide>(value, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::fromUint(CodUint64 value, CodText *dst, CodUint32 bufSize) {
    return fromInteger<isWide>(value, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::fromDouble(CodDouble value, CodText *dst, CodUint32 bufSize) {
    return fromFloating<isWide>(value, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::fromFloat(CodFloat value, CodText *dst, CodUint32 bufSize) {
    return fromFloating<isWide>(value, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::fromNumber(const CodNumber *value, CodText *dst, CodUint32 bufSize) {
    char room[COD_NUMBER_TEXT_SIZE];
    CodText ascii = {room, 0, 0};
    COD_TRY(codNumber2Text(value, &ascii, sizeof(room)));
    return giveText<isWide>(room, ascii.len, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::fromNumberByForm(const CodNumber *value, const CodText *form, CodText *dst, CodUint32 bufSize) {
    Narrowed<isWide> narrowed{Units<isWide>(*form)};
    const CodText narrowForm = narrowed.text();
    char room[COD_NUMBER_FORM_TEXT_SIZE];
    CodText ascii = {room, 0, 0};
    COD_TRY(codNumberFormat(value, &narrowForm, &ascii, sizeof(room)));
    return giveText<isWide>(room, ascii.len, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::fromNumberBySciForm(const CodNumber *value, const CodText *form, CodText *dst, CodUint32 bufSize) {
    if (form->len == 0) {
        char room[COD_NUMBER_TEXT_SIZE];
        CodText ascii = {room, 0, 0};
        COD_TRY(codNumber2SciText(value, &ascii, sizeof(room)));
        return giveText<isWide>(room, ascii.len, dst, bufSize);
    }
    Narrowed<isWide> narrowed{Units<isWide>(*form)};
    if (!endsInExponent(narrowed.text())) {
        return codRaise(ERR_CMM_DATA_FORMAT_ERROR);
    }
    return fromNumberByForm(value, form, dst, bufSize);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toNumberByForm(const CodText *text, const CodText *form, CodNumber *value) {
    Narrowed<isWide> narrowed(Units<isWide>(*text).trim(isBlank));
    Narrowed<isWide> narrowedForm{Units<isWide>(*form)};
    const CodText narrowText = narrowed.text();
    const CodText narrowForm = narrowedForm.text();
    CodNumber n;
    COD_TRY(codNumberParse(&narrowText, &narrowForm, &n));
    *value = n;
    return COD_SUCCESS;
}

template <bool isWide>
CodResult TextNumbers<isWide>::toNumber(const CodText *text, CodNumber *value) {
    CodNumber n;
    if constexpr (isWide) {
        NumberScan<isWide> scan(*text);
        if (COD_UNLIKELY(scan.reason != nullptr)) {
            return raiseNoNumber<isWide>(*text, scan.reason);
        }
        COD_TRY(scan.giveInRange(&n));
    } else {
        COD_TRY(codNumberFromText(text, &n));
    }
    *value = n;
    return COD_SUCCESS;
}

template <bool isWide>
CodResult TextNumbers<isWide>::toTruncNumber(const CodText *text, CodNumber *value) {
    NumberScan<isWide> scan(*text);
    CodNumber n;
    COD_TRY(scan.giveInRange(&n));
    *value = n;
    return COD_SUCCESS;
}

template <bool isWide>
CodResult TextNumbers<isWide>::toFloat(const CodText *text, CodFloat *value) {
    return toFloating<isWide>(text, value);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toDouble(const CodText *text, CodDouble *value) {
    return toFloating<isWide>(text, value);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toUint64(const CodText *text, CodUint64 *value) {
    return toInteger<isWide>(text, value);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toUint32(const CodText *text, CodUint32 *value) {
    return toInteger<isWide>(text, value);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toUint16(const CodText *text, CodUint16 *value) {
    return toInteger<isWide>(text, value);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toUint8(const CodText *text, CodUint8 *value) {
    return toInteger<isWide>(text, value);
}

template <bool isWide>
CodResult TextNumbers<isWide>::toBool(const CodText *text, CodBool *value) {
    const Units<isWide> trimmed = Units<isWide>(*text).trim(isSpace);
    for (const BoolWord &word : kBoolWords) {
        if (trimmed.equals(word.word)) {
            *value = word.value;
            return COD_SUCCESS;
        }
    }
    return raiseNoBoolean<isWide>(*text);
}

template struct TextNumbers<false>;
template struct TextNumbers<true>;

}  // namespace cod
