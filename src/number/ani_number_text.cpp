// Text: the readers, and the writers of plain and of scientific notation.

#include <algorithm>
#include <charconv>
#include <limits>

#include "number/ani_decimal_text_internal.h"
#include "number/ani_number_internal.h"

namespace cod {
namespace {

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// ---- Reading ----

constexpr const char *kNotANumber = "not a valid number";

// The rest of a text that is read from its front.
struct Reader {
    const char *next;
    const char *end;
    const char *begin;  // of what may be read

    bool isAtEnd() const {
        return next == end;
    }
    // The next character; 0 at the end.
    char peek() const {
        return isAtEnd() ? '\0' : *next;
    }

    // The next eight bytes, zeros behind the end; not at the end. Bytes before `next` are read rather than any behind the end.
    CodUint64 word() const {
        const CodUint32 left = static_cast<CodUint32>(end - next);
        if (COD_LIKELY(end - begin >= 8)) {
            const CodUint32 past = left < 8 ? 8 - left : 0;
            return loadLe<CodUint64>(next - past) >> 8 * past;
        }
        // Both ends of what is left, which may overlap.
        if (left >= 4) {
            return loadLe<CodUint32>(next) | CodUint64{loadLe<CodUint32>(end - 4)} << 8 * (left - 4);
        }
        const auto byte = [this](CodUint32 i) { return CodUint64{static_cast<CodUint8>(next[i])} << 8 * i; };
        return byte(0) | byte(left / 2) | byte(left - 1);
    }
};

// Digits with at most one point among them.
struct Digits {
    U128 value = 0;
    CodUint32 count = 0;     // with leading zeros; the value is right up to 38
    CodUint32 fraction = 0;  // digits behind the point
};

// Eight characters at a time, the point among them taken out of its word.
Digits readDigits(Reader &reader) {
    static constexpr CodUint64 powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
    Digits digits;
    CodUint32 hasPoint = 0;
    while (!reader.isAtEnd()) {
        CodUint64 word = reader.word();
        CodUint64 others = otherThanDigits(word);
        if (others == 0) {
            digits.value = digits.value * powers[8] + parseEight(word);
            digits.count += 8;
            digits.fraction += 8 * hasPoint;
            reader.next += 8;
            continue;
        }
        CodUint32 bit = static_cast<CodUint32>(__builtin_ctzll(others)) - 7;
        CodUint32 taken = bit / 8;
        const bool isPoint = hasPoint == 0 && static_cast<char>(word >> bit) == '.';
        if (isPoint) {
            const CodUint64 before = (CodUint64{1} << bit) - 1;
            word = (word & before) | (word >> 8 & ~before);
            others = otherThanDigits(word) | CodUint64{1} << 63;
            const CodUint32 integer = taken;
            bit = static_cast<CodUint32>(__builtin_ctzll(others)) - 7;
            taken = bit / 8 + 1;
            digits.fraction = bit / 8 - integer;
            hasPoint = 1;
        } else {
            digits.fraction += taken * hasPoint;
        }
        // Moved to the word's end, the digits have zeros before them.
        digits.value = digits.value * powers[bit / 8] + parseEight(word << (56 - bit) << 8);
        digits.count += bit / 8;
        reader.next += taken;
        if (taken < 8) {
            break;
        }
    }
    return digits;
}

// The same for any number of digits: 38 significant ones are kept, the next one rounds half up. The digits dropped from the integer
// part raise the exponent, those kept of the fraction lower it.
struct LongDigits {
    U128 value = 0;
    CodUint32 kept = 0;
    bool isRounding = false;
    bool isRoundedUp = false;
    CodInt64 exp = 0;

    void readRun(Reader &reader, bool isFraction) {
        for (; isDigit(reader.peek()); reader.next++) {
            const CodUint32 digit = static_cast<CodUint32>(*reader.next - '0');
            if (kept < COD_NUMBER_DIGITS) {
                value = value * 10 + digit;
                kept += value != 0;
                exp -= isFraction;
                continue;
            }
            isRoundedUp |= !isRounding && digit >= 5;
            isRounding = true;
            exp += !isFraction;
        }
    }

