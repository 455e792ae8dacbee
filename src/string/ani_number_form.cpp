#include <vel_infra/string/ani_number_form.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstring>

#include "base/cod_ascii.h"
#include "number/ani_decimal_text_internal.h"
#include "number/ani_number_internal.h"
#include "string/ani_text_internal.h"

namespace cod {
namespace {

// ---- Forms ----

constexpr CodInt32 kMostDigits = 63;

enum class Sign : CodUint8 {
    kMinusFirst,     // in a column of its own
    kFirst,          // S before the digits
    kLast,           // S behind them
    kMinusLast,      // MI
    kAngleBrackets,  // PR
};

struct NumberForm {
    CodInt32 integer = 0;        // digits before the point
    CodInt32 leastInteger = 0;   // those that are written as zeros too: from the first 0 on
    CodInt32 fraction = 0;       // digits behind the point
    CodInt32 leastFraction = 0;  // those that FM keeps as zeros too: up to the last 0
    CodUint64 commas = 0;        // bit i: a comma behind the first i digits
    Sign sign = Sign::kMinusFirst;
    bool isTight = false;  // FM
    bool hasDollar = false;
    bool hasPoint = false;
    bool isScientific = false;

    bool isCommaAt(CodInt32 digit) const {
        return (commas >> digit & 1) != 0;
    }
    CodInt32 columns() const {
        return (sign == Sign::kAngleBrackets ? 2 : 1) + hasDollar + integer + std::popcount(commas) + hasPoint + fraction;
    }
};

enum class Part : CodUint8 { kTight, kSign, kDollar, kNine, kZero, kFractionNine, kFractionZero, kComma, kPoint, kExponent };

// Where a form has been read to.
enum Stage : CodUint32 {
    kAtBegin = 1 << 0,
    kBehindTight = 1 << 1,
    kBehindSign = 1 << 2,
    kBehindDollar = 1 << 3,
    kInInteger = 1 << 4,
    kBehindComma = 1 << 5,
    kInFraction = 1 << 6,
    kBehindExponent = 1 << 7,
    kAtEnd = 1 << 8,
};
constexpr CodUint32 kInHead = kAtBegin | kBehindTight | kBehindSign | kBehindDollar;
constexpr CodUint32 kInTail = kInInteger | kInFraction | kBehindExponent;

struct Element {
    const char *word;
    CodUint32 stages;  // in which it may stand
    Stage next;
    Part part;
    Sign sign = Sign::kMinusFirst;
};

constexpr Element kElements[] = {
    {"FM", kAtBegin, kBehindTight, Part::kTight},
    {"S", kAtBegin | kBehindTight, kBehindSign, Part::kSign, Sign::kFirst},
    {"$", kAtBegin | kBehindTight | kBehindSign, kBehindDollar, Part::kDollar},
    {"9", kInHead | kInInteger | kBehindComma, kInInteger, Part::kNine},
    {"0", kInHead | kInInteger | kBehindComma, kInInteger, Part::kZero},
    {",", kInInteger, kBehindComma, Part::kComma},
    {"G", kInInteger, kBehindComma, Part::kComma},
    {".", kInHead | kInInteger, kInFraction, Part::kPoint},
    {"D", kInHead | kInInteger, kInFraction, Part::kPoint},
    {"9", kInFraction, kInFraction, Part::kFractionNine},
    {"0", kInFraction, kInFraction, Part::kFractionZero},
    {"EEEE", kInInteger | kInFraction, kBehindExponent, Part::kExponent},
    {"S", kInTail, kAtEnd, Part::kSign, Sign::kLast},
    {"MI", kInTail, kAtEnd, Part::kSign, Sign::kMinusLast},
    {"PR", kInTail, kAtEnd, Part::kSign, Sign::kAngleBrackets},
};

// The element that a form goes on with; null: none may stand here. At each stage the first letter tells.
const Element *findElement(const char *next, const char *end, CodUint32 stage) {
    for (const Element &element : kElements) {
        if ((element.stages & stage) == 0 || asciiLower(*next) != asciiLower(element.word[0])) {
            continue;
        }
        const size_t length = std::strlen(element.word);
        return static_cast<size_t>(end - next) >= length && equalsIgnoringCase(next, length, element.word) ? &element : nullptr;
    }
    return nullptr;
}

// False when the form cannot have the element again, or beside what it has.
bool takeElement(const Element &element, NumberForm &form) {
    switch (element.part) {
        case Part::kTight:
            form.isTight = true;
            return true;
        case Part::kSign: {
            const bool isFirst = form.sign == Sign::kMinusFirst;
            form.sign = element.sign;
            return isFirst;
        }
        case Part::kDollar:
            form.hasDollar = true;
            return true;
        case Part::kNine:
        case Part::kZero:
            form.leastInteger += element.part == Part::kZero || form.leastInteger > 0;
            form.integer++;
            break;
        case Part::kFractionNine:
        case Part::kFractionZero:
            form.fraction++;
            form.leastFraction = element.part == Part::kFractionZero ? form.fraction : form.leastFraction;
            break;
        case Part::kComma:
            form.commas |= CodUint64{1} << form.integer;
            return true;
        case Part::kPoint:
            form.hasPoint = true;
            return true;
        case Part::kExponent:
            form.isScientific = true;
            return form.commas == 0;
    }
    return form.integer + form.fraction <= kMostDigits;
}

COD_COLD CodResult raiseBadForm() {
    return codRaise(ERR_CMM_DATA_FORMAT_ERROR);
}

CodResult readForm(const CodText &text, NumberForm &form) {
    const char *next = text.str;
    const char *end = text.str + text.len;
    CodUint32 stage = kAtBegin;
    while (next != end) {
        const Element *element = findElement(next, end, stage);
        if (element == nullptr || !takeElement(*element, form)) {
            return raiseBadForm();
        }
        stage = element->next;
        next += std::strlen(element->word);
    }
    return form.integer + form.fraction > 0 && stage != kBehindComma ? COD_SUCCESS : raiseBadForm();
}

// ---- Writing ----

// The digits of a magnitude; none of zero.
class Decimal {
public:
    explicit Decimal(const Operand &a)
        : digits_(room_ + sizeof(room_) - digits128(a.value)), count_(static_cast<CodInt32>(digits128(a.value))), exp_(a.exp) {
        writeDigits(a.value, room_ + 1);
    }

