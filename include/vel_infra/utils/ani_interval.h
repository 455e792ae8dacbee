#ifndef VEL_INFRA_UTILS_ANI_INTERVAL_H
#define VEL_INFRA_UTILS_ANI_INTERVAL_H

/* Intervals: YEAR TO MONTH, counted in months, and DAY TO SECOND, counted in microseconds. Persisted as these integers.
 *
 * 1. Arithmetic keeps within COD_YM_INTERVAL_MAX and COD_DS_INTERVAL_MAX, either sign.
 * 2. Every failure is ERR_CMM_TYPECONV_ERROR with the reason named below as its argument, unless another error is named. After a failure
 *    a result must not be used.
 * 3. Results may be operands. All are pure functions; none allocates. */

#include <vel_infra/number/ani_number.h>
#include <vel_infra/utils/ani_datetime.h>

COD_BEGIN_DECLS

#define COD_YM_INTERVAL_MAX ((CodYMInterval)2136000000)          /* 178000000 years */
#define COD_DS_INTERVAL_MAX ((CodDSInterval)8640000000000000000) /* 100000000 days */

typedef struct CodYMIntervalStruct {
    CodInt8 sign; /* 1: negative, 0: not */
    CodUint8 unused[3];
    CodUint32 year;
    CodUint32 month; /* 0 to 11 */
} CodYMIntervalStruct;
COD_STATIC_ASSERT(sizeof(CodYMIntervalStruct) == 12, "layout is fixed");

typedef struct CodDSIntervalStruct {
    CodInt8 sign; /* 1: negative, 0: not */
    CodUint8 unused[3];
    CodUint32 day;
    CodUint32 hour;
    CodUint32 minute;
    CodUint32 second;
    CodUint32 fraction; /* microseconds */
} CodDSIntervalStruct;
COD_STATIC_ASSERT(sizeof(CodDSIntervalStruct) == 24, "layout is fixed");

/* 10^p for a leading precision p from 0 to 9. */
COD_API extern const CodUint32 gPrecisionLimit[10];
/* For a scale from 0 to 5: its unit and the half of it, in microseconds. */
COD_API extern const CodUint32 gRoundMap[6][2];
/* "DAY", "HOUR", "MINUTE", "SECOND". */
COD_API extern const char *const dsIntervalMap[4];

/* ---- Fields ---- */

/* Adds the fields to *interval, which is 0 at first, and then gives it the sign. Accepts up to 178000000 years and 11 months, and
 * 100000000 days with any time, although arithmetic does not.
 * Reasons: "the year is out of range", "not a valid month"; "the day is out of range", "not a valid hour", "not a valid minute", "not a
 * valid second", "not a valid fraction"; "the interval is out of range" when the type does not hold the sum. */
COD_API CodResult codGetYMInterval(CodYMInterval *interval, const CodYMIntervalStruct *fields);
COD_API CodResult codGetDSInterval(CodDSInterval *interval, const CodDSIntervalStruct *fields);
/* The reverse, for every value of the type. */
COD_API void codGetYMIntervalStruct(CodYMInterval interval, CodYMIntervalStruct *fields);
COD_API void codGetDSIntervalStruct(CodDSInterval interval, CodDSIntervalStruct *fields);

/* ---- Declared precision ---- */

/* Whether a column INTERVAL YEAR(precision) TO MONTH, or DAY(precision) TO SECOND(scale), holds the interval. The second rounds it in place
 * to the scale, half away from zero, and leaves it alone on failure. A precision outside of 0 to 9 and a scale outside of 0 to 6 count as
 * the nearest one inside. Reasons: "the leading precision is too small"; "the interval is out of range" when 64 bits do not hold the
 * rounded one. */
COD_API CodResult codYMICheckPrecision(CodYMInterval interval, CodInt32 precision);
COD_API CodResult codDSICheckPrecision(CodDSInterval *interval, CodInt32 precision, CodInt32 scale);

/* Add to *digits the decimal digits of the whole years, the whole days, or the microseconds below the second taken as an integer. Zero has
 * none. */
COD_API void codGetYmintervalPrecision(CodYMInterval interval, CodUint32 *digits);
COD_API void codGetDsintervalPrecision(CodDSInterval interval, CodUint32 *digits);
COD_API void codGetDsintervalScale(CodDSInterval interval, CodUint32 *digits);

/* ---- Arithmetic ---- */

/* Reason: "the interval is out of range". */
COD_API CodResult codAddYMInterval(CodYMInterval a, CodYMInterval b, CodYMInterval *result);
COD_API CodResult codAddDSInterval(CodDSInterval a, CodDSInterval b, CodDSInterval *result);
/* As NUMBER arithmetic has it, then cut toward zero to months or microseconds. Reason: "the interval is out of range", also for a year to
 * month interval divided by zero. Errors: ERR_CMM_DIVISION_BY_ZERO for a day to second interval divided by zero. */
COD_API CodResult codYMIntervalNumricMul(CodYMInterval interval, const CodNumber *n, CodYMInterval *result);
COD_API CodResult codYMIntervalNumricDiv(CodYMInterval interval, const CodNumber *n, CodYMInterval *result);
COD_API CodResult codDSIntervalNumricMul(CodDSInterval interval, const CodNumber *n, CodDSInterval *result);
COD_API CodResult codDSIntervalNumricDiv(CodDSInterval interval, const CodNumber *n, CodDSInterval *result);

/* value units, rounded to whole months or microseconds, half away from zero. Units, in any case: "year", "month"; "day", "hour", "minute",
 * "second". Reasons: "the interval format is invalid" for another unit; "the interval is out of range", also for NaN. */
COD_API CodResult codNumeric2YMInterval(CodDouble value, const CodText *unit, CodYMInterval *result);
COD_API CodResult codNumeric2DSInterval(CodDouble value, const CodText *unit, CodDSInterval *result);

/* ---- Text ---- */

/* Bytes of the longest texts, with their terminators. */
#define COD_YM_INTERVAL_TEXT_SIZE 14
#define COD_DS_INTERVAL_TEXT_SIZE 27

/* Read what the writers below write, with liberties: the sign may be absent, blanks (spaces, tabs) may stand around, fields may be missing
 * from the end, the first field has one to nine digits, the fraction one to six: "+01-02", "7", " -3 04:05 ", "3 04:05:06.5". The other
 * fields have two digits, and one blank stands behind the days.
 * Reasons: "the interval format is invalid", and those of the fields. */
COD_API CodResult codText2YMInterval(const CodText *text, CodYMInterval *result);
COD_API CodResult codText2DSInterval(const CodText *text, CodDSInterval *result);

/* Write into text->str, which has bufSize bytes, and set text->len; a terminator follows. "-01-02": sign, years, months; the years have two
 * digits or more. "+03 04:05:06.000007": the same with days. The N forms write UTF-16 (little-endian, two bytes a character, terminator
 * included; len in bytes), the national character set.
 * Errors: ERR_CMM_MEMORY_OVERFLOW when the buffer does not hold text and terminator. */
COD_API CodResult codYMInterval2Text(CodYMInterval interval, CodText *text, CodUint32 bufSize);
COD_API CodResult codYMInterval2NText(CodYMInterval interval, CodText *text, CodUint32 bufSize);
COD_API CodResult codDSInterval2Text(CodDSInterval interval, CodText *text, CodUint32 bufSize);
COD_API CodResult codDSInterval2NText(CodDSInterval interval, CodText *text, CodUint32 bufSize);

COD_END_DECLS

#endif
