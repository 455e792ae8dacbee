#include <vel_infra/utils/ani_datetime.h>

#include <chrono>
#include <cmath>

#include "number/number_operands.h"

#define EQUAL(call, rule) \
    ASSERT_TRUE(agree([&] { return rule; }, [&](auto *out) -> CodResult { return call; })) << testing::PrintToString(given)

namespace {

using namespace number_model;
using namespace std::chrono;
using Exact = __int128;

constexpr CodInt64 kDay = 86400000000, kZero = COD_DATE_ZERO, kMax = COD_DATE_MAX, kDays = (kMax - kZero) / kDay + 1, k2001 = 11323 * kDay;
const auto timeOf = [](CodDate date) { return (date - kZero) % kDay; };
const Failure kOverflow = {ERR_CMM_DATE_OVERFLOW, "date/timestamp value overflow"};

CodInt64 within(Exact low, Exact value, Exact high = INT64_MAX, const Failure &failure = kOverflow) {
    return value < low || value > high ? throw failure : static_cast<CodInt64>(value);
}

std::tm fieldsOf(CodDate date) {
    const std::time_t second = (date - kZero) / 1000000 + kZero / 1000000, zeroInDate = (date - kZero) / kDay;
    std::tm tm = *std::gmtime(&second);
    if (zeroInDate < 32) {
        tm.tm_year = -1900, tm.tm_mon = -1, tm.tm_mday = int(zeroInDate), tm.tm_yday = tm.tm_mday - 1;
    }
    return tm;
}

CodDate dateOf(const std::tm &tm, int moreMonths, int day, CodInt64 time = 0) {
    const sys_days first((year(tm.tm_year + 1900) / January + months(tm.tm_mon + moreMonths)) / 1);
    return (first.time_since_epoch().count() + day - 1) * kDay + time;
}

// Month 0 has no last day.
CodDate lastDay(CodDate date) {
    return fieldsOf(date).tm_mon < 0 ? date : dateOf(fieldsOf(date), 1, 0, timeOf(date));
}

TEST(DateTime, everyDayAndInstantHasTheFieldsOfTheCalendar) {
    void (*volatile exported)(CodDate *, const CodDateStruct *) = codGetDate;  // not the inline body
    Operands draw(1);
    for (CodInt64 i = 0; i < kDays + CodInt64(cases()); i++) {
        const CodDate date = kZero + (i < kDays ? i * kDay + i % 2 * (kDay - 1) : CodInt64(draw.next() % (kDays * kDay)));
        const CodUint32 julian = CodUint32((date - kZero) / kDay + 1721028), cycles = i < kDays || julian < 1721060 ? 0 : draw.below(29000);
        const std::tm tm = fieldsOf(date);
        CodDateStruct ds, day;
        CodDate made[2];
        codGetDateStruct(date, &ds);
        codGetDate(&made[0], &ds);
        exported(&made[1], &ds);
        julianToDate(julian + cycles * 146097, &day.year, &day.month, &day.day);
        const CodInt64 sec = (ds.hour * 60 + ds.minute) * 60 + ds.second, time = sec * 1000000 + ds.fraction;
        ASSERT_EQ(std::tuple(ds.year, ds.month, ds.day, ds.weekName), std::tuple(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, 0)) << date;
        ASSERT_EQ(std::tuple(ds.dayOfYear, ds.dayOfWeek, ds.secondOfDay, time), std::tuple(tm.tm_yday + 1, tm.tm_wday, sec, timeOf(date)));
        ASSERT_EQ(std::tuple(day.year, day.month, day.day, made[1]), std::tuple(CodUint16(ds.year + 400 * cycles), ds.month, ds.day, date));
        ASSERT_TRUE(ds.minute < 60 && ds.second < 60 && made[0] == date && (ds.month == 0 || dateOf(tm, 0, ds.day, time) == date));
        ASSERT_TRUE(julian < 2299151 || dateToJulianDay(ds.year, ds.month, ds.day) == std::max(julian, 2299161u)) << date;
    }
    // The Julian calendar of any four years is that of 2001 to 2004.
    for (CodUint32 n = 0; n < 2299161 - 1721424; n++) {
        const std::tm tm = fieldsOf(k2001 + n % 1461 * kDay);
        ASSERT_EQ(dateToJulianDay(n / 1461 * 4 + unsigned(tm.tm_year) - 100, unsigned(tm.tm_mon + 1), unsigned(tm.tm_mday)), 1721424 + n);
    }
    for (int i = 0; i < 24; i++) {
        EXPECT_EQ(gMonthDayArray[i], fieldsOf(dateOf(fieldsOf(k2001 - i / 12 * 366 * kDay), i % 12 + 1, 0)).tm_mday);
        EXPECT_EQ(MONTHS_NAME[i % 12], std::string("JanFebMarAprMayJunJulAugSepOctNovDec").substr(std::size_t(i % 12 * 3), 3));
    }
}

CodDate anyDate(Operands &draw) {
    const CodDate any = kZero + CodInt64(draw.next() % (kMax - kZero + 1)), far = draw.oneIn(8) ? CodDate(draw.next()) / 2 : any;
    const CodDate bases[] = {any, any, far, kZero, COD_DATE_MIN, kMax + 1, kZero + 32 * kDay};
    const CodInt64 steps[] = {1, 500000, kDay, 20 * kDay}, date = bases[draw.below(7)] + steps[draw.below(4)] * draw.between(-4, 4);
    return draw.oneIn(4) ? lastDay(date) : date;
}

TEST(DateTime, operationsEqualTheModelAndGiveTheKnownEdges) {
    std::array dates = {k2001 + 30 * kDay, k2001 + 58 * kDay, k2001 + 58 * kDay, CodDate{1500000}, CodDate{86399000000}, CodDate{0}};
    codShortTime2CurrDate(1234567, &dates[5]);
    EXPECT_TRUE(timeOf(dates[5]) == 1234567 && std::abs(dates[5] - codSysdate()) < kDay);
    EXPECT_EQ(codAddMonths(&dates[0], 1, false, false, false) | codAddMonths(&dates[1], 1, false, false, false), COD_SUCCESS);
    EXPECT_EQ(codAddMonths(&dates[2], 1, true, false, false) | codDateIncrease(&dates[3], 1.5, false, false), COD_SUCCESS);
    EXPECT_EQ(codShortTimeIncrease(&dates[4], 1) | codInitDateEnv(), COD_SUCCESS);
    EXPECT_EQ(dates, (std::array{k2001 + 58 * kDay, k2001 + 89 * kDay, k2001 + 86 * kDay, CodDate{129602000000}, kDay, dates[5]}));
    const Failure notNumber = {ERR_CMM_TYPECONV_ERROR, "type convert error : not a valid number"};
    const Failure timeOverflow = {ERR_CMM_TIME_OVERFLOW, "time value overflow"};
    Operands draw(2);
    for (CodUint64 i = 0; i < cases(5); i++) {
        const CodDate date = anyDate(draw), other = anyDate(draw), to[] = {kZero, COD_DATE_MIN, kMax + 1, other};
        const CodInt64 gap = CodInt64(Exact{to[draw.below(4)]} - date), any = draw.oneIn(2) ? gap : CodInt64(draw.next()) >> draw.below(64);
        const CodInt32 few = draw.between(-3000, 3000), near = CodInt32(gap / 30 / kDay), some = CodInt32(any);
        const CodInt32 counts[] = {few / 100, few * 40, near, some, INT32_MIN, INT32_MAX, 0}, count = counts[draw.below(7)];
        const double toEnd = double(gap) / 8.64e10, hair = few * 1e-11, wild = std::ldexp(few, draw.between(-1000, 1000));
        const double values[] = {few / 2.0, (few + 0.5) / 86400, toEnd, toEnd + hair, wild, few / 0.0}, value = values[draw.below(6)];
        const bool isDateAdd = draw.oneIn(2), zero = draw.oneIn(2), zeroIn = draw.oneIn(2);
        const auto given = std::tuple(date, other, count, any, value, isDateAdd, zero, zeroIn);
        const auto operand = [&] { return within(kZero, date, kMax); };
        const auto checked = [&](Exact sum) { return within((sum == kZero ? zero : zeroIn) ? kZero : COD_DATE_MIN, sum, kMax); };
        const auto monthsLater = [&](bool isFunction) {
            const std::tm tm = fieldsOf(operand());
            const std::string text = std::string("value error, year must be between ") + "10"[zeroIn] + " and 9999";
            const int more = std::clamp(count, -200000, 200000), month = tm.tm_year * 12 + 22800 + tm.tm_mon + more;
            within(zero || zeroIn ? 0 : 12, month, INT_MAX, isFunction && count < 0 ? Failure{ERR_ANS_VALUE_ERROR, text} : kOverflow);
            const CodDate last = dateOf(tm, more + 1, 0, timeOf(date)), same = dateOf(tm, more, tm.tm_mday, timeOf(date));
            return checked(isFunction && !isDateAdd && tm.tm_mon >= 0 && date == lastDay(date) ? last : std::min(last, same));
        };
        const auto daysLater = [&](double more, bool isTimestamp) {
            const double increment = std::isfinite(more) ? more * 8.64e10 : throw notNumber;
            within(kZero, Exact(std::clamp(double(operand()) + increment, -1e18, 1e18)), kMax + 1);
            const CodInt64 sum = date + std::llround(increment / 1e6) * 1000000, half = sum < 0 ? -500000 : 500000;
            return checked(isTimestamp || more == std::trunc(more) ? sum : (sum + half) / 1000000 * 1000000);
        };
        EQUAL((*out = date, codAddMonths(out, count, isDateAdd, zero, zeroIn)), count == 0 ? date : monthsLater(true));
        EQUAL((*out = date, codDateAddYMInterval(out, count, zero, zeroIn)), count == 0 ? checked(operand()) : monthsLater(false));
        EQUAL((*out = date, codDateAddDSInterval(out, any, zero, zeroIn)), checked(Exact{operand()} + any));
        EQUAL((*out = date, codDateIncrease(out, value, zero, zeroIn)), daysLater(value, false));
        EQUAL((*out = date, codDateDecrease(out, value, zero, zeroIn)), daysLater(-value, false));
        EQUAL((*out = date, codTimestampIncrease(out, value, zero, zeroIn)), daysLater(value, true));
        EQUAL((*out = date, codTimestampDecrease(out, value, zero, zeroIn)), daysLater(-value, true));
        EQUAL((*out = date, checkDateOverFlow(date, zero, zeroIn)), checked(date));
        EQUAL((*out = date, codSetLastDayOfDate(out)), lastDay(operand()));
        EQUAL(codGetUsecondGapFromDate(date, other, out), within(INT64_MIN, Exact{date} - other));
        EQUAL(codIntervalBetweenDate(date, other, out), within(INT64_MIN, Exact{date} - other));
        const CodDate l = std::clamp(date, kZero, kMax), r = std::clamp(other, kZero, kMax);
        const std::tm left = fieldsOf(l), right = fieldsOf(r);
        const bool areLast = left.tm_mon >= 0 && right.tm_mon >= 0 && l == lastDay(l) && r == lastDay(r);
        const CodInt32 monthGap = (left.tm_year - right.tm_year) * 12 + left.tm_mon - right.tm_mon, dayGap = left.tm_mday - right.tm_mday;
        const CodInt64 rest = areLast || dayGap == 0 ? 0 : dayGap * kDay + timeOf(l) - timeOf(r);
        const auto number = [](CodInt64 n) { return Number(std::abs(n), n < 0, 0); };
        const Number sum = rest == 0 ? number(monthGap) : add(number(monthGap), div(number(rest), number(31 * kDay)));
        EQUAL(codComputeMonthsBetween(l, r, out), sum);
        EQUAL(codGetMonthGapFromDate(l, r, out), monthGap);
        const CodInt64 time = timeOf(l), toMidnight = draw.below(2) * kDay - time + draw.between(-2, 2);
        const double seconds = draw.oneIn(2) ? double(toMidnight) / 1e6 : value, cut = std::fmin(std::fmax(seconds * 1e6, -1e12), 1e12);
        EQUAL((*out = time, codShortTimeIncrease(out, seconds)), within(0, time + Exact(cut), kDay, timeOverflow));
        EQUAL((*out = time, codShortTimeAddDSInterval(out, any), COD_SUCCESS), CodInt64((time + any % kDay + kDay) % kDay));
        CodDateTimeDesc desc = {few, some, few, count, count, count / 2, some / 4, 0, 0, 0};
        std::tm tm = {desc.sec, desc.min, desc.hour, desc.mday, desc.month, desc.year, 0, 0, 0, 0, nullptr};
        EQUAL(codEncodeDateTime(&desc, out), within(INT64_MIN, Exact{timegm(&tm)} * 1000000 + few));
        const bool isDecoded = codDecodeDateTime(l, &desc) == COD_SUCCESS && std::memcmp(&left, &desc.sec, 9 * sizeof(int)) == 0;
        ASSERT_TRUE(left.tm_mon < 0 || (isDecoded && desc.usec == time % 1000000)) << l;
    }
}

}  // namespace