    bool isZero() const {
        return count_ == 0;
    }
    // Digits before the point; negative when zeros follow it.
    CodInt32 magnitude() const {
        return count_ + exp_;
    }
    // The digit that counts powers of 10^place.
    char at(CodInt32 place) const {
        const CodInt32 index = count_ - 1 - (place - exp_);
        return index >= 0 && index < count_ ? digits_[index] : '0';
    }
    void multiplyByPower(CodInt32 exp) {
        exp_ += exp;
    }

    // Keeps the digits down to that of 10^place, rounded half away from zero.
    void roundTo(CodInt32 place) {
        const CodInt32 cut = place - exp_;
        if (cut <= 0) {
            return;
        }
        const CodInt32 kept = count_ - cut;
        const bool isUp = kept >= 0 && kept < count_ && digits_[kept] >= '5';
        count_ = std::max(kept, 0);
        exp_ = place;
        if (isUp) {
            increase();
        }
    }

private:
    void increase() {
        CodInt32 i = count_;
        while (i > 0 && digits_[i - 1] == '9') {
            digits_[--i] = '0';
        }
        if (i > 0) {
            digits_[i - 1]++;
            return;
        }
        *--digits_ = '1';
        count_++;
    }

    char room_[1 + kDigitsRoom];  // the first one for a carry
    char *digits_;
    CodInt32 count_;
    CodInt32 exp_;  // of the last digit
};

char *putIf(bool condition, char *out, char c) {
    *out = c;
    return out + condition;
}

char *putExponent(char *out, CodInt32 exp) {
    const CodInt32 magnitude = exp < 0 ? -exp : exp;
    *out++ = 'E';
    *out++ = exp < 0 ? '-' : '+';
    out = putIf(magnitude < 10, out, '0');
    return std::to_chars(out, out + 10, magnitude).ptr;
}

// What stands before and behind the number; 0: nothing, not even a blank.
struct SignTexts {
    char before;
    char behind;
};

SignTexts signTexts(const NumberForm &form, bool isNegative) {
    const char blank = form.isTight ? '\0' : ' ';
    switch (form.sign) {
        case Sign::kMinusFirst:
            return {isNegative ? '-' : blank, '\0'};
        case Sign::kFirst:
            return {isNegative ? '-' : '+', '\0'};
        case Sign::kLast:
            return {'\0', isNegative ? '-' : '+'};
        case Sign::kMinusLast:
            return {'\0', isNegative ? '-' : blank};
        case Sign::kAngleBrackets:
            break;
    }
    return isNegative ? SignTexts{'<', '>'} : SignTexts{blank, blank};
}

// Digits with their commas and point: `integer` of them before the point.
char *putDigits(const NumberForm &form, const Decimal &decimal, CodInt32 integer, CodInt32 fraction, char *out) {
    for (CodInt32 left = integer; left > 0; left--) {
        out = putIf(left != integer && form.isCommaAt(form.integer - left), out, ',');
        *out++ = decimal.at(left - 1);
    }
    out = putIf(form.hasPoint, out, '.');
    for (CodInt32 i = 1; i <= fraction; i++) {
        *out++ = decimal.at(-i);
    }
    return out;
}

// The columns before the first digit written, commas among them.
char *putBlanks(const NumberForm &form, CodInt32 integer, char *out) {
    const CodInt32 digits = form.integer - integer;
    if (form.isTight || digits <= 0) {
        return out;
    }
    const CodUint64 passed = form.commas & ((CodUint64{2} << digits) - 1);
    const CodInt32 blanks = digits + std::popcount(passed);
    std::memset(out, ' ', static_cast<size_t>(blanks));
    return out + blanks;
}

CodInt32 fractionWritten(const NumberForm &form, const Decimal &decimal) {
    CodInt32 fraction = form.fraction;
    while (form.isTight && fraction > form.leastFraction && decimal.at(-fraction) == '0') {
        fraction--;
    }
    return fraction;
}

// Rounds to the form's digits; of one that ends in EEEE what is left is d.ddd, and the exponent is returned.
CodInt32 roundToForm(NumberForm &form, Decimal &decimal) {
    if (!form.isScientific) {
        decimal.roundTo(-form.fraction);
        return 0;
    }
    form.integer = 1;
    form.leastInteger = 1;
    decimal.roundTo(decimal.magnitude() - 1 - form.fraction);
    const CodInt32 exp = decimal.isZero() ? 0 : decimal.magnitude() - 1;
    decimal.multiplyByPower(-exp);
    return exp;
}

char *writeForm(NumberForm form, const Operand &a, char *out) {
    Decimal decimal(a);
    const CodInt32 exp = roundToForm(form, decimal);
    const CodInt32 magnitude = decimal.isZero() ? 0 : std::max(decimal.magnitude(), 0);
    if (magnitude > form.integer) {
        std::memset(out, '#', static_cast<size_t>(form.columns()));
        return out + form.columns();
    }
    const CodInt32 fraction = fractionWritten(form, decimal);
    const CodInt32 least = std::max(form.leastInteger, fraction == 0 ? 1 : 0);
    const CodInt32 integer = std::max(magnitude, least);
    const SignTexts sign = signTexts(form, a.negative != 0 && !decimal.isZero());
    out = putBlanks(form, integer, out);
    out = putIf(sign.before != '\0', out, sign.before);
    out = putIf(form.hasDollar, out, '$');
    out = putDigits(form, decimal, integer, fraction, out);
    if (form.isScientific) {
        out = putExponent(out, exp);
    }
    return putIf(sign.behind != '\0', out, sign.behind);
}

// ---- Reading ----

constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

// More digits of an exponent than any that is written.
constexpr CodUint32 kMostExponentDigits = 5;
// A sign, the digits with a point, one of them a zero that the form has no digit for, and an exponent.
constexpr CodUint32 kPlainRoom = 1 + kMostDigits + 1 + 1 + 2 + kMostExponentDigits;

// Reads a text by a form, and writes it as the number that it is.
class FormReader {
public:
    FormReader(const NumberForm &form, const CodText &text) : form_(form), next_(text.str), end_(text.str + text.len) {}

