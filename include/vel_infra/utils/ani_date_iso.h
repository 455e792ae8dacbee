#ifndef VEL_INFRA_UTILS_ANI_DATE_ISO_H
#define VEL_INFRA_UTILS_ANI_DATE_ISO_H

/* ISO 8601: dates as text, weeks, and truncation to a unit. For the years 1 to 9999; a date outside is ERR_CMM_DATE_OVERFLOW. Pure
 * functions; none allocates. */

#include <vel_infra/utils/ani_datetime.h>

COD_BEGIN_DECLS

/* Bytes of the longest text, with its terminator: "2026-11-21T09:05:07.000123". */
#define COD_DATE_ISO_SIZE 27

/* Reads "2026-11-21", followed or not by a time behind "T", "t" or one blank: hours and minutes, seconds when wanted, and then one or more
 * digits behind a point or comma, of which the seventh rounds half up: "2026-11-21T09:05", "2026-11-21 09:05:07.5". A zone may stand behind
 * the time, "Z", "z", "+08:00", "+0800" or "+08", hours to 23: the result is then UTC. Blanks may stand around. Fields have all their
 * digits; 24:00:00 and a second 60 are refused. Errors: ERR_CMM_TYPECONV_ERROR with "the date format is invalid", "not a valid month", "not
 * a valid day", "not a valid hour", "not a valid minute" or "not a valid second"; ERR_CMM_DATE_OVERFLOW outside of the years 1 to 9999. */
COD_API CodResult codDateFromIso(const CodText *text, CodDate *date);

/* Writes the date into text->str and terminates it; text->len tells its bytes. "2026-11-21" for midnight, seconds when there is a time of
 * day, and six digits of fraction when there is one: the result reads back to the same date.
 * Errors: ERR_CMM_MEMORY_OVERFLOW when bufSize does not hold text and terminator. */
COD_API CodResult codDateToIso(CodDate date, CodText *text, CodUint32 bufSize);

/* The week of ISO 8601: weeks begin on Monday, and week 1 is the one with the year's first Thursday. weekYear may be the year before or
 * after the date's own; week is 1 to 53, dayOfWeek 1 (Monday) to 7. Outputs may be null. */
COD_API CodResult codGetIsoWeek(CodDate date, CodUint32 *weekYear, CodUint32 *week, CodUint32 *dayOfWeek);

typedef enum CodDateUnit COD_ENUM_BASE {
    COD_UNIT_YEAR = 0,
    COD_UNIT_QUARTER,
    COD_UNIT_MONTH,
    COD_UNIT_ISO_WEEK, /* from Monday */
    COD_UNIT_WEEK,     /* from the weekday of January 1st: weeks counted from the year's first day */
    COD_UNIT_DAY,
    COD_UNIT_HOUR,
    COD_UNIT_MINUTE,
    COD_UNIT_SECOND,
    __COD_UNIT_COUNT__
} CodDateUnit;

/* The beginning of the unit that the date lies in, in place. Errors: ERR_CMM_INVALID_PARAMETER for an unknown unit. */
COD_API CodResult codDateTruncate(CodDate *date, CodDateUnit unit);

COD_END_DECLS

#endif
