#pragma once

// NUMBER in plain big integers: one short function a rule, slow, and as the contract words it.

#include <algorithm>
#include <cstring>
#include <deque>
#include <limits>
#include <regex>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gmpxx.h>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/number/ani_number.h>

namespace number_model {

using Int = mpz_class;

// What a rule throws: the code, and the message or its beginning.
struct Failure {
    CodError code = 0;
    std::string text;
};
inline const Failure kOverflow = {ERR_CMM_NUMERIC_OVERFLOW, "numeric overflow"};
inline const Failure kPrecision = {ERR_CMM_NUMERIC_PREC_TOO_LARGE, "value is larger than specified precision allowed for this column"};
inline const Failure kDivision = {ERR_CMM_DIVISION_BY_ZERO, "divided by zero"};

// ---- Integers ----

inline Int toInt(const CodUint64 *words, std::size_t count) {
    Int value;
    mpz_import(value.get_mpz_t(), count, -1, sizeof(*words), 0, 0, words);
    return value;
}

// The low words; two's complement for a negative value.
inline void toWords(const Int &value, CodUint64 *words, std::size_t count) {
    Int low;
    mpz_fdiv_r_2exp(low.get_mpz_t(), value.get_mpz_t(), 64 * count);
    std::fill_n(words, count, 0);
    mpz_export(words, nullptr, -1, sizeof(*words), 0, 0, low.get_mpz_t());
}

// A power past the table exceeds every coefficient as well as the last one does.
inline const Int &power(int exp) {
    static std::deque<Int> table = {1};
    for (exp = std::min(exp, 700); table.size() <= static_cast<std::size_t>(exp);) {
        table.push_back(table.back() * 10);
    }
    return table[static_cast<std::size_t>(exp)];
}

inline int digits(const Int &value) {
    const auto most = static_cast<int>(mpz_sizeinbase(value.get_mpz_t(), 10));
    return value < power(most - 1) ? most - 1 : most;
}

// ---- NUMBER ----

struct Number {
    Number() = default;
    Number(Int v, bool n, int e) : value(std::move(v)), negative(n), exp(e) {}
    Number(const CodNumber &n) : negative(n.sign != 0), exp(n.exp) {
        const CodUint64 words[] = {n.value.item64[0], n.value.item64[1]};
        value = toInt(words, 2);
    }
    operator CodNumber() const {
        CodUint64 words[2];
        toWords(value, words, 2);
        return {{{words[0], words[1]}}, negative, 0, static_cast<CodInt16>(exp)};
    }