    bool read() {
        const bool isBracketed = form_.sign == Sign::kAngleBrackets && skip('<');
        const bool mayBeFirst = form_.sign == Sign::kMinusFirst || form_.sign == Sign::kFirst;
        bool isNegative = isBracketed || (mayBeFirst && skipSign());
        (void)(form_.hasDollar && skip('$'));
        if (!readDigits() || (form_.isScientific && !readExponent())) {
            return false;
        }
        isNegative |= form_.sign == Sign::kLast && skipSign();
        isNegative |= form_.sign == Sign::kMinusLast && skip('-');
        plain_[0] = isNegative ? '-' : '+';
        return (!isBracketed || skip('>')) && next_ == end_;
    }

    CodText plain() {
        return {plain_, static_cast<CodUint32>(out_ - plain_), 0};
    }

private:
    char peek() const {
        return next_ == end_ ? '\0' : *next_;
    }
    bool skip(char c) {
        const bool isMet = next_ != end_ && *next_ == c;
        next_ += isMet;
        return isMet;
    }
    // Whether there was a minus sign.
    bool skipSign() {
        return skip('-') || (skip('+') && false);
    }
    void take() {
        *out_++ = *next_++;
    }

    // Digits of the integer part that are to come.
    CodInt32 countInteger() const {
        CodInt32 count = 0;
        for (const char *in = next_; in != end_ && count <= kMostDigits && (isDigit(*in) || *in == ','); in++) {
            count += isDigit(*in);
        }
        return count;
    }

