#include <vel_infra/number/ani_number.h>

#include <charconv>
#include <cmath>

#include <vel_infra/number/ani_number_batch.h>
#include <vel_infra/number/ani_number_sum.h>

#include "number/number_operands.h"

namespace {

using namespace number_model;
using collection_support::expectError;

// What has an inline body stands behind its exported name too; both are the contract.
CodInt32 (*volatile exportedCompare)(const CodNumber *, const CodNumber *) = codNumberCompare;

using Operation = CodResult (*)(const CodNumber *, const CodNumber *, CodNumber *);

// ---- Two operands ----

struct Pair {
    explicit Pair(Operands &operands) : alias(operands.below(64)) {
        std::tie(n1, n2) = operands.pair();
        n2 = alias < 3 ? n1 : n2;
    }
    friend std::ostream &operator<<(std::ostream &out, const Pair &c) {
        return out << c.n1 << " and " << c.n2;
    }
    // The result may be either operand, and both operands may be one.
    CodResult apply(Operation operation, CodNumber *out) {
        CodNumber *results[] = {out, &n1, &n2}, *result = results[alias % 3];
        const CodResult code = operation(&n1, alias < 3 ? &n1 : &n2, result);
        return *out = *result, code;
    }

    CodNumber n1, n2;
    CodUint32 alias;
};

TEST(Number, operationsOfTwoEqualTheModel) {
    SAME(Pair, 1, c.apply(codNumberAdd, out), add(c.n1, c.n2));
    SAME(Pair, 1, c.apply(codNumberSub, out), sub(c.n1, c.n2));
    SAME(Pair, 1, c.apply(codNumberMul, out), mul(c.n1, c.n2));
    SAME(Pair, 1, c.apply(codNumberDiv, out), div(c.n1, c.n2));
    SAME(Pair, 4, c.apply(codNumberMod, out), mod(c.n1, c.n2));
    SAME(Pair, 1, (*out = codNumberCompare(&c.n1, &c.n2), COD_SUCCESS), compare(c.n1, c.n2));
    SAME(Pair, 4, (*out = exportedCompare(&c.n1, &c.n2), COD_SUCCESS), compare(c.n1, c.n2));
    SAME(Pair, 4, (*out = codNumberAbsCompare(&c.n1, &c.n2), COD_SUCCESS), absCompare(c.n1, c.n2));
    const CodNumber least = make(~Wide{0}, true, 32767);
    for (auto order : {+[](const CodNumber *n1, const CodNumber *n2) { return codNumberCompare(n1, n2); }, codNumberAbsCompare}) {
        EXPECT_EQ(order(nullptr, &least), -1);
        EXPECT_EQ(order(&least, nullptr), 1);
        EXPECT_EQ(order(nullptr, nullptr), 0);
    }
}

// A quotient whose digits behind the 38th are a hair below a half, so that rounding twice gives more than rounding once: the dividend is
// solved from the remainder wanted.
struct NearHalf : Pair {
    explicit NearHalf(Operands &operands) : Pair(operands) {
        const int digits2 = operands.between(2, 30), digits1 = operands.between(digits2, 38);
        const Wide divisor = Operands::ten(digits2 - 1) * static_cast<unsigned>(operands.between(1, 9)) + operands.below(1000000000);
        n2 = make(divisor | 1, operands.oneIn(2), 0);
        const Int d = Number(n2).value, scale = power(38 + digits2 - digits1 - operands.below(2));
        Int inverse;
        mpz_invert(inverse.get_mpz_t(), scale.get_mpz_t(), d.get_mpz_t());
        const Int least = (d - operands.between(1, 9)) / 2 * inverse % d, above = Int(power(digits1 - 1)) / d + 1 + operands.below(1000);
        n1 = Number(least + above * d + operands.between(-1, 1), operands.oneIn(2), 0);
        alias = 63;
    }
};

TEST(Number, quotientsAreRoundedTwice) {
    SAME(NearHalf, 10, c.apply(codNumberDiv, out), div(c.n1, c.n2));
}

TEST(Number, batchesEqualSingleOperationsUpToTheFirstFailure) {
    const std::pair<Operation, decltype(&codNumberAddBatch)> operations[] = {{codNumberAdd, codNumberAddBatch},
                                                                             {codNumberSub, codNumberSubBatch},
                                                                             {codNumberMul, codNumberMulBatch},
                                                                             {codNumberDiv, codNumberDivBatch}};
    Operands operands(2);
    for (CodUint64 i = 0; i < cases(100); i++) {
        const auto [operation, batch] = operations[i % 4];
        const CodUint32 count = operands.below(40);
        std::vector<CodNumber> left(count), right(count), given(count), wanted(count);
        std::vector<CodInt8> orders(count), wantedOrders(count);
        CodUint32 single = 0, done = 0;
        codCleanError();
        for (CodUint32 k = 0; k < count; k++) {
            std::tie(left[k], right[k]) = operands.pair();
            wantedOrders[k] = static_cast<CodInt8>(codNumberCompare(&left[k], &right[k]));
            single += single == k && operation(&left[k], &right[k], &wanted[k]) == COD_SUCCESS;
        }
        const CodError code = codGetErrorCode();
        codCleanError();
        ASSERT_EQ(codNumberCompareBatch(left.data(), right.data(), count, orders.data()), COD_SUCCESS);
        ASSERT_EQ(orders, wantedOrders);
        CodNumber *results[] = {given.data(), left.data(), right.data()}, *result = results[i % 3];
        ASSERT_EQ(batch(left.data(), right.data(), count, result, i % 8 == 0 ? nullptr : &done), code == 0 ? COD_SUCCESS : COD_ERROR);
        ASSERT_EQ(codGetErrorCode(), code);
        ASSERT_EQ(done, i % 8 == 0 ? 0 : single);
        ASSERT_TRUE(std::equal(result, result + single, wanted.data()));
    }
}

// ---- In place ----

// A number with scales and exponents on both sides of its own.
struct Column {
    explicit Column(Operands &operands) : n(operands.number()), precision(operands.between(0, 38)), flag(operands.oneIn(2)) {
        auto near = [&](int exp) { return operands.oneIn(3) ? operands.between(-200, 200) : exp + operands.between(-45, 45); };
        scale = std::clamp(near(-n.exp), -32000, 32000);
        lowest = std::clamp(near(n.exp), -32000, 32000);
        highest = lowest + operands.between(-5, 80);
        mode = static_cast<CodRoundMode>(operands.below(7));
    }
    friend std::ostream &operator<<(std::ostream &out, const Column &c) {
        const int members[] = {c.precision, c.scale, c.lowest, c.highest, c.mode, c.flag};
        return out << c.n << ", precision, scale, lowest, highest, mode, flag " << testing::PrintToString(members);
    }

