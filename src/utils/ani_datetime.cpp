// Dates: microseconds to fields and back, and arithmetic with months, days and seconds.
//
// Day numbers become fields without a loop or a division: years begin in March, so that the leap day is the last one; the count is brought
// from the Gregorian calendar to the Julian one by adding the leap days that centuries lack, where every year is a quarter of 1461 days;
// and the day of the year leads to month and day by a table.

#define COD_NO_INLINE
#include <vel_infra/utils/ani_datetime.h>

#include <time.h>

#include <array>
#include <cmath>

#include "utils/ani_datetime_internal.h"

using cod::checkDateIn;
using cod::raiseDateOverflow;
using cod::raiseNullDate;

const CodUint8 gMonthDayArray[24] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31, 31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
const CodChar MONTHS_NAME[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

namespace {

constexpr CodUint32 kZeroDateJulianDay = 1721028;
// 0000-00-00 to 0000-00-31.
constexpr CodUint32 kZeroMonthDays = 32;
// Julian day 0 in microseconds before the epoch.
constexpr CodUint64 kJulianOffset = CodUint64{COD_EPOCH_JULIAN_DAY} * COD_USECS_PER_DAY;
static_assert(kJulianOffset == 210866803200000000);
constexpr CodUint32 kDaysPerCycle = 146097;  // 400 years

constexpr bool isLeapYear(CodUint32 year) {
    // Of the years divisible by 4, a century's is a leap year only when it is divisible by 16 too, and so by 400.
    return (year % 100 != 0 ? year % 4 : year % 16) == 0;
}

// month is 1 to 12.
inline CodUint32 daysOfMonth(CodUint32 year, CodUint32 month) {
    return gMonthDayArray[(isLeapYear(year) ? 12 : 0) + month - 1];
}

struct Product {
    CodUint64 high, low;
};

inline Product multiply(CodUint64 a, CodUint64 b) {
    const unsigned __int128 product = static_cast<unsigned __int128>(a) * b;
    return {static_cast<CodUint64>(product >> 64), static_cast<CodUint64>(product)};
}

// Whole days, and the rest in parts of 2^64 of a day.
struct DayAndFraction {
    CodUint32 day;
    CodUint64 fraction;
};

// The reciprocal of a day, 2^100 / 86400000000 rounded up, makes the fraction of any date too large: by less than 2^-41 of a day, since
// values are below 2^59, and by more than the 2^-64 that are cut off. A microsecond is 2^-36.3, so that whole units come out exactly.
inline DayAndFraction divideByDay(CodUint64 useconds) {
    constexpr auto reciprocal = static_cast<CodUint64>((static_cast<unsigned __int128>(1) << 100) / COD_USECS_PER_DAY + 1);
    const Product days = multiply(useconds, reciprocal);
    return {static_cast<CodUint32>(days.high >> 36), days.high << 28 | days.low >> 36};
}

struct MonthDay {
    CodUint8 month, day;
};

// Of each day of a year that begins with March 1st. Five months from March, August or January have 153 days.
constexpr auto kMonthDays = [] {
    std::array<MonthDay, 366> days{};
    for (CodUint32 i = 0; i < days.size(); i++) {
        const CodUint32 month = (5 * i + 2) / 153;
        days[i].month = static_cast<CodUint8>(month < 10 ? month + 3 : month - 9);
        days[i].day = static_cast<CodUint8>(i - (153 * month + 2) / 5 + 1);
    }
    return days;
}();
constexpr CodUint32 kJanuaryFirst = 306;

struct CalendarDay {
    MonthDay monthDay;
    CodUint32 year, dayOfYear;
};

// For Julian days up to 2^30 - 32045.
inline CalendarDay calendarDay(CodUint32 julianDay) {
    if (COD_UNLIKELY(julianDay - kZeroDateJulianDay < kZeroMonthDays)) {
        const CodUint32 day = julianDay - kZeroDateJulianDay;
        return {{0, static_cast<CodUint8>(day)}, 0, day};
    }
    // Quarters of days from March 1st of the year -4800.
    const CodUint32 quarters = 4 * (julianDay + 32044) + 3;
    const CodUint32 century = quarters / kDaysPerCycle;
    const CodUint32 julianQuarters = quarters + 4 * (century - century / 4);
    const CodUint32 year = julianQuarters / 1461;
    const CodUint32 day = (julianQuarters - year * 1461) / 4;
    const CodUint32 isLeap = ((year != 100 * century ? year : century) & 3) == 0;
    // January and February, whose dates come in no order, are told by a mask rather than a branch.
    const CodUint32 isNextYear = day >= kJanuaryFirst;
    const CodUint32 nextYearMask = 0 - isNextYear;
    return {kMonthDays[day], year - 4800 + isNextYear, day + 60 + isLeap - (nextYearMask & (365 + isLeap))};
}

inline CodInt64 timeOfDay(const CodDateStruct &ds) {
    return codSecondOfDay(&ds) * COD_USECS_PER_SECOND + ds.fraction;
}

bool isLastDayOfMonth(const CodDateStruct &ds) {
    return ds.month != 0 && ds.day == daysOfMonth(ds.year, ds.month);
}

// Months since 0000-01, which that year's month 0 precedes.
CodInt64 monthNumber(const CodDateStruct &ds) {
    return CodInt64{ds.year} * 12 + ds.month - 1;
}

CodInt64 floorDiv(CodInt64 dividend, CodInt64 divisor) {
    return dividend / divisor - (dividend % divisor < 0);
}

CodResult readFields(CodDate date, CodDateStruct *ds) {
    COD_TRY(checkDateIn(date, COD_DATE_ZERO, COD_DATE_MAX));
    codGetDateStruct(date, ds);
    return COD_SUCCESS;
}

// The operands of a difference whose result goes to `out`.
CodResult readPair(CodDate lDate, CodDate rDate, const void *out, CodDateStruct *left, CodDateStruct *right) {
    if (out == nullptr) {
        return raiseNullDate();
    }
    COD_TRY(readFields(lDate, left));
    return readFields(rDate, right);
}

// The month that a sum has led to, its year below 0 or above 9999 for all that would be no date.
struct Month {
    CodInt64 year;
    CodUint32 month;
};

Month addToMonth(const CodDateStruct &ds, CodInt64 months) {
    const CodInt64 number = monthNumber(ds) + months;
    const CodInt64 year = floorDiv(number, 12);
    return {year, static_cast<CodUint32>(number - year * 12) + 1};
}

// Puts a date into another month, 0000-01 to 9999-12.
void moveToMonth(CodDateStruct *ds, const Month &month, bool toLastDay) {
    ds->year = static_cast<CodUint16>(month.year);
    ds->month = static_cast<CodUint8>(month.month);
    const CodUint32 last = daysOfMonth(ds->year, ds->month);
    if (toLastDay || ds->day > last) {
        ds->day = static_cast<CodUint8>(last);
    }
}

CodResult composeChecked(CodDate *date, const CodDateStruct &ds, CodBool enableZeroDate, CodBool enableZeroInDate) {
    *date = codComposeDate(&ds);
    return checkDateOverFlow(*date, enableZeroDate, enableZeroInDate);
}

// Rounds to whole seconds, half away from zero.
CodInt64 roundToSecond(CodInt64 useconds) {
    const CodInt64 rest = useconds % COD_USECS_PER_SECOND;
    const CodInt64 half = COD_USECS_PER_SECOND / 2;
    return useconds - rest + (rest >= half ? COD_USECS_PER_SECOND : rest <= -half ? -COD_USECS_PER_SECOND : 0);
}

// What codDateIncrease and codTimestampIncrease share; they differ in the date's own fraction of a second.
CodResult addDays(CodDate *date, CodDouble days, bool keepsFraction, CodBool enableZeroDate, CodBool enableZeroInDate) {
    if (date == nullptr) {
        return raiseNullDate();
    }
    if (!std::isfinite(days)) {
        return codRaise(ERR_CMM_TYPECONV_ERROR, "not a valid number");
    }
    COD_TRY(checkDateIn(*date, COD_DATE_ZERO, COD_DATE_MAX));
    const CodDouble sum = static_cast<CodDouble>(*date) + days * 8.64e10;
    if (sum < -6.2169984e16 || sum > 2.534023008e17) {
        return raiseDateOverflow();
    }
    // Both ends lie within the range, or next to it: nothing here overflows.
    *date += static_cast<CodInt64>(std::round(days * 8.64e10 / 1e6)) * COD_USECS_PER_SECOND;
    if (!keepsFraction && days != std::trunc(days)) {
        *date = roundToSecond(*date);
    }
    return checkDateOverFlow(*date, enableZeroDate, enableZeroInDate);
}

}  // namespace

// ---- Fields ----

void codGetDateStruct(CodDate date, CodDateStruct *ds) {
    if (ds == nullptr) {
        return;
    }
    const CodUint64 useconds = static_cast<CodUint64>(date) + kJulianOffset;
    const DayAndFraction time = divideByDay(useconds);
    const CodUint32 julianDay = time.day;
    // Whole units and their fraction, in one multiplication each.
    const Product hours = multiply(time.fraction, 24);
    const Product minutes = multiply(hours.low, 60);
    const Product seconds = multiply(minutes.low, 60);
    const Product secondsOfDay = multiply(time.fraction, 86400);
    ds->hour = static_cast<CodUint16>(hours.high);
    ds->minute = static_cast<CodUint8>(minutes.high);
    ds->second = static_cast<CodUint8>(seconds.high);
    ds->secondOfDay = static_cast<CodUint32>(secondsOfDay.high);
    ds->fraction = static_cast<CodUint32>(multiply(secondsOfDay.low, COD_USECS_PER_SECOND).high);
    // The remainder by 7: the fraction of a week, in 32 bits, times 7 (Lemire, Kaser, Kurz: Faster remainder by direct computation, 2019).
    const CodUint32 weeks = (julianDay + 1) * 613566757;
    ds->dayOfWeek = static_cast<CodUint8>(weeks * CodUint64{7} >> 32);
    ds->weekName = 0;
    ds->timezoneHour = 0;
    ds->timezoneMinute = 0;
    ds->unused[0] = 0;
    ds->unused[1] = 0;
    const CalendarDay day = calendarDay(julianDay);
    ds->dayOfYear = static_cast<CodUint16>(day.dayOfYear);
    ds->year = static_cast<CodUint16>(day.year);
    ds->month = day.monthDay.month;
    ds->day = day.monthDay.day;
}

void codGetDate(CodDate *date, const CodDateStruct *ds) {
    if (date != nullptr && ds != nullptr) {
        *date = codComposeDate(ds);
    }
}

void julianToDate(CodUint32 jDate, CodUint16 *year, CodUint8 *month, CodUint8 *day) {
    if (year == nullptr || month == nullptr || day == nullptr) {
        return;
    }
    // Far days are brought near by whole cycles of 400 years.
    const CodUint32 cycles = jDate < (1u << 29) ? 0 : jDate / kDaysPerCycle - 12;
    const CalendarDay found = calendarDay(jDate - cycles * kDaysPerCycle);
    *year = static_cast<CodUint16>(found.year + 400 * cycles);
    *month = found.monthDay.month;
    *day = found.monthDay.day;
}

CodUint32 dateToJulianDay(CodUint32 year, CodUint32 month, CodUint32 day) {
    const bool isOctober1582 = year == 1582 && month == 10;
    if (isOctober1582 && day >= 5 && day < 15) {
        return 2299161;
    }
    if (year > 1582 || (year == 1582 && month > 10) || (isOctober1582 && day >= 15)) {
        return codJulianDayOf(year, month, day);
    }
    const bool isOfYearBefore = month <= 2;
    const CodInt64 y = CodInt64{year} - isOfYearBefore;
    const CodInt64 m = CodInt64{month} + (isOfYearBefore ? 12 : 0);
    return static_cast<CodUint32>(306001 * (m + 1) / 10000 + 1461 * (y + 4712) / 4 + day - 63);
}

CodResult checkDateOverFlow(CodDate value, CodBool enableZeroDate, CodBool enableZeroInDate) {
    if (COD_UNLIKELY(value == COD_DATE_ZERO)) {
        return enableZeroDate ? COD_SUCCESS : raiseDateOverflow();
    }
    return checkDateIn(value, enableZeroInDate ? COD_DATE_ZERO : COD_DATE_MIN, COD_DATE_MAX);
}

CodResult codInitDateEnv(void) {
    (void)codGetTimeZoneBias();
    return COD_SUCCESS;
}

// ---- Months ----

CodResult codSetLastDayOfDate(CodDate *date) {
    CodDateStruct ds;
    if (date == nullptr) {
        return raiseNullDate();
    }
    COD_TRY(readFields(*date, &ds));
    if (ds.month != 0) {
        *date += (CodInt64{daysOfMonth(ds.year, ds.month)} - ds.day) * COD_USECS_PER_DAY;
    }
    return COD_SUCCESS;
}

CodResult codAddMonths(CodDate *date, CodInt32 monthsWithSign, CodBool isDateAdd, CodBool enableZeroDate, CodBool enableZeroInDate) {
    if (date == nullptr) {
        return raiseNullDate();
    }
    if (monthsWithSign == 0) {
        return COD_SUCCESS;
    }
    CodDateStruct ds;
    COD_TRY(readFields(*date, &ds));
    const Month month = addToMonth(ds, monthsWithSign);
    if (monthsWithSign < 0 && month.year < (enableZeroDate || enableZeroInDate ? 0 : 1)) {
        return codRaise(ERR_ANS_VALUE_ERROR, enableZeroInDate ? "year must be between 0 and 9999" : "year must be between 1 and 9999");
    }
    if (month.year > 9999) {
        return raiseDateOverflow();
    }
    moveToMonth(&ds, month, !isDateAdd && isLastDayOfMonth(ds));
    return composeChecked(date, ds, enableZeroDate, enableZeroInDate);
}

CodResult codDateAddYMInterval(CodDate *time, CodYMInterval interval, CodBool enableZeroDate, CodBool enableZeroInDate) {
    CodDateStruct ds;
    if (time == nullptr) {
        return raiseNullDate();
    }
    COD_TRY(readFields(*time, &ds));
    if (interval == 0) {
        return checkDateOverFlow(*time, enableZeroDate, enableZeroInDate);
    }
    const Month month = addToMonth(ds, interval);
    if (month.year < (enableZeroDate || enableZeroInDate ? 0 : 1) || month.year > 9999) {
        return raiseDateOverflow();
    }
    moveToMonth(&ds, month, false);
    return composeChecked(time, ds, enableZeroDate, enableZeroInDate);
}

CodResult codComputeMonthsBetween(CodDate lDate, CodDate rDate, CodNumber *months) {
    constexpr CodInt64 month = 31 * COD_USECS_PER_DAY;
    CodDateStruct left = {};
    CodDateStruct right = {};
    COD_TRY(readPair(lDate, rDate, months, &left, &right));
    COD_TRY(codNumberFromInt64(months, monthNumber(left) - monthNumber(right)));
    if (left.day == right.day || (isLastDayOfMonth(left) && isLastDayOfMonth(right))) {
        return COD_SUCCESS;
    }
    CodNumber gap;
    CodNumber unit;
    COD_TRY(codNumberFromInt64(&gap, (left.day - right.day) * COD_USECS_PER_DAY + timeOfDay(left) - timeOfDay(right)));
    COD_TRY(codNumberFromInt64(&unit, month));
    COD_TRY(codNumberDiv(&gap, &unit, &gap));
    return codNumberAdd(months, &gap, months);
}

CodResult codGetMonthGapFromDate(CodDate lDate, CodDate rDate, CodInt32 *months) {
    CodDateStruct left = {};
    CodDateStruct right = {};
    COD_TRY(readPair(lDate, rDate, months, &left, &right));
    *months = static_cast<CodInt32>(monthNumber(left) - monthNumber(right));
    return COD_SUCCESS;
}

// ---- Days and shorter ----

CodResult codDateAddDSInterval(CodDate *time, CodDSInterval interval, CodBool enableZeroDate, CodBool enableZeroInDate) {
    if (time == nullptr) {
        return raiseNullDate();
    }
    COD_TRY(checkDateIn(*time, COD_DATE_ZERO, COD_DATE_MAX));
    CodDate sum;
    if (__builtin_add_overflow(*time, interval, &sum)) {
        return raiseDateOverflow();
    }
    *time = sum;
    return checkDateOverFlow(sum, enableZeroDate, enableZeroInDate);
}

CodResult codDateIncrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate) {
    return addDays(date, value, false, enableZeroDate, enableZeroInDate);
}

