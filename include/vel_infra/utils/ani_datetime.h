#ifndef VEL_INFRA_UTILS_ANI_DATETIME_H
#define VEL_INFRA_UTILS_ANI_DATETIME_H

/* Dates: the calendar and arithmetic on it.
 *
 * A CodDate is a date and time without a zone, in microseconds since 1970-01-01 00:00:00, proleptic Gregorian: DATE and TIMESTAMP.
 * Persisted.
 *
 * 1. Valid dates are COD_DATE_MIN to COD_DATE_MAX, the years 1 to 9999.
 * 2. COD_DATE_ZERO, 0000-00-00, is a date only where the caller enables zero dates; the values from there to the end of year 0, which
 *    begin with 0000-00-01 to 0000-00-31, only where it enables zeros in dates. They are read and written like other dates.
 * 3. Operations that take enableZeroDate and enableZeroInDate check their result by checkDateOverFlow, and an operand outside of
 *    COD_DATE_ZERO to COD_DATE_MAX is ERR_CMM_DATE_OVERFLOW. On failure an output may have been changed.
 * 4. All are pure functions, but those that read the clock; none allocates. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/number/ani_number.h>
#include <vel_infra/utils/ani_clock.h>
#include <vel_infra/utils/ani_timer.h>

COD_BEGIN_DECLS

#define COD_USECS_PER_SECOND ((CodInt64)1000000)
#define COD_USECS_PER_MINUTE ((CodInt64)60000000)
#define COD_USECS_PER_HOUR ((CodInt64)3600000000)
#define COD_USECS_PER_DAY ((CodInt64)86400000000)

#define COD_DATE_ZERO ((CodDate)-62169984000000000) /* 0000-00-00 */
#define COD_DATE_MIN ((CodDate)-62135596800000000)  /* 0001-01-01 00:00:00 */
#define COD_DATE_MAX ((CodDate)253402300799999999)  /* 9999-12-31 23:59:59.999999 */

/* The Julian day number of 1970-01-01. */
#define COD_EPOCH_JULIAN_DAY 2440588

/* A time of day: microseconds, 0 to 86400000000; that is 24:00:00, which a sum may give. */
typedef CodInt64 CodShortTime;

/* Intervals: months, and microseconds (utils/ani_interval.h). */
typedef CodInt32 CodYMInterval;
typedef CodInt64 CodDSInterval;

/* A date by its fields. */
typedef struct CodDateStruct {
    CodUint16 dayOfYear; /* 1 to 366 */
    CodUint16 year;
    CodUint8 month; /* 1 to 12 */
    CodUint8 day;   /* 1 to 31 */
    CodUint16 hour;
    CodUint8 minute;
    CodUint8 second;
    CodUint8 dayOfWeek; /* 0: Sunday */
    CodUint8 weekName;  /* for format models; 0 here, as the time zone */
    CodInt8 timezoneHour;
    CodInt8 timezoneMinute;
    CodUint8 unused[2];
    CodUint32 fraction; /* microseconds */
    CodUint32 secondOfDay;
} CodDateStruct;
COD_STATIC_ASSERT(sizeof(CodDateStruct) == 24 && offsetof(CodDateStruct, fraction) == 16, "layout is fixed");

/* A time by the C library's fields: year since 1900, month and yday from 0, wday 0 Sunday. */
typedef struct CodDateTimeDesc {
    CodInt32 usec, sec, min, hour, mday, month, year, wday, yday, isdst;
} CodDateTimeDesc;
COD_STATIC_ASSERT(sizeof(CodDateTimeDesc) == 40, "layout is fixed");

/* Month lengths: twelve of a common year, then twelve of a leap year. */
COD_API extern const CodUint8 gMonthDayArray[24];
/* "Jan" to "Dec". */
COD_API extern const CodChar MONTHS_NAME[12][4];

/* ---- Fields ---- */

/* All fields of a date; the whole record is written. A date outside of COD_DATE_ZERO to COD_DATE_MAX gives fields without meaning. */
COD_API void codGetDateStruct(CodDate date, CodDateStruct *ds);
/* The date of year, month, day, hour, minute, second and fraction; the other fields are not read. Nothing is checked: what exceeds its
 * range carries over. */
COD_API void codGetDate(CodDate *date, const CodDateStruct *ds);

/* Julian day numbers, proleptic Gregorian. 1721028 is 0000-00-00 and the 31 days behind it 0000-00-01 to 0000-00-31. Years wrap at 16
 * bits. */
COD_API void julianToDate(CodUint32 jDate, CodUint16 *year, CodUint8 *month, CodUint8 *day);
/* The Julian day number as calendars of the time had it, for the Julian-day elements of formats: Julian before 1582-10-05, Gregorian from
 * 1582-10-15. The ten days between, which never were, give 2299161 all. Not the inverse of julianToDate before 1582-10-15. */
COD_API CodUint32 dateToJulianDay(CodUint32 year, CodUint32 month, CodUint32 day);

/* The first error below that applies; success for a date that may be stored. Errors: ERR_CMM_DATE_OVERFLOW for COD_DATE_ZERO unless
 * enableZeroDate, for other values below COD_DATE_MIN unless enableZeroInDate, below COD_DATE_ZERO and above COD_DATE_MAX always. */
COD_API CodResult checkDateOverFlow(CodDate value, CodBool enableZeroDate, CodBool enableZeroInDate);

