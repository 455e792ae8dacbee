#include <vel_infra/number/ani_int256.h>

#include "number/number_operands.h"

namespace {

using namespace number_model;

template <typename Words>
Int intOf(const Words &words) {
    return toInt(reinterpret_cast<const CodUint64 *>(&words), sizeof(words) / 8);
}

template <typename Out, typename... Words>
CodResult given(CodResult result, Out *out, const Words &...words) {
    return *out = {intOf(words)...}, result;
}

// Integers as the library and as the model have them: short and long, of any bits or of ones alone, powers of ten and their neighbours.
struct Integers {
    explicit Integers(Operands &operands)
        : h(draw(operands, &huge)),
          h2(draw(operands, &huge2)),
          l(draw(operands, &large)),
          l2(draw(operands, &large2)),
          w(draw(operands, &word)) {
        exp = operands.below(90);
        if (operands.oneIn(3)) {
            toWords(l * l2 + operands.below(3) - 1, huge.item64, 4);
            h = intOf(huge);
        }
    }
    template <typename Words>
    static Int draw(Operands &operands, Words *words) {
        const ByteString bytes = operands.oneIn(4) ? ByteString(sizeof(*words), 0xff) : operands.bytes(sizeof(*words));
        std::memcpy(words, bytes.data(), sizeof(*words));
        const Int ten = power(operands.between(0, sizeof(*words) * 19 / 8)) - operands.below(2);
        const Int value = operands.oneIn(4) ? ten : Int(intOf(*words) >> operands.below(8 * sizeof(*words) + 1));
        toWords(value, reinterpret_cast<CodUint64 *>(words), sizeof(*words) / 8);
        return intOf(*words);
    }
    friend std::ostream &operator<<(std::ostream &out, const Integers &c) {
        return out << c.h << ", " << c.h2 << ", " << c.l << ", " << c.l2 << ", " << c.w << ", " << c.exp;
    }

    CodHugeInt huge, huge2;
    CodLargeInt large, large2;
    CodUint64 word;
    Int h, h2, l, l2, w;
    CodUint32 exp;
};

// What is left of a result, and whether it fitted.
using Wrapped = std::pair<Int, CodError>;

Wrapped wrapped(const Int &exact, mp_bitcnt_t bits = 256) {
    Int low;
    mpz_fdiv_r_2exp(low.get_mpz_t(), exact.get_mpz_t(), bits);
    return {low, low == exact ? 0 : ERR_CMM_NUMERIC_OVERFLOW};
}

template <typename Words>
CodResult left(CodResult result, const Words &words, Wrapped *out) {
    *out = {intOf(words), result == COD_SUCCESS ? 0 : codGetErrorCode()};
    return codCleanError(), COD_SUCCESS;
}

TEST(Int256, arithmeticEqualsTheModelAndWrapsWhereItFails) {
    SAME(Integers, 50, left(codMulLargeInt(&c.large, &c.large2, &c.huge), c.huge, out), wrapped(c.l * c.l2));
    SAME(Integers, 50, left(codMulLargeIntI64(&c.large, c.word, &c.huge), c.huge, out), wrapped(c.l * c.w));
    SAME(Integers, 50, left(codMulHugeIntI64(&c.huge, c.word, &c.huge), c.huge, out), wrapped(c.h * c.w));
    SAME(Integers, 50, left(codMulHugeLarge(&c.huge, &c.large, &c.huge), c.huge, out), wrapped(c.h * c.l));
    SAME(Integers, 50, left(codMulHugeInt(&c.huge, &c.huge2, &c.huge2), c.huge2, out), wrapped(c.h * c.h2));
    SAME(Integers, 50, left(codAddHugeLarge(&c.huge, &c.large, &c.huge), c.huge, out), wrapped(c.h + c.l));
    SAME(Integers, 50, left(codSubHugeLarge(&c.huge, &c.large, &c.huge2), c.huge2, out), wrapped(c.h - c.l));
    SAME(Integers, 50, left(codIncreaseHugeIntI64(&c.huge, c.word), c.huge, out), wrapped(c.h + c.w));
    SAME(Integers, 50, left(codIncreaseLargeIntI64(&c.large, c.word), c.large, out), wrapped(c.l + c.w, 128));
    SAME(Integers, 50, left(codPowLargeIntDecimal(&c.large, c.exp, &c.huge), c.huge, out), wrapped(c.l * power(static_cast<int>(c.exp))));
}

// Quotient and remainder.
using Divided = std::pair<Int, Int>;

Divided divided(const Int &dividend, const Int &divisor) {
    return divisor == 0 ? throw kDivision : Divided(dividend / divisor, dividend % divisor);
}

TEST(Int256, divisionAndDigitsEqualTheModel) {
    SAME(Integers, 50, given(codDivHugeInt(&c.huge, &c.large, &c.huge, &c.large), out, c.huge, c.large), divided(c.h, c.l));
    SAME(Integers, 50, given(codDivHugeInt(&c.huge, &c.large, &c.huge2, &c.large2), out, c.huge2, c.large2), divided(c.h, c.l));
    SAME(Integers, 50, given(codDivLargeIntI64(&c.large, c.word, &c.large, &c.word), out, c.large, c.word), divided(c.l, c.w));
    SAME(Integers, 50, (*out = static_cast<int>(codGetHugeIntDigits(&c.huge)), COD_SUCCESS), digits(c.h));
    SAME(Integers, 50, (*out = static_cast<int>(codGetLargeIntDigits(&c.large)), COD_SUCCESS), digits(c.l));
}

// ---- Texts ----

// Digits with leading zeros, of numbers past the range too, none at all, and at times one character that may be no digit.
struct Digits : Integers {
    explicit Digits(Operands &operands) : Integers(operands) {
        text =
            operands.oneIn(50) ? "" : std::string(operands.below(3), '0') + Int((operands.oneIn(2) ? h : l) * operands.below(4)).get_str();
        text.insert(operands.below(static_cast<CodUint32>(text.size()) + 1), operands.oneIn(8), "/:- 5"[operands.below(5)]);
    }
    // Reads the text in memory of its own size, in characters of this type.
    template <typename Char, typename Words>
    CodResult read(CodResult (*call)(const CodText *, Words *), Int *out) const {
        std::vector<Char> exact(text.begin(), text.end());
        const CodText borrowed = {reinterpret_cast<char *>(exact.data()), static_cast<CodUint32>(sizeof(Char) * exact.size()), 0};
        Words words = {};
        return given(call(&borrowed, &words), out, words);
    }
    Int value(mp_bitcnt_t bits) const {
        const bool isNumber = !text.empty() && text.find_first_not_of("0123456789") == text.npos;
        const Int number = isNumber ? Int(text, 10) : throw Failure{ERR_CMM_INVALID_NUMBER, "invalid string '"};
        return number < Int(1) << bits ? number : throw kOverflow;
    }