CodResult codTimestampIncrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate) {
    return addDays(date, value, true, enableZeroDate, enableZeroInDate);
}

CodResult codDateDecrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate) {
    return addDays(date, -value, false, enableZeroDate, enableZeroInDate);
}

CodResult codTimestampDecrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate) {
    return addDays(date, -value, true, enableZeroDate, enableZeroInDate);
}

CodResult codGetUsecondGapFromDate(CodDate lDate, CodDate rDate, CodInt64 *useconds) {
    if (useconds == nullptr) {
        return raiseNullDate();
    }
    return __builtin_sub_overflow(lDate, rDate, useconds) ? raiseDateOverflow() : COD_SUCCESS;
}

CodResult codIntervalBetweenDate(CodDate lDate, CodDate rDate, CodDSInterval *interval) {
    return codGetUsecondGapFromDate(lDate, rDate, interval);
}

CodResult codShortTimeIncrease(CodShortTime *time, CodDouble seconds) {
    if (time == nullptr) {
        return raiseNullDate();
    }
    const CodDouble useconds = std::trunc(seconds * 1e6);
    CodInt64 sum = -1;
    // Written so that NaN does not pass.
    if (std::fabs(useconds) < 9e18 && __builtin_add_overflow(*time, static_cast<CodInt64>(useconds), &sum)) {
        sum = -1;
    }
    if (static_cast<CodUint64>(sum) > static_cast<CodUint64>(COD_USECS_PER_DAY)) {
        return codRaise(ERR_CMM_TIME_OVERFLOW);
    }
    *time = sum;
    return COD_SUCCESS;
}