    void read(Reader &reader) {
        readRun(reader, false);
        if (reader.peek() == '.') {
            reader.next++;
            readRun(reader, true);
        }
        value += static_cast<U128>(isRoundedUp);
        if (value == kPow10_38) {
            value /= 10;
            exp++;
        }
    }
};

// The number behind an exponent mark, or false. More than any exponent that could matter is as good as infinite.
bool readExponent(Reader &reader, CodInt64 &exp) {
    constexpr CodInt64 huge = CodInt64{1} << 40;
    const bool isNegative = reader.peek() == '-';
    if (isNegative || reader.peek() == '+') {
        reader.next++;
    }
    if (!isDigit(reader.peek())) {
        return false;
    }
    CodInt64 magnitude = 0;
    for (; isDigit(reader.peek()); reader.next++) {
        magnitude = std::min(magnitude * 10 + (*reader.next - '0'), huge);
    }
    exp += isNegative ? -magnitude : magnitude;
    return true;
}

CodResult readNumber(const char *str, CodUint32 len, CodNumber *n) {
    Reader reader = {str, str + len, str};
    while (isBlank(reader.peek())) {
        reader.next++;
    }
    const char sign = reader.peek();
    const CodUint64 isNegative = sign == '-';
    // Without a branch: signs are as random as the data.
    reader.next += isNegative | static_cast<CodUint64>(sign == '+');
    const Reader start = reader;
    const Digits digits = readDigits(reader);
    U128 value = digits.value;
    CodInt64 exp = -CodInt64{digits.fraction};
    if (COD_UNLIKELY(digits.count == 0)) {
        return raiseInvalidNumber(str, len, isBlank(reader.peek()) || reader.isAtEnd() ? "no digits" : kNotANumber);
    }
    if (COD_UNLIKELY(digits.count > COD_NUMBER_DIGITS)) {
        reader = start;
        LongDigits longDigits;
        longDigits.read(reader);
        value = longDigits.value;
        exp = longDigits.exp;
    }
    if (!reader.isAtEnd()) {
        if ((*reader.next | 0x20) == 'e') {
            reader.next++;
            if (!readExponent(reader, exp)) {
                return raiseInvalidNumber(str, len, "an exponent without digits");
            }
        }
        while (isBlank(reader.peek())) {
            reader.next++;
        }
        if (!reader.isAtEnd()) {
            return raiseInvalidNumber(str, len, kNotANumber);
        }
    }
    // An exponent that no range check could overflow with.
    const CodInt32 held = static_cast<CodInt32>(std::clamp<CodInt64>(exp, INT16_MIN, INT16_MAX));
    if (COD_LIKELY(value != 0 && isExpHeld(held, COD_NUMBER_DIGITS))) {
        storeNumber(n, value, held, isNegative);
        return COD_SUCCESS;
    }
    return storeRounded(widen(value), held, isNegative, n);
}

// ---- Writing ----

// More zeros than this between the point and the first digit are written as an exponent.
constexpr CodInt32 kMaxLeadingZeros = 6;

// The digits of a coefficient without leading zeros, and without the trailing ones that may go.
struct Written {
    CodUint64 words[kDigitsRoom / 8 + 1];  // right-aligned in the first five
    CodUint32 first;                       // where the digits begin
    CodInt32 count;
    CodInt32 exp;  // of the last digit

    // Trailing zeros are dropped while the exponent is below `limit`.
    Written(U128 value, CodInt32 digits, CodInt32 exponent, CodInt32 limit)
        : first(kDigitsRoom - static_cast<CodUint32>(digits)), count(digits), exp(exponent) {
        char *room = reinterpret_cast<char *>(words);
        writeDigits(value, room);
        words[kDigitsRoom / 8] = 0;
        while (exp < limit && room[first + static_cast<CodUint32>(count) - 1] == '0') {
            count--;
            exp++;
        }
    }