    CodNumber n;
    int precision, scale, lowest, highest;
    CodRoundMode mode;
    bool flag;
};

TEST(Number, operationsInPlaceEqualTheModel) {
    SAME(Column, 4, (*out = c.n, codNumberRound(out, c.precision, c.scale)), fit(c.n, c.precision, c.scale, COD_ROUND_HALF_UP));
    SAME(Column, 4, (*out = c.n, codNumberFloor(out, c.precision, c.scale)), fit(c.n, c.precision, c.scale, COD_ROUND_FLOOR));
    SAME(Column, 4, (*out = c.n, codNumberRoundToPrecision(out, c.precision, c.highest, c.lowest, c.flag)),
         roundToPrecision(c.n, c.precision, c.highest, c.lowest, c.flag));
    SAME(Column, 4, (*out = c.n, codNumberRoundMode(out, c.scale, c.mode)), roundMode(c.n, c.scale, c.mode));
    SAME(Column, 4, (*out = c.n, codNumericFloatRound(out, 4 * c.precision + 1)),
         roundToPrecision(c.n, static_cast<int>(std::ceil((4 * c.precision + 1) * 0.30103)), 32767, -32768, false));
    SAME(Column, 10, (*out = c.n, codNumericFloatFloor(out)), roundMode(c.n, 0, COD_ROUND_FLOOR));
    SAME(Column, 10, (*out = c.n, codNumberFloorOrCeil(out, c.flag)), roundMode(c.n, 0, c.flag ? COD_ROUND_CEILING : COD_ROUND_FLOOR));
    SAME(Column, 10, (*out = c.n, codNumberNormalize(out)), normalize(c.n));
    SAME(Column, 10, (*out = codNumberIsInteger(&c.n), COD_SUCCESS), stripped(c.n).exp >= 0);
    SAME(Column, 4, (*out = c.n, out->sign = 0, codNumberSqrt(out)), squareRoot(c.n));
    SAME(Column, 4,
         (*out = {c.n, 0, 7}, std::get<1>(*out) = codNumberForceAlign(&std::get<0>(*out), c.precision, c.scale, &std::get<2>(*out)),
          COD_SUCCESS),
         forceAlign(c.n, c.precision, c.scale));
    CodNumber n = make(4, true, 0);
    codCleanError();
    EXPECT_EQ(codNumberSqrt(&n), COD_ERROR);
    EXPECT_EQ(codGetErrorStackDepth(), 0u) << "the caller raises";
    expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codNumberRoundMode(&n, -1, static_cast<CodRoundMode>(7)); });
    expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return codNumericFloatRound(&n, 0); });
    EXPECT_EQ(codNumberForceAlign(&n, 99, 40000, nullptr), 1);
    EXPECT_EQ(n, make(Operands::ten(38) - 1, true, -32768));
}