void codShortTimeAddDSInterval(CodShortTime *time, CodDSInterval interval) {
    if (time == nullptr) {
        return;
    }
    const CodInt64 sum = (*time % COD_USECS_PER_DAY + interval % COD_USECS_PER_DAY) % COD_USECS_PER_DAY;
    *time = sum < 0 ? sum + COD_USECS_PER_DAY : sum;
}

void codShortTime2CurrDate(CodShortTime time, CodDate *date) {
    if (date != nullptr) {
        const CodInt64 today = floorDiv(codSysdate(), COD_USECS_PER_DAY) * COD_USECS_PER_DAY;
        *date = static_cast<CodDate>(static_cast<CodUint64>(today) + static_cast<CodUint64>(time));
    }
}

// ---- The C library's fields ----

CodResult codDecodeDateTime(CodDate utc, CodDateTimeDesc *dateTime) {
    CodDateStruct ds;
    if (dateTime == nullptr) {
        return raiseNullDate();
    }
    COD_TRY(readFields(utc, &ds));
    *dateTime = {};
    dateTime->usec = static_cast<CodInt32>(ds.fraction);
    dateTime->sec = ds.second;
    dateTime->min = ds.minute;
    dateTime->hour = ds.hour;
    dateTime->mday = ds.day;
    dateTime->month = ds.month - 1;
    dateTime->year = ds.year - 1900;
    dateTime->wday = ds.dayOfWeek;
    dateTime->yday = ds.dayOfYear - 1;
    return COD_SUCCESS;
}

CodResult codEncodeDateTime(const CodDateTimeDesc *dateTime, CodDate *utc) {
    if (dateTime == nullptr || utc == nullptr) {
        return raiseNullDate();
    }
    const CodInt64 carriedYears = floorDiv(dateTime->month, 12);
    const CodInt64 year = dateTime->year + CodInt64{1900} + carriedYears;
    const CodInt64 cycle = floorDiv(year, 400);
    const CodUint32 month = static_cast<CodUint32>(dateTime->month - carriedYears * 12) + 1;
    const CodInt64 days = CodInt64{codJulianDayOf(static_cast<CodUint32>(year - cycle * 400), month, 0)} - COD_EPOCH_JULIAN_DAY +
                          cycle * CodInt64{kDaysPerCycle} + dateTime->mday;
    const CodInt64 seconds = dateTime->hour * CodInt64{3600} + dateTime->min * CodInt64{60} + dateTime->sec;
    CodInt64 value;
    if (__builtin_mul_overflow(days * 86400 + seconds, COD_USECS_PER_SECOND, &value) ||
        __builtin_add_overflow(value, CodInt64{dateTime->usec}, utc)) {
        return raiseDateOverflow();
    }
    return COD_SUCCESS;
}
