#include <vel_infra/utils/ani_interval.h>

#include "number/number_operands.h"

#define EQUAL(call, rule) \
    ASSERT_TRUE(agree([&] { return rule; }, [&](auto *out) -> CodResult { return call; })) << testing::PrintToString(given)

namespace {

using namespace number_model;
using collection_support::expectError;

constexpr CodInt64 kYmMax = COD_YM_INTERVAL_MAX, kDsMax = COD_DS_INTERVAL_MAX, kDay = COD_USECS_PER_DAY;

CodInt64 within(const Int &value, const Int &max, const std::string &reason = "the interval is out of range") {
    return abs(value) > max ? throw Failure{ERR_CMM_TYPECONV_ERROR, "type convert error : " + reason} : value.get_si();
}

CodInt64 scaled(Number (*operation)(const Number &, const Number &), CodInt64 interval, const CodNumber &n, CodInt64 max) {
    const Number result = operation(Number(abs(Int(interval)), interval < 0, 0), n);
    return within(rescaled(result, 0, COD_ROUND_DOWN) * (result.negative ? -1 : 1), max);
}

CodInt64 fitted(const Int &interval, CodInt64 major, int precision, int scale) {
    const Int unit = power(6 - std::clamp(scale, 0, 6)), size = (abs(interval) + unit / 2) / unit * unit, value = sgn(interval) * size;
    within(size / major, power(std::clamp(precision, 0, 9)) - 1, "the leading precision is too small");
    return within(value, value.fits_slong_p() ? size : Int(0));
}

CodInt64 anyInterval(Operands &draw, CodInt64 max, CodInt64 major) {
    const CodInt64 few = draw.between(-30, 30), wide = CodInt64(draw.next()), ten = CodInt64(Operands::ten(draw.between(0, 8)));
    const CodInt64 kinds[] = {max + few, few - max, wide >> draw.below(64), major * ten - few, few * (kDay + 5 * ten),
                              INT64_MIN, INT32_MIN};
    return kinds[draw.below(7)];
}

TEST(Interval, operationsEqualTheModelAndGiveTheKnownEdges) {
    char names[6][8] = {"year", "mONTH", "DAY", "Hour", "minutE", "second"};
    const double factors[] = {12, 1, 8.64e10, 3.6e9, 6e7, 1e6};
    const CodInt64 missing[] = {0, 1, 5, 7, 10, 13, 16}, parts[] = {1, 10, 100000, 1000000, 60000000, 3600000000, kDay};
    Operands draw(1);
    for (CodUint64 i = 0; i < cases(10); i++) {
        const CodYMInterval ym = CodYMInterval(anyInterval(draw, kYmMax, 12)), ym2 = CodYMInterval(anyInterval(draw, kYmMax, 12));
        const CodDSInterval ds = anyInterval(draw, kDsMax, kDay), ds2 = anyInterval(draw, kDsMax, kDay);
        const CodNumber n = make((draw.next() >> draw.below(64)) | 1, draw.oneIn(2), draw.between(-40, 40));
        const int precision = draw.between(-1, 10), scale = draw.between(-1, 7), half = draw.between(0, 1), unit = draw.between(2, 5);
        const double values[] = {ym / 24.0, double(ds) / factors[unit], std::ldexp(ym, scale * 99), NAN}, value = values[draw.below(4)];
        const CodText ymUnit = {names[half], 4u + CodUint32(half), 0}, dsUnit = {names[unit], CodUint32(std::strlen(names[unit])), 0};
        const auto round = [](double v, CodInt64 max) { return within(std::isfinite(v) ? Int(std::round(v)) : kDsMax + 1, max); };
        const auto given = std::tuple(ym, ym2, ds, ds2, n, precision, scale, half, unit, value);
        EQUAL(codAddYMInterval(ym, ym2, out), CodYMInterval(within(Int(ym) + ym2, kYmMax)));
        EQUAL(codAddDSInterval(ds, ds2, out), within(Int(ds) + ds2, kDsMax));
        EQUAL(codYMIntervalNumricMul(ym, &n, out), CodYMInterval(scaled(mul, ym, n, kYmMax)));
        EQUAL(codYMIntervalNumricDiv(ym, &n, out), CodYMInterval(scaled(div, ym, n, kYmMax)));
        EQUAL(codDSIntervalNumricMul(ds, &n, out), scaled(mul, ds, n, kDsMax));
        EQUAL(codDSIntervalNumricDiv(ds, &n, out), scaled(div, ds, n, kDsMax));
        EQUAL(codNumeric2YMInterval(value, &ymUnit, out), CodYMInterval(round(value * factors[half], kYmMax)));
        EQUAL(codNumeric2DSInterval(value, &dsUnit, out), round(value * factors[unit], kDsMax));
        EQUAL((*out = ym, codYMICheckPrecision(ym, precision)), CodYMInterval(fitted(ym, 12, precision, 6)));
        EQUAL((*out = ds, codDSICheckPrecision(out, precision, scale)), fitted(ds, kDay, precision, scale));
        EQUAL((*out = 7, codGetYmintervalPrecision(ym, out), COD_SUCCESS), CodUint32(7 + digits(abs(Int(ym) / 12))));
        EQUAL((*out = 7, codGetDsintervalPrecision(ds, out), COD_SUCCESS), CodUint32(7 + digits(abs(Int(ds) / kDay))));
        EQUAL((*out = 7, codGetDsintervalScale(ds, out), COD_SUCCESS), CodUint32(7 + digits(abs(Int(ds) % 1000000))));
        // Fields make the interval again, or the first one is too large; so does the text, which may lack fields at its end.
        CodYMIntervalStruct y;
        CodDSIntervalStruct d;
        codGetYMIntervalStruct(ym, &y), codGetDSIntervalStruct(ds, &d);
        char ymText[32], dsText[48];
        const int k = draw.between(0, 6), ymSize = std::snprintf(ymText, 32, "%c%02u-%02u", "+-"[ym < 0], y.year, y.month);
        const int at = std::snprintf(dsText, 48, "%c%02u %02u:%02u:%02u.%06u", "+-"[ds < 0], d.day, d.hour, d.minute, d.second, d.fraction);
        const CodText ymView = {ymText, CodUint32(ymSize), 0}, dsView = {dsText, CodUint32(at - missing[k]), 0};
        const auto ymRule = [&] { return within(Int(ym) / 12, 178000000, "the year is out of range"), ym; };
        const auto dsRule = [&] { return within(Int(ds) / kDay, 100000000, "the day is out of range"), ds; };
        EQUAL(codGetYMInterval(out, &y), ymRule());
        EQUAL(codGetDSInterval(out, &d), dsRule());
        EQUAL(codText2YMInterval(&ymView, out), ymRule());
        EQUAL(codText2DSInterval(&dsView, out), dsRule() / parts[k] * parts[k]);
        ASSERT_TRUE(writes(ymText, COD_YM_INTERVAL_TEXT_SIZE, [&](auto *out, auto room) { return codYMInterval2Text(ym, out, room); }));
        ASSERT_TRUE(writes(dsText, COD_DS_INTERVAL_TEXT_SIZE, [&](auto *out, auto room) { return codDSInterval2Text(ds, out, room); }));
    }
    const std::string fields[] = {"hour", "minute", "second", "fraction"}, range = "the interval is out of range";
    const auto refuses = [](std::string reason, auto call) { expectError(ERR_CMM_TYPECONV_ERROR, "type convert error : " + reason, call); };
    const CodNumber zero = make(0, false, 0), large = make(1, false, 125);
    CodYMInterval ym = 0;
    CodDSInterval ds = 99 * kDay + 86399400000;
    EXPECT_EQ(codDSICheckPrecision(&ds, 2, 0), COD_SUCCESS);
    refuses("the leading precision is too small", [&] { return ds += 500000, codDSICheckPrecision(&ds, 2, 0); });
    EXPECT_EQ(ds, 99 * kDay + 86399500000) << "rounded at first, and left alone then";
    refuses(range, [&] { return CodResult(codYMIntervalNumricDiv(1, &zero, &ym) & codDSIntervalNumricMul(1000000, &large, &ds)); });
    expectError(ERR_CMM_DIVISION_BY_ZERO, "divided by zero", [&] { return codDSIntervalNumricDiv(1, &zero, &ds); });
    CodUint32 months[] = {0, 178000000, 12}, days[] = {0, 100000000, 23, 59, 59, 999999};
    refuses("not a valid month", [&] { return codGetYMInterval(&ym, reinterpret_cast<CodYMIntervalStruct *>(months)); });
    for (int k = 3; k >= 0; k--) {
        days[2 + k]++;
        refuses("not a valid " + fields[k], [&] { return codGetDSInterval(&ds, reinterpret_cast<CodDSIntervalStruct *>(days)); });
    }
    for (std::string text : {"", "+", "1-2", "1 -02", "- 3", "3 4", "3  04", "3 04:05:06.", "3 04:05:06.1234567", "1234567890", "years"}) {
        const CodText view = {text.data(), CodUint32(text.size()), 0};
        refuses("the interval format is invalid", [&] { return codText2YMInterval(&view, &ym); });
        refuses("the interval format is invalid", [&] { return codText2DSInterval(&view, &ds); });
        refuses("the interval format is invalid", [&] { return codNumeric2DSInterval(1, &view, &ds); });
    }
}

}  // namespace