    Int value;
    bool negative = false;
    int exp = 0;
};

// The coefficient without its last digits.
inline Int cut(const Number &n, int count, CodRoundMode mode) {
    static Int quotient, rest;
    mpz_tdiv_qr(quotient.get_mpz_t(), rest.get_mpz_t(), n.value.get_mpz_t(), power(count).get_mpz_t());
    const bool inexact = rest != 0, odd = mpz_odd_p(quotient.get_mpz_t()) != 0;
    rest *= 2;
    const int half = cmp(rest, power(count));
    const bool up[] = {half >= 0, half > 0 || (half == 0 && odd), half > 0, inexact, false, inexact && !n.negative, inexact && n.negative};
    return up[mode] ? Int(quotient + 1) : quotient;
}

inline Number inRange(const Number &n) {
    const int magnitude = n.exp + digits(n.value);
    return n.value == 0 || magnitude < -129 ? Number() : magnitude > 126 ? throw kOverflow : n;
}

inline Number adjust(const Number &huge) {
    const Number n = inRange(huge);
    const int over = std::max(0, digits(n.value) - 38);
    return over == 0 ? n : Number(cut(n, over, COD_ROUND_HALF_UP), n.negative, n.exp + over);
}

inline Number stripped(Number n, int highest = 0x10000) {
    for (; n.value != 0 && n.exp < highest && mpz_divisible_ui_p(n.value.get_mpz_t(), 10) != 0; n.exp++) {
        n.value /= 10;
    }
    return n.value == 0 ? Number() : n;
}

// |n1| + |n2| or |n1| - |n2|; n1 has the larger exponent.
inline Number combine(const Number &n1, const Number &n2, bool subtract) {
    const int gap = n1.exp - n2.exp, cuts = std::max(0, gap - 38);
    if (cuts > 0 && n1.value == 0) {
        return {n2.value, subtract, n2.exp};
    }
    if (cuts > 0 && (n2.value == 0 || gap + digits(n1.value) - digits(n2.value) >= 39)) {
        return {n1.value, false, n1.exp};
    }
    const Int aligned = n1.value * power(gap - cuts), other = cut(n2, cuts, subtract ? COD_ROUND_HALF_UP : COD_ROUND_DOWN);
    return adjust({subtract ? Int(abs(aligned - other)) : Int(aligned + other), subtract && aligned < other, n2.exp + cuts});
}

inline Number add(const Number &n1, const Number &n2) {
    const Number &larger = n1.exp < n2.exp ? n2 : n1;
    const Number sum = combine(larger, n1.exp < n2.exp ? n1 : n2, n1.negative != n2.negative);
    return sum.value == 0 ? Number() : Number(sum.value, sum.negative != larger.negative, sum.exp);
}

inline Number sub(const Number &n1, const Number &n2) {
    return add(n1, {n2.value, !n2.negative, n2.exp});
}

inline Number mul(const Number &n1, const Number &n2) {
    return adjust({n1.value * n2.value, n1.negative != n2.negative, n1.exp + n2.exp});
}

inline Number div(const Number &n1, const Number &n2) {
    if (n2.value == 0) {
        throw kDivision;
    }
    const int digits1 = digits(n1.value), digits2 = digits(n2.value), scale = digits1 >= digits2 ? 38 : digits2 + 38 - digits1;
    const Int quotient = (2 * n1.value * power(scale) + n2.value) / (2 * n2.value);
    return adjust({quotient, n1.negative != n2.negative, n1.exp - n2.exp - scale});
}

inline int absCompare(const Number &n1, const Number &n2) {
    const int gap = n1.exp - n2.exp;
    if (gap < 0) {
        return -absCompare(n2, n1);
    }
    return n1.value == 0 ? -sgn(n2.value) : gap > 38 ? 1 : sgn(n1.value * power(gap) - n2.value);
}

inline int compare(const Number &n1, const Number &n2) {
    const int sign1 = n1.negative ? -sgn(n1.value) : sgn(n1.value), sign2 = n2.negative ? -sgn(n2.value) : sgn(n2.value);
    return sign1 != sign2 ? (sign1 < sign2 ? -1 : 1) : sign1 * absCompare(n1, n2);
}

inline Number mod(const Number &n1, const Number &n2) {
    if (n2.value == 0 || n1.value == 0 || absCompare(n1, n2) < 0) {
        return n1.value == 0 ? Number() : n1;
    }
    Int rest = n1.value;
    if (n1.exp >= n2.exp) {
        mpz_powm_ui(rest.get_mpz_t(), power(1).get_mpz_t(), static_cast<unsigned long>(n1.exp - n2.exp), n2.value.get_mpz_t());
        rest *= n1.value;
    }
    rest %= n2.value * power(std::max(0, n2.exp - n1.exp));
    return adjust({rest, n1.negative, std::min(n1.exp, n2.exp)});
}

inline Number normalize(const Number &n) {
    const int widening = std::min(n.exp, std::max(0, 38 - digits(n.value)));
    return n.value == 0 ? n : n.exp <= 0 ? stripped(n, 0) : Number(n.value * power(widening), n.negative, n.exp - widening);
}

// At least 40 digits of the root, rounded to 38: the digits behind change no rounding half up.
inline Number squareRoot(const Number &n) {
    const int scale = 80 + (n.exp & 1);
    return normalize(adjust({sqrt(Int(n.value * power(scale))), false, (n.exp - scale) / 2}));
}

// ---- Scale and precision ----

// The coefficient with the exponent -scale.
inline Int rescaled(const Number &n, int scale, CodRoundMode mode) {
    return n.exp + scale >= 0 ? Int(n.value * power(n.exp + scale)) : cut(n, -scale - n.exp, mode);
}

inline Number fit(const Number &n, int precision, int scale, CodRoundMode mode) {
    const Int value = rescaled(n, scale, mode);
    if (n.value != 0 && (n.exp + scale >= precision || value >= power(precision))) {
        throw kPrecision;
    }
    return n.value == 0 ? n : value == 0 ? Number() : Number(value, n.negative, -scale);
}

inline Number roundToPrecision(const Number &n, int precision, int highest, int lowest, bool truncate) {
    const int count = digits(n.value), raising = std::max(0, lowest - n.exp);
    if (n.value == 0) {
        return {};
    }
    if (n.exp >= lowest && n.exp > highest) {
        return count + n.exp - highest > precision ? throw kOverflow : Number(n.value * power(n.exp - highest), n.negative, highest);
    }
    const int cuts = raising + (count - raising > precision ? count - precision : 0);
    if (cuts == 0 || cuts > 76) {
        return cuts == 0 ? n : Number();
    }
    const Int value = cut(n, cuts, truncate ? COD_ROUND_DOWN : COD_ROUND_HALF_UP);
    if (value == 0 ? highest < 0 : n.exp + cuts > highest) {
        throw kOverflow;
    }
    return value == 0 ? Number() : Number(value, n.negative, n.exp + cuts);
}

// What is stored, the sign of (stored - given), and whether it was too large.
inline std::tuple<CodNumber, int, int> forceAlign(const Number &n, int precision, int scale) {
    const Int value = rescaled(n, scale, COD_ROUND_HALF_UP), most = power(precision) - 1;
    const Number stored(std::min(value, most), n.negative && value != 0 && most != 0, -scale);
    return {stored, compare(stored, n), value > most};
}

inline Number roundMode(const Number &n, int scale, CodRoundMode mode) {
    return n.value == 0 ? Number() : n.exp >= -scale ? n : inRange({rescaled(n, scale, mode), n.negative, -scale});
}

// ---- Native types ----

template <typename Native>
Native toNative(const Number &n, const std::string &word, int maxExp, CodRoundMode mode) {
    static const Int min(std::to_string(std::numeric_limits<Native>::min())), max(std::to_string(std::numeric_limits<Native>::max()));
    const bool negative = n.negative && n.value != 0;
    const Failure beyond = negative ? Failure{ERR_CMM_NUMERIC_TOO_SMALL, "value is less than " + word + " allowed"}
                                    : Failure{ERR_CMM_NUMERIC_TOO_LARGE, "value is larger than " + word + " allowed"};
    if (n.exp > maxExp) {
        throw beyond;
    }
    if (n.exp > 0 && n.value > max / power(n.exp)) {
        throw Failure{ERR_CMM_NUMERIC_TOO_LARGE, "value is larger than datatype allowed"};
    }
    const Int value = rescaled(n, 0, mode);
    if (value > (negative ? Int(-min) : max)) {
        throw beyond;
    }
    return static_cast<Native>(negative ? 0 - value.get_ui() : value.get_ui());
}

inline Number fromBits(CodUint64 bits, int exponent2, bool negative, bool isDouble) {
    static const Int kTop = Int(1) << 128;
    Int value = toInt(&bits, 1), last = 0;
    int exp = 0;
    for (; exponent2 < 0; exponent2++) {
        const bool multiply = mpz_odd_p(value.get_mpz_t()) != 0 && value * 5 < kTop;
        value = multiply ? Int(value * 5) : Int(value / 2);
        exp -= multiply;
    }
    for (; exponent2 > 0; exponent2--) {
        const bool divide = value * 2 >= kTop;
        value = divide ? Int(value / 5) : Int(value * 2);
        exp += divide;
    }
    for (; value >= power(isDouble ? 17 : 9); exp++) {
        last = value % 10;
        value /= 10;
    }
    return inRange(stripped({value + (last >= 5), negative, exp}, 0));
}

// ---- Stored form and text ----

using ByteString = std::vector<CodUint8>;

inline ByteString encode(const Number &n) {
    const CodNumber words = n;
    const bool isShort = !n.negative && n.value < 65536 && n.exp >= 0 && n.exp <= 5;
    const auto wrapped = isShort ? static_cast<CodUint32>(n.value.get_ui() * power(n.exp).get_ui()) : 65536;
    const CodUint32 integer = n.value == 0 ? 0 : wrapped;
    ByteString bytes(integer < 256 ? 1 : integer < 65536 ? 2 : 2 + (mpz_sizeinbase(n.value.get_mpz_t(), 2) + 7) / 8);
    if (integer < 65536) {
        std::memcpy(bytes.data(), &integer, bytes.size());
        return bytes;
    }
    bytes[0] = static_cast<CodUint8>((n.negative ? 1 : 0) + (n.exp < 0 ? 2 : 0));
    bytes[1] = static_cast<CodUint8>(std::abs(n.exp) > 255 ? throw kOverflow : std::abs(n.exp));
    std::memcpy(&bytes[2], &words, bytes.size() - 2);
    return bytes;
}

inline CodNumber decode(const ByteString &bytes) {
    CodNumber n = {};
    if (bytes.empty() || bytes.size() == 19 || bytes.size() > 20) {
        throw Failure{ERR_CMM_BYTES_ERROR, "invalid bytes, reason: "};
    }
    const std::size_t head = bytes.size() < 3 || bytes.size() == 20 ? 0 : 2;
    std::memcpy(&n, &bytes[head], bytes.size() - head);
    if (head != 0) {
        n.sign = bytes[0] & 1;
        n.exp = static_cast<CodInt16>((bytes[0] & 2) != 0 ? -bytes[1] : bytes[1]);
    }
    return n;
}

inline std::string sciText(const Number &given) {
    const Number n = stripped(given);
    const int point = n.exp + digits(n.value) - (n.value != 0);
    std::string text = n.value.get_str(), exp = std::to_string(std::abs(point));
    text.insert(1, text.size() > 1 ? "." : "");
    return (n.negative ? "-" : "") + text + (point < 0 ? "E-" : "E+") + (exp.size() < 2 ? "0" : "") + exp;
}

inline std::string toText(const Number &given) {
    const Number n = stripped(given);
    const int point = n.exp + digits(n.value);
    if (point > 38 || point < -6) {
        return sciText(n);
    }
    std::string text = n.value.get_str() + std::string(static_cast<std::size_t>(std::max(0, n.exp)), '0');
    if (n.exp < 0) {
        text.insert(0, static_cast<std::size_t>(std::max(0, 1 - point)), '0');
        text.insert(text.size() - static_cast<std::size_t>(-n.exp), ".");
    }
    return (n.negative ? "-" : "") + text;
}

inline Number fromText(const std::string &text) {
    static const std::regex kForm("[ \\t]*([+-]?)(?:([0-9]+)\\.?([0-9]*)|\\.([0-9]+))(?:[eE]([+-]?[0-9]+))?[ \\t]*");
    std::smatch parts;
    if (!std::regex_match(text, parts, kForm)) {
        throw Failure{ERR_CMM_INVALID_NUMBER, "invalid string '"};
    }
    const std::string fraction = parts.str(3) + parts.str(4);
    const long exp = std::clamp(std::strtol(parts.str(5).c_str(), nullptr, 10), -1'000'000l, 1'000'000l);
    Number n(Int(parts.str(2) + fraction, 10), parts.str(1) == "-", static_cast<int>(exp) - static_cast<int>(fraction.size()));
    if (const int over = digits(n.value) - 38; over > 0) {
        n = {cut(n, over, COD_ROUND_HALF_UP), n.negative, n.exp + over};
    }
    // Unlike the steps of arithmetic, reading leaves 38 digits even when the rounding carries.
    return inRange(n.value == power(38) ? stripped(n, n.exp + 1) : n);
}

}  // namespace number_model
