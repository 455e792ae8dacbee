// NUMBER over columns of random values: money as a ledger has it, wide values of 38 digits, and a mixture of sizes.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_BOOST
#include <boost/multiprecision/cpp_dec_float.hpp>
#endif

namespace {

// ---- Data: the same values for every type ----

struct DataSet {
    const char *name;
    int minDigits;
    int maxDigits;
    int minExponent;
    int maxExponent;
};
constexpr DataSet kMoney{"money", 3, 11, -2, -2};
constexpr DataSet kWide{"wide", 38, 38, -5, 5};
constexpr DataSet kMixed{"mixed", 1, 38, -20, 20};
constexpr CodUint32 kPairs = 10000;
constexpr CodUint32 kSummands = 1000000;

CodNumber randomNumber(std::mt19937_64 &random, const DataSet &set) {
    const auto between = [&](int low, int high) { return low + static_cast<int>(random() % static_cast<unsigned>(high - low + 1)); };
    auto coefficient = static_cast<unsigned __int128>(between(1, 9));
    for (int digits = between(set.minDigits, set.maxDigits); digits > 1; digits--) {
        coefficient = coefficient * 10 + static_cast<unsigned>(between(0, 9));
    }
    const CodLargeInt value{{static_cast<CodUint64>(coefficient), static_cast<CodUint64>(coefficient >> 64)}};
    return {value, static_cast<CodInt8>(between(0, 1)), 0, static_cast<CodInt16>(between(set.minExponent, set.maxExponent))};
}

// ---- What rows work on ----

struct Text {
    char str[COD_NUMBER_TEXT_SIZE];
};

template <auto kEncode, size_t kRoom>
struct Bytes {
    CodBytes view() const {
        return {const_cast<CodUint8 *>(data), size, 0};
    }
    CodUint8 data[kRoom];
    CodUint32 size;
};
using StoredForm = Bytes<codEncodeNumber, COD_NUMBER_STORED_SIZE>;
using SortKey = Bytes<codNumberToSortKey, COD_NUMBER_KEY_SIZE>;

CodResult convert(const CodNumber &number, Text &text) {
    return codNumber2Str(&number, text.str, sizeof text.str);
}

CodResult convert(const Text &text, CodNumber &number) {
    return codNumberFromStr(text.str, &number);
}

template <auto kEncode, size_t kRoom>
CodResult convert(const CodNumber &number, Bytes<kEncode, kRoom> &result) {
    CodBytes bytes = result.view();
    const CodResult done = kEncode(&number, &bytes);
    result.size = bytes.size;
    return done;
}

CodResult convert(const StoredForm &form, CodNumber &number) {
    const CodBytes bytes = form.view();
    return codDecodeNumber(&bytes, &number);
}

CodResult convert(const CodNumber &number, double &value) {
    return codNumberToDouble(&number, &value);
}

template <class Value>
Value from(const CodNumber &number) {
    Value value{};
    if (convert(number, value) != COD_SUCCESS) {
        abort();
    }
    return value;
}

template <>
CodNumber from(const CodNumber &number) {
    return number;
}

#ifdef __DEC128_MANT_DIG__
using Decimal128 = float __attribute__((mode(TD)));

// Rounds to the type's 34 digits. The unit is divided down: multiplied up, 10^n would be held with n zeroes.
template <>
Decimal128 from(const CodNumber &number) {
    const auto exactly = [](CodUint64 value) { return static_cast<Decimal128>(value); };
    const Decimal128 value = exactly(number.value.item64[1]) * exactly(1ULL << 32) * exactly(1ULL << 32) + exactly(number.value.item64[0]);
    Decimal128 unit = exactly(1);
    for (int i = 0; i < abs(number.exp); i++) {
        unit /= exactly(10);
    }
    return (number.sign ? -value : value) * (number.exp < 0 ? unit : exactly(1) / unit);
}
#endif

#ifdef VEL_INFRA_WITH_BOOST
using BoostDecimal = boost::multiprecision::number<boost::multiprecision::cpp_dec_float<38>, boost::multiprecision::et_off>;

template <>
BoostDecimal from(const CodNumber &number) {
    return BoostDecimal(from<Text>(number).str);
}
#endif

// Pairs of values, in two columns.
template <class Value>
struct Columns {
    Columns(const DataSet &set, size_t count) {
        std::mt19937_64 random(count);
        for (size_t i = 0; i < count; i++) {
            left.push_back(from<Value>(randomNumber(random, set)));
            right.push_back(from<Value>(randomNumber(random, set)));
        }
    }
    std::vector<Value> left;
    std::vector<Value> right;
};

// ---- Rows: the works on one type and data set ----

template <class Value>
class Rows {
public:
    explicit Rows(const DataSet &set, size_t count = kPairs) : set_(set.name), columns_(std::make_shared<Columns<Value>>(set, count)) {}