    bool readDigits() {
        const CodInt32 integer = countInteger();
        // What is written where no other digit would be.
        const bool isLoneZero = form_.integer == 0 && integer == 1 && peek() == '0';
        const CodInt32 most = form_.isScientific || isLoneZero ? std::max(form_.integer, 1) : form_.integer;
        if (integer > most) {
            return false;
        }
        for (CodInt32 left = integer; left > 0; left--) {
            if (left != integer && form_.isCommaAt(form_.integer - left)) {
                skip(',');
            }
            if (!isDigit(peek())) {
                return false;
            }
            take();
        }
        CodInt32 fraction = 0;
        if (form_.hasPoint && peek() == '.') {
            for (take(); isDigit(peek()) && fraction < form_.fraction; fraction++) {
                take();
            }
        }
        return integer + fraction > 0 && (!isLoneZero || form_.isScientific || fraction == 0);
    }

    bool readExponent() {
        if (asciiLower(peek()) != 'e') {
            return true;
        }
        take();
        if (peek() == '-' || peek() == '+') {
            take();
        }
        CodUint32 digits = 0;
        for (; isDigit(peek()) && digits < kMostExponentDigits; digits++) {
            take();
        }
        return digits > 0;
    }

    const NumberForm &form_;
    const char *next_;
    const char *end_;
    char plain_[kPlainRoom];
    char *out_ = plain_ + 1;
};

CodText trimBlanks(const CodText &text) {
    const char *begin = text.str;
    const char *end = text.str + text.len;
    begin = std::find_if_not(begin, end, isBlank);
    while (end != begin && isBlank(end[-1])) {
        end--;
    }
    return {const_cast<char *>(begin), static_cast<CodUint32>(end - begin), 0};
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codNumberFormat(const CodNumber *value, const CodText *form, CodText *text, CodUint32 bufSize) {
    if (value == nullptr || isMissing(form) || text == nullptr || text->str == nullptr) {
        return raiseNull();
    }
    NumberForm parsed;
    COD_TRY(readForm(*form, parsed));
    char room[COD_NUMBER_FORM_TEXT_SIZE];
    const CodUint32 needed = static_cast<CodUint32>(writeForm(parsed, loadOperand(value), room) - room);
    if (needed > bufSize) {
        return raiseBufferTooSmall(needed, bufSize);
    }
    std::memcpy(text->str, room, needed);
    text->len = needed;
    return COD_SUCCESS;
}

CodResult codNumberParse(const CodText *text, const CodText *form, CodNumber *value) {
    if (isMissing(text) || isMissing(form) || value == nullptr) {
        return raiseNull();
    }
    NumberForm parsed;
    COD_TRY(readForm(*form, parsed));
    const CodText trimmed = trimBlanks(*text);
    FormReader reader(parsed, trimmed);
    if (!reader.read()) {
        return raiseInvalidNumber(trimmed.str, trimmed.len, "not of the number's form");
    }
    const CodText plain = reader.plain();
    return codNumberFromText(&plain, value);
}