    std::string text;
};

TEST(Int256, textsEqualTheModel) {
    SAME(Digits, 50, given(codStr2HugeInt(c.text.c_str(), &c.huge), out, c.huge), c.value(256));
    SAME(Digits, 50, given(codStr2LargeInt(c.text.c_str(), &c.large), out, c.large), c.value(128));
    SAME(Digits, 50, c.read<char>(codText2HugeInt, out), c.value(256));
    SAME(Digits, 50, c.read<char>(codText2LargeInt, out), c.value(128));
    SAME(Digits, 50, c.read<char16_t>(codUtf16Text2LargeInt, out), c.value(128));
    Operands operands(43);
    for (CodUint64 i = 0; i < cases(50); i++) {
        const Integers c(operands);
        const std::string huge = c.h.get_str(), large = c.l.get_str();
        const std::size_t more = i % 3;
        ASSERT_TRUE(writes(huge, huge.size() + more, [&](auto *out, auto room) { return codHugeInt2Text(&c.huge, out, room); })) << c;
        ASSERT_TRUE(writes(huge, huge.size() + more, [&](auto *out, auto room) { return codHugeInt2Str(&c.huge, out->str, room); })) << c;
        ASSERT_TRUE(writes(large, large.size() + more, [&](auto *out, auto room) { return codLargeInt2Text(&c.large, out, room); })) << c;
        ASSERT_TRUE(writes(large, large.size() + more, [&](auto *out, auto room) { return codLargeInt2Str(&c.large, out->str, room); }))
            << c;
    }
}

TEST(Int256, tablesHoldWhatTheySay) {
    for (CodUint32 i = 0; i < COD_DECIMAL_EXPONENTS; i++) {
        const Int &ten = power(static_cast<int>(i));
        EXPECT_EQ(intOf(gDecimalExponents[i]), ten);
        EXPECT_EQ(intOf(gDecimalRoundings[i]), ten / 2);
        EXPECT_EQ(gDecimalExponentsBytes[i], i == 0 ? 16 : (mpz_sizeinbase(ten.get_mpz_t(), 2) + 7) / 8);
        EXPECT_EQ(aniGetDecimalExponentsBytes(i), gDecimalExponentsBytes[i]);
    }
    EXPECT_EQ(aniGetDecimalExponentsBytes(COD_DECIMAL_EXPONENTS), 0u);
}

}  // namespace