    // Whole columns at once: CodResult work(columns, results).
    template <class Result>
    void addBatch(const std::string &name, const std::string &who, auto work) const {
        const auto run = [columns = columns_, work](benchmark::State &state) {
            std::vector<Result> results(kPairs);
            for (auto _ : state) {
                if (work(*columns, results.data()) != COD_SUCCESS) {
                    abort();
                }
                benchmark::DoNotOptimize(results.data());
                benchmark::ClobberMemory();
            }
            state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(columns->left.size()) * 1e-9,
                                                               benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
        };
        benchmark::RegisterBenchmark(("NUMBER " + name + ", " + set_ + "/" + who).c_str(), run);
    }

    // Pair by pair: CodResult work(left, right, result).
    template <class Result>
    void add(const std::string &name, const std::string &who, auto work) const {
        addBatch<Result>(name, who, [work](const Columns<Value> &columns, Result *results) {
            CodResult done = COD_SUCCESS;
            for (size_t i = 0; i < columns.left.size(); i++) {
                done = std::min(done, work(columns.left[i], columns.right[i], results[i]));
            }
            return done;
        });
    }

    // Pair by pair: result work(left, right).
    void addOperator(const std::string &name, const std::string &who, auto work) const {
        using Result = decltype(work(columns_->left[0], columns_->right[0]));
        add<Result>(name, who, [work](const Value &left, const Value &right, Result &result) {
            result = work(left, right);
            return COD_SUCCESS;
        });
    }

private:
    std::string set_;
    std::shared_ptr<const Columns<Value>> columns_;
};

// ---- Ours ----

template <auto kFunction>
constexpr auto kBinary = [](const auto &left, const auto &right, auto &result) { return kFunction(&left, &right, &result); };
constexpr auto kConvert = [](const auto &value, const auto &, auto &result) { return convert(value, result); };
template <auto kFunction>
constexpr auto kFromDouble = [](double value, double, CodNumber &number) { return kFunction(&number, value); };
template <auto kFunction>
constexpr auto kBatch = [](const Columns<CodNumber> &columns, CodNumber *results) {
    return kFunction(columns.left.data(), columns.right.data(), kPairs, results, nullptr);
};
constexpr auto kCompare = [](const auto &left, const auto &right) { return static_cast<CodInt8>(codNumberCompare(&left, &right)); };

void addNumbers(const DataSet &set) {
    const Rows<CodNumber> rows(set);
    rows.add<CodNumber>("add", "ours", kBinary<codNumberAdd>);
    rows.add<CodNumber>("subtract", "ours", kBinary<codNumberSub>);
    rows.add<CodNumber>("multiply", "ours", kBinary<codNumberMul>);
    rows.add<CodNumber>("divide", "ours", kBinary<codNumberDiv>);
    rows.addOperator("compare", "ours", kCompare);
    rows.add<Text>("write text", "ours", kConvert);
    Rows<Text>(set).add<CodNumber>("read text", "ours", kConvert);
    rows.add<StoredForm>("stored form: encode", "ours", kConvert);
    rows.add<SortKey>("sort key: make", "ours", kConvert);

    const Rows<StoredForm> forms(set);
    const auto compare = "stored form: compare";
    forms.add<CodNumber>("stored form: decode", "ours", kConvert);
    forms.addOperator(compare, "ours", [](const StoredForm &left, const StoredForm &right) {
        const CodBytes bytes[] = {left.view(), right.view()};
        return codNumberDataCompare(&bytes[0], &bytes[1]);
    });
    forms.add<CodInt8>(compare, "peer: decode both and compare", [](const StoredForm &left, const StoredForm &right, CodInt8 &result) {
        CodNumber numbers[2];
        const CodResult done = std::min(convert(left, numbers[0]), convert(right, numbers[1]));
        result = kCompare(numbers[0], numbers[1]);
        return done;
    });
    Rows<SortKey>(set).addOperator(compare, "peer: memcmp of sort keys", [](const SortKey &left, const SortKey &right) {
        return memcmp(left.data, right.data, std::min(left.size, right.size));
    });
}

void addBatches() {
    const auto single = "peer: single calls in a loop";
    const Rows<CodNumber> rows(kMoney);
    rows.addBatch<CodNumber>("add batch", "ours", kBatch<codNumberAddBatch>);
    rows.add<CodNumber>("add batch", single, kBinary<codNumberAdd>);
    rows.addBatch<CodNumber>("multiply batch", "ours", kBatch<codNumberMulBatch>);
    rows.add<CodNumber>("multiply batch", single, kBinary<codNumberMul>);
    rows.addBatch<CodInt8>("compare batch", "ours", [](const Columns<CodNumber> &columns, CodInt8 *results) {
        return codNumberCompareBatch(columns.left.data(), columns.right.data(), kPairs, results);
    });
    rows.addOperator("compare batch", single, kCompare);

    const auto sum = "sum of 1,000,000";
    const Rows<CodNumber> summands(kMoney, kSummands);
    summands.addBatch<CodNumber>(sum, "ours", [](const Columns<CodNumber> &columns, CodNumber *result) {
        CodNumberSum total{};
        const CodResult done = codNumberSumBatch(&total, columns.left.data(), kSummands);
        return std::min(done, codNumberSumResult(&total, result));
    });
    summands.addBatch<CodNumber>(sum, "peer: codNumberAdd in a loop", [](const Columns<CodNumber> &columns, CodNumber *result) {
        CodResult done = COD_SUCCESS;
        *result = {};
        for (const CodNumber &number : columns.left) {
            done = std::min(done, codNumberAdd(result, &number, result));
        }
        return done;
    });
}

void addConversions() {
    const Rows<CodNumber> rows(kMixed);
    rows.add<CodNumber>("remainder", "ours", kBinary<codNumberMod>);
    rows.add<CodNumber>("square root", "ours", [](const CodNumber &number, const CodNumber &, CodNumber &result) {
        result = number;
        result.sign = 0;
        return codNumberSqrt(&result);
    });
    rows.add<double>("to double", "ours", kConvert);
    const Rows<double> doubles(kMixed);
    doubles.add<CodNumber>("from double", "ours", kFromDouble<codNumberFromDouble>);
    doubles.add<CodNumber>("from double, shortest", "ours", kFromDouble<codNumberFromDoubleShortest>);
    doubles.add<Text>("from double, shortest", "peer: std::to_chars", [](double value, double, Text &text) {
        return std::to_chars(text.str, text.str + sizeof text.str, value).ec == std::errc() ? COD_SUCCESS : COD_ERROR;
    });
}

// ---- Peers ----

// A peer's comparison tells less from the rest, ours all three orders.
template <class Value>
void addPeer(const char *who) {
    for (const DataSet &set : {kMoney, kWide, kMixed}) {
        const Rows<Value> rows(set);
        rows.addOperator("add", who, std::plus());
        rows.addOperator("subtract", who, std::minus());
        rows.addOperator("multiply", who, std::multiplies());
        rows.addOperator("divide", who, std::divides());
        rows.addOperator("compare", who, [](const Value &left, const Value &right) { return static_cast<CodInt8>(left < right); });
    }
    Rows<Value>(kMixed).addOperator("to double", who, [](const Value &value, const Value &) { return static_cast<double>(value); });
    Rows<double>(kMixed).addOperator("from double", who, [](double value, double) { return static_cast<Value>(value); });
}

#ifdef VEL_INFRA_WITH_BOOST
void addBoost(const char *who) {
    addPeer<BoostDecimal>(who);
    for (const DataSet &set : {kMoney, kWide, kMixed}) {
        Rows<BoostDecimal>(set).addOperator("write text", who,
                                            [](const BoostDecimal &number, const BoostDecimal &) { return number.str(COD_NUMBER_DIGITS); });
        Rows<Text>(set).addOperator("read text", who, [](const Text &text, const Text &) { return BoostDecimal(text.str); });
    }
    const Rows<BoostDecimal> rows(kMixed);
    rows.addOperator("square root", who, [](const BoostDecimal &number, const BoostDecimal &) { return sqrt(abs(number)); });
    rows.addOperator("remainder", who, [](const BoostDecimal &left, const BoostDecimal &right) { return fmod(left, right); });
}
#endif

[[maybe_unused]] const bool gRegistered = [] {
    for (const DataSet &set : {kMoney, kWide, kMixed}) {
        addNumbers(set);
    }
    addBatches();
    addConversions();
#ifdef __DEC128_MANT_DIG__
    addPeer<Decimal128>("peer: _Decimal128 (34 digits)");
#endif
#ifdef VEL_INFRA_WITH_BOOST
    addBoost("peer: boost::multiprecision::cpp_dec_float<38>");
#endif
    return true;
}();

}  // namespace