/* Sets up the date environment, the C library's time zone; before threads start. */
COD_API CodResult codInitDateEnv(void);

/* ---- Months ---- */

/* To the last day of its month, keeping the time of day. Errors: ERR_CMM_DATE_OVERFLOW for an operand out of range. */
COD_API CodResult codSetLastDayOfDate(CodDate *date);
/* The SQL month function. A day that the new month does not have becomes its last day; unless isDateAdd, the last day of a month stays the
 * last. Zero months change and check nothing.
 * Errors: ERR_ANS_VALUE_ERROR when subtracting brings the year below 0, or to 0 with neither zero enabled; ERR_CMM_DATE_OVERFLOW. */
COD_API CodResult codAddMonths(CodDate *date, CodInt32 monthsWithSign, CodBool isDateAdd, CodBool enableZeroDate, CodBool enableZeroInDate);
/* The day stays, cut to the new month's length. Errors: ERR_CMM_DATE_OVERFLOW. */
COD_API CodResult codDateAddYMInterval(CodDate *time, CodYMInterval interval, CodBool enableZeroDate, CodBool enableZeroInDate);

/* lDate less rDate in months, as the SQL function has it: whole months when the days of the month are equal or both are the last ones,
 * whatever the time of day; else with a fraction of 31 days, times of day included. */
COD_API CodResult codComputeMonthsBetween(CodDate lDate, CodDate rDate, CodNumber *months);
/* The whole-month part: years and months alone. */
COD_API CodResult codGetMonthGapFromDate(CodDate lDate, CodDate rDate, CodInt32 *months);

/* ---- Days and shorter ---- */

/* Errors: ERR_CMM_DATE_OVERFLOW. */
COD_API CodResult codDateAddDSInterval(CodDate *time, CodDSInterval interval, CodBool enableZeroDate, CodBool enableZeroInDate);
/* Adds days, rounded to whole seconds (half away from zero). When `value` is no whole number of days, the date's own fraction of a second
 * is rounded away too, by its integer value; a timestamp keeps it.
 * Errors: ERR_CMM_TYPECONV_ERROR for NaN and infinity, ERR_CMM_DATE_OVERFLOW. */
COD_API CodResult codDateIncrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate);
COD_API CodResult codTimestampIncrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate);
/* The same with -value. */
COD_API CodResult codDateDecrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate);
COD_API CodResult codTimestampDecrease(CodDate *date, CodDouble value, CodBool enableZeroDate, CodBool enableZeroInDate);

/* lDate less rDate in microseconds. Errors: ERR_CMM_DATE_OVERFLOW when 64 bits do not hold it, which valid dates never cause. */
COD_API CodResult codGetUsecondGapFromDate(CodDate lDate, CodDate rDate, CodInt64 *useconds);
/* The same as an interval. */
COD_API CodResult codIntervalBetweenDate(CodDate lDate, CodDate rDate, CodDSInterval *interval);

/* Adds seconds, cut to microseconds. Errors: ERR_CMM_TIME_OVERFLOW outside of 0 to 24:00:00, both included, and for NaN. */
COD_API CodResult codShortTimeIncrease(CodShortTime *time, CodDouble seconds);
/* Wraps around midnight: the result is 0 to 86399999999. */
COD_API void codShortTimeAddDSInterval(CodShortTime *time, CodDSInterval interval);
/* Today, in the process's time zone, at that time of day. */
COD_API void codShortTime2CurrDate(CodShortTime time, CodDate *date);

/* ---- The C library's fields ---- */

/* The fields of a date, in UTC when the date is. isdst is 0. */
COD_API CodResult codDecodeDateTime(CodDate utc, CodDateTimeDesc *dateTime);
/* Back; fields beyond their range carry over, wday, yday and isdst are not read. Errors: ERR_CMM_DATE_OVERFLOW when 64 bits do not hold it.
 */
COD_API CodResult codEncodeDateTime(const CodDateTimeDesc *dateTime, CodDate *utc);

/* ---- Inline ---- */

/* The Julian day number of any year, month and day, proleptic Gregorian; what exceeds its range carries over. */
COD_INLINE CodUint32 codJulianDayOf(CodUint32 year, CodUint32 month, CodUint32 day) {
    /* Years begin in March, so that the leap day is the last one. */
    const CodUint32 m = month <= 2 ? month + 13 : month + 1;
    const CodUint32 y = month <= 2 ? year + 4799 : year + 4800;
    const CodUint32 century = y / 100;
    return m * 7834 / 256 + day + 365 * y + y / 4 - century + century / 4 - 32167;
}

/* Seconds behind midnight of hour, minute and second. */
COD_INLINE CodUint32 codSecondOfDay(const CodDateStruct *ds) {
    return (ds->hour * 60u + ds->minute) * 60u + ds->second;
}

COD_INLINE CodDate codComposeDate(const CodDateStruct *ds) {
    const CodInt64 days = (CodInt64)codJulianDayOf(ds->year, ds->month, ds->day) - COD_EPOCH_JULIAN_DAY;
    return (days * 86400 + codSecondOfDay(ds)) * COD_USECS_PER_SECOND + ds->fraction;
}

#if !defined(COD_NO_INLINE)
COD_API_INLINE void codGetDate(CodDate *date, const CodDateStruct *ds) {
    if (COD_LIKELY(date != NULL && ds != NULL)) {
        *date = codComposeDate(ds);
    }
}
#endif

COD_END_DECLS

#endif