    // Copies `many` digits from the digit `start` on, and up to seven bytes more. Words are read as they were written: a load across two
    // of them would have to wait until both have left the store buffer.
    void copy(char *to, CodInt32 start, CodInt32 many) const {
        const CodUint32 from = first + static_cast<CodUint32>(start);
        const CodUint64 *word = words + from / 8;
        const CodUint32 shift = from % 8 * 8;
        for (CodInt32 done = 0; done < many; done += 8, word++) {
            const CodUint64 eight = word[0] >> shift | word[1] << 1 << (63 - shift);
            std::memcpy(to + done, &eight, sizeof(eight));
        }
    }
};

char *writeScientific(char *out, const Written &digits) {
    digits.copy(out, 0, 1);
    out[1] = '.';
    digits.copy(out + 2, 1, digits.count - 1);
    out += digits.count > 1 ? digits.count + 1 : 1;
    CodInt32 exponent = digits.exp + digits.count - 1;
    *out++ = 'E';
    *out++ = exponent < 0 ? '-' : '+';
    exponent = exponent < 0 ? -exponent : exponent;
    if (exponent < 10) {
        *out++ = '0';
    }
    return std::to_chars(out, out + 6, exponent).ptr;
}

char *writePlain(char *out, const Written &digits) {
    const CodInt32 integerDigits = digits.count + digits.exp;
    if (integerDigits <= 0) {
        // "0.", zeros, digits
        std::memset(out, '0', 8);
        out[1] = '.';
        digits.copy(out + 2 - integerDigits, 0, digits.count);
        return out + 2 - digits.exp;
    }
    digits.copy(out, 0, integerDigits < digits.count ? integerDigits : digits.count);
    if (digits.exp < 0) {
        out[integerDigits] = '.';
        digits.copy(out + integerDigits + 1, integerDigits, -digits.exp);
        return out + digits.count + 1;
    }
    std::memset(out + digits.count, '0', static_cast<size_t>(digits.exp));
    return out + integerDigits;
}

// Writes into a buffer of COD_NUMBER_TEXT_SIZE bytes. A text has at most 49 with its terminator, and copies write up to seven more.
char *writeNumber(const Operand &a, char *out, bool isScientific) {
    if (a.value == 0) {
        std::memcpy(out, "0E+00", 5);
        out += isScientific ? 5 : 1;
    } else {
        *out = '-';
        out += a.negative;
        const CodInt32 count = static_cast<CodInt32>(digits128(a.value));
        const CodInt32 magnitude = a.exp + count;
        const bool isPlain = !isScientific && magnitude <= COD_NUMBER_DIGITS && magnitude >= -kMaxLeadingZeros;
        // In an integer every zero counts, unless it is written as an exponent.
        const Written digits(a.value, count, a.exp, isPlain ? 0 : std::numeric_limits<CodInt32>::max());
        out = isPlain ? writePlain(out, digits) : writeScientific(out, digits);
    }
    *out = '\0';
    return out;
}

CodResult writeBuffer(const CodNumber *n, char *str, CodUint32 bufSize, bool isScientific, CodUint32 &len) {
    const Operand a = loadOperand(n);
    if (COD_LIKELY(bufSize >= COD_NUMBER_TEXT_SIZE)) {
        len = static_cast<CodUint32>(writeNumber(a, str, isScientific) - str);
        return COD_SUCCESS;
    }
    char room[COD_NUMBER_TEXT_SIZE];
    const CodUint32 needed = static_cast<CodUint32>(writeNumber(a, room, isScientific) - room);
    if (needed >= bufSize) {
        return raiseBufferTooSmall(needed, bufSize);
    }
    std::memcpy(str, room, needed + 1);
    len = needed;
    return COD_SUCCESS;
}

CodResult writeText(const CodNumber *n, CodText *text, CodUint32 bufSize, bool isScientific) {
    if (n == nullptr || text == nullptr || text->str == nullptr) {
        return raiseNull();
    }
    CodUint32 len = 0;
    COD_TRY(writeBuffer(n, text->str, bufSize, isScientific, len));
    text->len = len;
    return COD_SUCCESS;
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codNumberFromStr(const char *str, CodNumber *n) {
    if (str == nullptr || n == nullptr) {
        return raiseNull();
    }
    const size_t len = std::strlen(str);
    constexpr CodUint32 longest = std::numeric_limits<CodUint32>::max();
    return COD_LIKELY(len <= longest) ? readNumber(str, static_cast<CodUint32>(len), n) : raiseInvalidNumber(str, longest, "too long");
}

CodResult codNumberFromText(const CodText *text, CodNumber *n) {
    if (text == nullptr || n == nullptr || (text->str == nullptr && text->len > 0)) {
        return raiseNull();
    }
    return readNumber(text->str, text->len, n);
}

CodResult codNumber2Str(const CodNumber *n, char *str, CodUint32 bufSize) {
    CodText text = {str, 0, 0};
    return writeText(n, &text, bufSize, false);
}

CodResult codNumber2Text(const CodNumber *n, CodText *text, CodUint32 bufSize) {
    return writeText(n, text, bufSize, false);
}

CodResult codNumber2SciText(const CodNumber *n, CodText *text, CodUint32 bufSize) {
    return writeText(n, text, bufSize, true);
}
