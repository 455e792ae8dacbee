#pragma once

// Numbers of JSON text: their digits, and what they become.

#include <vel_infra/number/ani_number.h>

#include "number/ani_decimal_text_internal.h"

namespace cod::velon {

constexpr bool isDigit(CodUint8 c) {
    return c - CodUint32{'0'} < 10;
}

// Appends the digits that stand at `in` to the value, modulo 2^64. Returns the place behind them.
inline const CodUint8 *readDigits(const CodUint8 *in, const CodUint8 *end, CodUint64 *value) {
    static constexpr CodUint32 powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000};
    while (end - in >= 8) {
        const CodUint64 word = loadLe<CodUint64>(in);
        const CodUint64 others = otherThanDigits(word);
        if (others != 0) {
            const CodUint32 bits = static_cast<CodUint32>(__builtin_ctzll(others)) - 7;
            // Moved to the word's end, the digits have zeros before them.
            *value = *value * powers[bits / 8] + parseEight(word << (56 - bits) << 8);
            return in + bits / 8;
        }
        *value = *value * 100000000 + parseEight(word);
        in += 8;
    }
    for (; in != end && isDigit(*in); in++) {
        *value = *value * 10 + (*in - CodUint32{'0'});
    }
    return in;
}

// What a number's text consists of.
struct NumberText {
    const CodUint8 *digits;    // the first one
    const CodUint8 *mantissa;  // behind the last one
    CodUint64 count;           // digits, the zero before a point included
    CodUint64 value;           // of all digits, right up to 19 of them
    CodInt64 exp;              // of the last digit
    bool isNegative;
    bool isDouble;  // by its suffix
};

enum class NumberKind : CodUint8 { kInteger, kNumber, kDouble };

// The value, in the member of its kind.
struct JsonNumber {
    NumberKind kind;
    CodInt64 integer;
    CodNumber number;  // without trailing zeros
    double binary;     // infinite: beyond the type
};
JsonNumber numberOf(const NumberText &text);

}  // namespace cod::velon
