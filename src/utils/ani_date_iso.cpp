#include <vel_infra/utils/ani_date_iso.h>

#include "utils/ani_datetime_internal.h"
#include "utils/ani_field_text_internal.h"

namespace {

COD_COLD CodResult raiseInvalid(const char *reason) {
    return codRaise(ERR_CMM_TYPECONV_ERROR, reason);
}

constexpr const char *kInvalidFormat = "the date format is invalid";

CodResult checkDate(const CodDate *date) {
    return date != nullptr ? cod::checkDateIn(*date, COD_DATE_MIN, COD_DATE_MAX) : cod::raiseNullDate();
}

// ---- Reading ----

struct IsoFields {
    CodUint32 year = 0;
    CodUint32 month = 0;
    CodUint32 day = 0;
    CodUint32 hour = 0;
    CodUint32 minute = 0;
    CodUint32 second = 0;
    CodInt64 fraction = 0;     // microseconds, up to 10^6 when rounded up
    CodInt64 minutesEast = 0;  // of UTC
};

bool readFraction(cod::FieldReader *in, CodInt64 *fraction) {
    CodInt64 unit = COD_USECS_PER_SECOND;
    CodUint32 digit = 0;
    if (!in->skipAny(".,")) {
        return true;
    }
    if (in->peek() < '0' || in->peek() > '9') {
        return false;
    }
    for (; in->peek() >= '0' && in->peek() <= '9'; in->skip(in->peek())) {
        digit = static_cast<CodUint32>(in->peek() - '0');
        // Behind the sixth digit the first one rounds, and the others say nothing more.
        *fraction += unit > 1 ? digit * (unit / 10) : unit == 1 && digit >= 5;
        unit /= 10;
    }
    return true;
}

// Behind the sign: HH, HHMM or HH:MM.
bool readOffset(cod::FieldReader *in, CodUint32 *hours, CodUint32 *minutes) {
    switch (in->digits(2, 4, hours)) {
        case 2:
            return !in->skip(':') || in->two(minutes);
        case 4:
            *minutes = *hours % 100;
            *hours /= 100;
            return true;
        default:
            return false;
    }
}

bool readZone(cod::FieldReader *in, CodInt64 *minutesEast) {
    if (in->isAtEnd() || in->skipAny("Zz")) {
        return true;
    }
    const CodInt64 direction = in->peek() == '-' ? -1 : 1;
    CodUint32 hours = 0;
    CodUint32 minutes = 0;
    if (!in->skipAny("+-") || !readOffset(in, &hours, &minutes) || hours > 23 || minutes > 59) {
        return false;
    }
    *minutesEast = direction * (hours * 60 + minutes);
    return true;
}

bool readTime(cod::FieldReader *in, IsoFields *fields) {
    if (!in->two(&fields->hour) || !in->skip(':') || !in->two(&fields->minute)) {
        return false;
    }
    if (in->skip(':') && (!in->two(&fields->second) || !readFraction(in, &fields->fraction))) {
        return false;
    }
    return readZone(in, &fields->minutesEast);
}

bool readIso(cod::FieldReader *in, IsoFields *fields) {
    if (in->digits(4, 4, &fields->year) == 0 || !in->skip('-') || !in->two(&fields->month) || !in->skip('-') || !in->two(&fields->day)) {
        return false;
    }
    return (!in->skipAny("Tt ") || readTime(in, fields)) && in->isAtEnd();
}

// The part of the day is checked by the calendar: what it would carry over is no day of the month.
const char *findFault(const IsoFields &fields, CodDate date) {
    CodDateStruct ds;
    codGetDateStruct(date, &ds);
    return fields.month < 1 || fields.month > 12              ? "not a valid month"
           : fields.day != ds.day || fields.month != ds.month ? "not a valid day"
           : fields.hour > 23                                 ? "not a valid hour"
           : fields.minute > 59                               ? "not a valid minute"
           : fields.second > 59                               ? "not a valid second"
                                                              : nullptr;
}

// The day of the date's year that a month begins with.
CodInt64 firstDayOfMonth(CodDateStruct ds, CodUint32 month) {
    ds.month = static_cast<CodUint8>(month);
    ds.day = 1;
    CodDate first;
    codGetDate(&first, &ds);
    codGetDateStruct(first, &ds);
    return ds.dayOfYear;
}

}  // namespace