// ---- Native types ----

// Around the bounds of the types: as integers, with a fraction, with zeros moved into the exponent.
struct Bound {
    explicit Bound(Operands &operands) : n(operands.number()), bits(operands.next() >> operands.below(64)) {
        const Wide bound = (Wide{1} << ((8u << operands.below(4)) - operands.below(2))) + operands.below(5) - 2;
        const int scale = operands.between(-3, 18);
        const Wide unit = Operands::ten(std::abs(scale)), half = unit / 2 + operands.below(3) - (unit > 1);
        const Wide value = scale < 0 ? bound / unit + operands.below(2) : bound * unit + (operands.oneIn(3) ? 0 : half);
        n = operands.oneIn(4) ? n : make(value, operands.oneIn(2), -scale);
    }
    friend std::ostream &operator<<(std::ostream &out, const Bound &c) {
        return out << c.n << ", or bits " << c.bits;
    }

    CodNumber n;
    CodUint64 bits;
};

TEST(Number, nativeIntegersEqualTheModel) {
    SAME(Bound, 20, codNumberToInt8(&c.n, out), toNative<CodInt8>(c.n, "TINYINT", 2, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToInt8Floor(&c.n, out), toNative<CodInt8>(c.n, "TINYINT", 2, COD_ROUND_DOWN));
    SAME(Bound, 20, codNumberToInt16(&c.n, out), toNative<CodInt16>(c.n, "SMALLINT", 5, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToInt16Floor(&c.n, out), toNative<CodInt16>(c.n, "SMALLINT", 5, COD_ROUND_DOWN));
    SAME(Bound, 20, codNumberToInt32(&c.n, out), toNative<CodInt32>(c.n, "INTEGER", 9, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToInt32Floor(&c.n, out), toNative<CodInt32>(c.n, "INTEGER", 9, COD_ROUND_DOWN));
    SAME(Bound, 20, codNumberToInt64(&c.n, out), toNative<CodInt64>(c.n, "BIGINT", 19, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToInt64Truncate(&c.n, out), toNative<CodInt64>(c.n, "BIGINT", 19, COD_ROUND_DOWN));
    SAME(Bound, 20, codNumberToUint8(&c.n, out), toNative<CodUint8>(c.n, "UNSIGNED TINYINT", 2, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToUint16(&c.n, out), toNative<CodUint16>(c.n, "UNSIGNED SMALLINT", 4, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToUint32(&c.n, out), toNative<CodUint32>(c.n, "UNSIGNED INTEGER", 9, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToUint64(&c.n, out),
         toNative<CodUint64>({Number(c.n).value * power(std::max<int>(0, c.n.exp)), c.n.sign != 0, std::min<int>(0, c.n.exp)},
                             "UNSIGNED BIGINT", 0, COD_ROUND_HALF_UP));
    SAME(Bound, 20, codNumberToInt64FloorOrCeil(&c.n, out, false),
         toNative<CodInt64>(roundMode(c.n, 0, COD_ROUND_FLOOR), "BIGINT", 19, COD_ROUND_DOWN));
    SAME(Bound, 20, codNumberToInt64FloorOrCeil(&c.n, out, true),
         toNative<CodInt64>(roundMode(c.n, 0, COD_ROUND_CEILING), "BIGINT", 19, COD_ROUND_DOWN));
    SAME(Bound, 100, codNumberFromUint64(out, c.bits), make(c.bits, false, 0));
    SAME(Bound, 100, codNumberFromInt64(out, static_cast<CodInt64>(c.bits)),
         Number(abs(Int(static_cast<long>(c.bits))), static_cast<long>(c.bits) < 0, 0));
}

template <typename Real>
struct Floating {
    static constexpr int kBits = std::numeric_limits<Real>::digits;

    // Powers of two and their neighbours, few decimal digits, any bits, subnormal ones too, infinities and what is no number;
    // and beside them a number in the middle of two neighbours, or one unit off.
    explicit Floating(Operands &operands) : n(operands.number()), bits(operands.next() >> operands.below(64)) {
        exp = operands.between(-1100, 1100);
        const Real power = std::ldexp(Real{1}, exp), few = static_cast<Real>(operands.below(1000000)), any = static_cast<Real>(bits);
        const Real kinds[] = {
            power, std::nextafter(power, Real{0}), few / 1000, few * power, std::ldexp(any, exp - 40), any, power - power * 2};
        real = kinds[operands.below(7)] * static_cast<Real>(operands.between(0, 1) * 2 - 1);
        if (operands.oneIn(2)) {
            const int scale = operands.between(-30, 70);
            Wide value = operands.next() >> (63 - kBits) | CodUint64{1} << kBits | 1;
            for (int i = 0; i < std::abs(scale); i++) {
                value *= scale < 0 ? 5 : 2;
            }
            n = make(value + operands.below(3) - 1, operands.oneIn(2), std::min(scale, 0));
        }
    }
    friend std::ostream &operator<<(std::ostream &out, const Floating &c) {
        return out << c.n << ", or " << c.real << ", or " << c.bits << " * 2^" << c.exp;
    }
    static Real finite(Real real) {
        return std::isfinite(real) ? real : throw Failure{ERR_CMM_TYPECONV_ERROR, "type convert error : not a valid number"};
    }
    Real nearest() const {
        return finite(kBits == 53 ? static_cast<Real>(std::strtod(sciText(n).c_str(), nullptr))
                                  : static_cast<Real>(std::strtof(sciText(n).c_str(), nullptr)));
    }
    Number steps() const {
        int exp2 = 0;
        const auto mantissa = static_cast<CodUint64>(std::ldexp(std::abs(std::frexp(finite(real), &exp2)), kBits));
        return fromBits(mantissa, exp2 - kBits, real < 0, kBits == 53);
    }
    Number shortest() const {
        char text[64] = "";
        std::to_chars(text, std::end(text), finite(real), std::chars_format::scientific);
        return fromText(text);
    }

    CodNumber n;
    CodUint64 bits;
    int exp;
    Real real;
};

TEST(Number, floatingPointEqualsTheModelAndTheStandardLibrary) {
    SAME(Floating<double>, 5, codNumberToDouble(&c.n, out), c.nearest());
    SAME(Floating<float>, 5, codNumberToFloat(&c.n, out), c.nearest());
    SAME(Floating<double>, 40, codNumberFromDouble(out, c.real), c.steps());
    SAME(Floating<float>, 40, codNumberFromFloat(out, c.real), c.steps());
    SAME(Floating<double>, 80, codNumberFromDoubleShortest(out, c.real), c.shortest());
    SAME(Floating<float>, 80, codNumberFromFloatShortest(out, c.real), c.shortest());
    SAME(Floating<double>, 200, bits2Number(c.bits, c.exp, c.n.sign, c.n.exp != 0, out),
         fromBits(c.bits, c.exp, c.n.sign != 0, c.n.exp != 0));
}

// ---- Sums ----

struct Total {
    Int sum = 0;
    int exp = 0;
    CodUint64 count = 0;
    bool fits = true;

    void add(const Number &n) {
        count++;
        if (n.value != 0) {
            const int unit = sum == 0 ? n.exp : std::min(exp, n.exp);
            const Int term = n.value * power(n.exp - unit) * (n.negative ? -1 : 1);
            sum = sum * power(sum == 0 ? 0 : exp - unit) + term;
            exp = unit;
            fits = mpz_sizeinbase(term.get_mpz_t(), 2) < 256 && mpz_sizeinbase(sum.get_mpz_t(), 2) < 256;
        }
    }
    Number result() const {
        return adjust({abs(sum), sum < 0, exp});
    }
    Number average() const {
        return count == 0 ? throw kDivision : normalize(adjust({abs(sum) * power(60) / count, sum < 0, exp - 60}));
    }
};

// By value: where partial sums cancel out, the exponent of the result depends on the split.
void expectSum(const CodNumberSum &sum, const Total &total) {
    auto result = [&](CodNumber *n) {
        const CodResult code = codNumberSumResult(&sum, n);
        return *n = code == COD_SUCCESS ? stripped(*n) : Number(), code;
    };
    ASSERT_EQ(sum.count, total.count);
    ASSERT_TRUE(agree([&] { return stripped(total.result()); }, result));
    ASSERT_TRUE(agree([&] { return total.average(); }, [&](CodNumber *n) { return codNumberSumAverage(&sum, n); }));
}

TEST(Number, sumsAreExactForEverySplitAndUnchangedByWhatTheyRefuse) {
    Operands operands(10);
    for (CodUint64 i = 0; i < cases(100); i++) {
        SCOPED_TRACE(i);
        const int base = operands.between(-168, 88), spread = i % 4 == 0 ? 60 : i % 4 == 1 ? 17 : 0;
        const Wide limit = Operands::ten(operands.between(1, 38));
        CodNumberSum parts[3] = {}, single, batch = {};
        codNumberSumInit(&single);
        Total total;
        std::vector<CodNumber> numbers(operands.below(i % 8 == 2 ? 500 : 30));
        for (CodNumber &n : numbers) {
            n = make(operands.coefficient() % limit, i % 3 != 0 && operands.oneIn(2), base + operands.between(0, spread));
            Total wanted = total;
            wanted.add(n);
            const bool isTaken = codNumberSumAdd(&single, &n) == COD_SUCCESS;
            ASSERT_TRUE(isTaken || !wanted.fits) << n;
            total = isTaken ? wanted : total;
            codNumberSumAdd(&parts[operands.below(3)], &n);
        }
        ASSERT_TRUE(agree([&] { return total.result(); }, [&](CodNumber *n) { return codNumberSumResult(&single, n); }));
        expectSum(single, total);
        for (std::size_t next = 0, refused = 0; next < numbers.size(); next = batch.count + refused) {
            refused += codNumberSumBatch(&batch, &numbers[next], static_cast<CodUint32>(numbers.size() - next)) != COD_SUCCESS;
        }
        expectSum(batch, total);
        for (int part = 2; part > 0; part--) {
            const CodNumberSum before = parts[part - 1];
            const bool isTaken = codNumberSumMerge(&parts[part - 1], &parts[part]) == COD_SUCCESS;
            ASSERT_TRUE(isTaken || (spread > 17 && std::memcmp(&before, &parts[part - 1], sizeof(before)) == 0));
        }
        if (spread <= 17) {
            expectSum(parts[0], total);
        }
    }
}

// ---- Edges ----

TEST(Number, edges) {
    const Operation toColumn = [](auto n, auto, auto result) { return *result = *n, codNumberRound(result, 3, 1); };
    const Operation floorToColumn = [](auto n, auto, auto result) { return *result = *n, codNumberFloor(result, 3, 1); };
    struct {
        const char *left, *right;
        Operation operation;
        std::string text;
    } const rows[] = {
        {"1", "3", codNumberDiv, "0." + std::string(38, '3')},
        {"2", "3", codNumberDiv, "0." + std::string(37, '6') + "7"},
        {"-7", "0", codNumberDiv, "divided by zero"},
        {"9.99e125", "1", codNumberMul, "9.99E+125"},
        {"9e125", "1e125", codNumberAdd, "numeric overflow"},
        {"1e-129", "9e-130", codNumberSub, "1E-130"},
        {"9e-130", "0.1", codNumberMul, "0"},
        {"1e125", "7e-130", codNumberMod, "6E-130"},
        {"99.94", "0", toColumn, "99.9"},
        {"99.95", "0", toColumn, kPrecision.text},
        {"-0.04", "0", toColumn, "0"},
        {"-0.01", "0", floorToColumn, "-0.1"},
    };
    for (const auto &row : rows) {
        CodNumber left, right, result;
        char text[COD_NUMBER_TEXT_SIZE];
        ASSERT_EQ(codNumberFromStr(row.left, &left), COD_SUCCESS);
        ASSERT_EQ(codNumberFromStr(row.right, &right), COD_SUCCESS);
        const bool isDone =
            row.operation(&left, &right, &result) == COD_SUCCESS && codNumber2Str(&result, text, sizeof(text)) == COD_SUCCESS;
        EXPECT_EQ(isDone ? text : codGetLastErrorMsg(), row.text) << row.left << " and " << row.right;
        codCleanError();
    }
}

}  // namespace