CodResult codDateFromIso(const CodText *text, CodDate *date) {
    if (text == nullptr || date == nullptr || (text->str == nullptr && text->len != 0)) {
        return cod::raiseNullDate();
    }
    cod::FieldReader in(*text);
    IsoFields fields;
    if (!readIso(&in, &fields)) {
        return raiseInvalid(kInvalidFormat);
    }
    CodDateStruct ds = {};
    ds.year = static_cast<CodUint16>(fields.year);
    ds.month = static_cast<CodUint8>(fields.month);
    ds.day = static_cast<CodUint8>(fields.day);
    CodDate day;
    codGetDate(&day, &ds);
    const char *fault = findFault(fields, day);
    if (fault != nullptr) {
        return raiseInvalid(fault);
    }
    const CodInt64 minutes = CodInt64{fields.hour * 60 + fields.minute} - fields.minutesEast;
    *date = day + minutes * COD_USECS_PER_MINUTE + fields.second * COD_USECS_PER_SECOND + fields.fraction;
    return checkDate(date);
}

CodResult codDateToIso(CodDate date, CodText *text, CodUint32 bufSize) {
    COD_TRY(checkDate(text != nullptr && text->str != nullptr ? &date : nullptr));
    CodDateStruct ds;
    codGetDateStruct(date, &ds);
    char written[COD_DATE_ISO_SIZE];
    char *end = cod::putDate(written, ds.year, ds.month, ds.day);
    if (ds.secondOfDay != 0 || ds.fraction != 0) {
        end = cod::putTime(cod::putChar(end, 'T'), ds.hour, ds.minute, ds.second);
    }
    if (ds.fraction != 0) {
        end = cod::putSix(cod::putChar(end, '.'), ds.fraction);
    }
    return cod::giveText(written, end, text, bufSize);
}

CodResult codGetIsoWeek(CodDate date, CodUint32 *weekYear, CodUint32 *week, CodUint32 *dayOfWeek) {
    COD_TRY(checkDate(&date));
    CodDateStruct ds;
    codGetDateStruct(date, &ds);
    const CodUint32 isoDay = ds.dayOfWeek != 0 ? ds.dayOfWeek : 7;
    // A week belongs to the year of its Thursday.
    codGetDateStruct(date + (4 - CodInt64{isoDay}) * COD_USECS_PER_DAY, &ds);
    if (weekYear != nullptr) {
        *weekYear = ds.year;
    }
    if (week != nullptr) {
        *week = (ds.dayOfYear - 1u) / 7 + 1;
    }
    if (dayOfWeek != nullptr) {
        *dayOfWeek = isoDay;
    }
    return COD_SUCCESS;
}

CodResult codDateTruncate(CodDate *date, CodDateUnit unit) {
    COD_TRY(checkDate(date));
    CodDateStruct ds;
    codGetDateStruct(*date, &ds);
    CodInt64 kept = COD_USECS_PER_DAY;  // what the result is a multiple of
    CodInt64 days = 0;                  // and what is taken off besides
    switch (unit) {
        case COD_UNIT_YEAR:
            days = ds.dayOfYear - 1;
            break;
        case COD_UNIT_QUARTER:
            days = ds.dayOfYear - firstDayOfMonth(ds, (ds.month - 1u) / 3 * 3 + 1);
            break;
        case COD_UNIT_MONTH:
            days = ds.day - 1;
            break;
        case COD_UNIT_ISO_WEEK:
            days = (ds.dayOfWeek + 6) % 7;
            break;
        case COD_UNIT_WEEK:
            days = (ds.dayOfYear - 1) % 7;
            break;
        case COD_UNIT_DAY:
            break;
        case COD_UNIT_HOUR:
            kept = COD_USECS_PER_HOUR;
            break;
        case COD_UNIT_MINUTE:
            kept = COD_USECS_PER_MINUTE;
            break;
        case COD_UNIT_SECOND:
            kept = COD_USECS_PER_SECOND;
            break;
        default:
            return codRaise(ERR_CMM_INVALID_PARAMETER, "no such unit of dates");
    }
    *date -= days * COD_USECS_PER_DAY + (*date - COD_DATE_MIN) % kept;
    return COD_SUCCESS;
}
