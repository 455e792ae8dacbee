#include <vel_infra/utils/ani_interval.h>

#include <algorithm>
#include <cmath>

#include <vel_infra/error/ani_error_base.h>

#include "base/cod_ascii.h"
#include "utils/ani_field_text_internal.h"

const CodUint32 gPrecisionLimit[10] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};
const CodUint32 gRoundMap[6][2] = {{1000000, 500000}, {100000, 50000}, {10000, 5000}, {1000, 500}, {100, 50}, {10, 5}};
const char *const dsIntervalMap[4] = {"DAY", "HOUR", "MINUTE", "SECOND"};

namespace {

constexpr CodUint32 kMonthsPerYear = 12;
constexpr CodUint32 kYearLimit = 178000000;
constexpr CodUint32 kDayLimit = 100000000;
constexpr const char *kOutOfRange = "the interval is out of range";
constexpr const char *kInvalidFormat = "the interval format is invalid";

COD_COLD CodResult raiseInterval(const char *reason) {
    return codRaise(ERR_CMM_TYPECONV_ERROR, reason);
}

COD_COLD CodResult raiseNull() {
    return codRaise(ERR_CMM_POINTER_NULL);
}

template <class T>
CodUint64 magnitudeOf(T value) {
    const CodUint64 bits = static_cast<CodUint64>(CodInt64{value});
    return value < 0 ? 0 - bits : bits;
}

CodUint32 digitsOf(CodUint64 value) {
    CodUint32 digits = 0;
    for (; value != 0; value /= 10) {
        digits++;
    }
    return digits;
}

void addDigits(CodUint32 *digits, CodUint64 value) {
    if (digits != nullptr) {
        *digits += digitsOf(value);
    }
}

// What both kinds of intervals have: an integer type and the limit of arithmetic on it.
template <class T>
constexpr CodInt64 kLimit = 0;
template <>
constexpr CodInt64 kLimit<CodYMInterval> = COD_YM_INTERVAL_MAX;
template <>
constexpr CodInt64 kLimit<CodDSInterval> = COD_DS_INTERVAL_MAX;

template <class T>
CodResult giveInterval(CodInt64 value, T *result) {
    if (magnitudeOf(value) > static_cast<CodUint64>(kLimit<T>)) {
        return raiseInterval(kOutOfRange);
    }
    *result = static_cast<T>(value);
    return COD_SUCCESS;
}

template <class T>
CodResult addIntervals(T a, T b, T *result) {
    CodInt64 sum;
    if (result == nullptr) {
        return raiseNull();
    }
    return __builtin_add_overflow(CodInt64{a}, CodInt64{b}, &sum) ? raiseInterval(kOutOfRange) : giveInterval(sum, result);
}

// Adds a checked magnitude to *interval, then applies the sign.
template <class T>
CodResult addFields(CodInt64 magnitude, CodInt8 sign, T *interval) {
    T sum;
    if (__builtin_add_overflow(*interval, magnitude, &sum) || (sign != 0 && __builtin_sub_overflow(T{0}, sum, &sum))) {
        return raiseInterval(kOutOfRange);
    }
    *interval = sum;
    return COD_SUCCESS;
}

using NumberOperation = CodResult (*)(const CodNumber *, const CodNumber *, CodNumber *);

// The NUMBER's error gives way to ours, but for the one that is kept.
template <class T>
CodResult computeWithNumber(NumberOperation operation, T interval, const CodNumber *n, CodError keptError, T *result) {
    if (n == nullptr || result == nullptr) {
        return raiseNull();
    }
    CodNumber number;
    CodInt64 value;
    COD_TRY(codNumberFromInt64(&number, interval));
    if (operation(&number, n, &number) != COD_SUCCESS || codNumberToInt64Truncate(&number, &value) != COD_SUCCESS) {
        if (codGetErrorCode() == keptError) {
            return COD_ERROR;
        }
        codCleanCurError();
        return raiseInterval(kOutOfRange);
    }
    return giveInterval(value, result);
}

// NaN does not pass.
template <class T>
CodResult roundToInterval(CodDouble value, T *result) {
    const CodDouble rounded = std::round(value);
    if (!(std::fabs(rounded) <= static_cast<CodDouble>(kLimit<T>))) {
        return raiseInterval(kOutOfRange);
    }
    return giveInterval(static_cast<CodInt64>(rounded), result);
}

constexpr const char *kYMUnits[] = {"YEAR", "MONTH"};
constexpr CodDouble kYMFactors[] = {12, 1};
constexpr CodDouble kDSFactors[] = {8.64e10, 3.6e9, 6e7, 1e6};

template <class T, size_t kCount>
CodResult fromUnits(const char *const (&units)[kCount], const CodDouble (&factors)[kCount], CodDouble value, const CodText *text,
                    T *result) {
    if (text == nullptr || result == nullptr || (text->str == nullptr && text->len != 0)) {
        return raiseNull();
    }
    for (size_t i = 0; i < kCount; i++) {
        if (cod::equalsIgnoringCase(text->str, text->len, units[i])) {
            return roundToInterval(value * factors[i], result);
        }
    }
    return raiseInterval(kInvalidFormat);
}

// ---- Text ----

char *putSign(char *out, bool isNegative) {
    return cod::putChar(out, isNegative ? '-' : '+');
}

CodResult writeYM(CodYMInterval interval, CodText *text, CodUint32 bufSize, CodUint32 width) {
    if (text == nullptr || text->str == nullptr) {
        return raiseNull();
    }
    CodYMIntervalStruct fields;
    codGetYMIntervalStruct(interval, &fields);
    char written[COD_YM_INTERVAL_TEXT_SIZE];
    char *end = cod::putLeading(putSign(written, fields.sign != 0), fields.year);
    end = cod::putTwo(cod::putChar(end, '-'), fields.month);
    return cod::giveText(written, end, text, bufSize, width);
}

CodResult writeDS(CodDSInterval interval, CodText *text, CodUint32 bufSize, CodUint32 width) {
    if (text == nullptr || text->str == nullptr) {
        return raiseNull();
    }
    CodDSIntervalStruct fields;
    codGetDSIntervalStruct(interval, &fields);
    char written[COD_DS_INTERVAL_TEXT_SIZE];
    char *end = cod::putLeading(putSign(written, fields.sign != 0), fields.day);
    end = cod::putTime(cod::putChar(end, ' '), fields.hour, fields.minute, fields.second);
    end = cod::putSix(cod::putChar(end, '.'), fields.fraction);
    return cod::giveText(written, end, text, bufSize, width);
}

// The sign and the leading field.
bool readLeading(cod::FieldReader *in, CodInt8 *sign, CodUint32 *leading) {
    *sign = in->peek() == '-';
    in->skipAny("+-");
    return in->digits(1, 9, leading) != 0;
}

bool readYM(cod::FieldReader *in, CodYMIntervalStruct *fields) {
    return readLeading(in, &fields->sign, &fields->year) && (!in->skip('-') || in->two(&fields->month)) && in->isAtEnd();
}

// Each field stands behind the one before; the text may end instead of any.
bool readTimeOfDS(cod::FieldReader *in, CodDSIntervalStruct *fields) {
    const struct {
        char separator;
        CodUint32 *field;
    } rest[] = {{' ', &fields->hour}, {':', &fields->minute}, {':', &fields->second}};
    for (const auto &[separator, field] : rest) {
        if (in->isAtEnd()) {
            return true;
        }
        if (!in->skip(separator) || !in->two(field)) {
            return false;
        }
    }
    if (in->skip('.')) {
        CodUint32 digits = in->digits(1, 6, &fields->fraction);
        if (digits == 0) {
            return false;
        }
        for (; digits < 6; digits++) {
            fields->fraction *= 10;
        }
    }
    return in->isAtEnd();
}

bool readDS(cod::FieldReader *in, CodDSIntervalStruct *fields) {
    return readLeading(in, &fields->sign, &fields->day) && readTimeOfDS(in, fields);
}

template <class T, class Fields>
CodResult readInterval(bool (*read)(cod::FieldReader *, Fields *), CodResult (*build)(T *, const Fields *), const CodText *text,
                       T *result) {
    if (text == nullptr || result == nullptr || (text->str == nullptr && text->len != 0)) {
        return raiseNull();
    }
    cod::FieldReader in(*text);
    Fields fields = {};
    if (!read(&in, &fields)) {
        return raiseInterval(kInvalidFormat);
    }
    *result = 0;
    return build(result, &fields);
}

}  // namespace

// ---- Fields ----

CodResult codGetYMInterval(CodYMInterval *interval, const CodYMIntervalStruct *fields) {
    if (interval == nullptr || fields == nullptr) {
        return raiseNull();
    }
    if (fields->year > kYearLimit) {
        return raiseInterval("the year is out of range");
    }
    if (fields->month >= kMonthsPerYear) {
        return raiseInterval("not a valid month");
    }
    return addFields(CodInt64{fields->year} * kMonthsPerYear + fields->month, fields->sign, interval);
}

CodResult codGetDSInterval(CodDSInterval *interval, const CodDSIntervalStruct *fields) {
    if (interval == nullptr || fields == nullptr) {
        return raiseNull();
    }
    const struct {
        CodUint32 field, limit;
        CodInt64 unit;
        const char *reason;
    } rules[] = {
        {fields->day, kDayLimit, COD_USECS_PER_DAY, "the day is out of range"},
        {fields->hour, 23, COD_USECS_PER_HOUR, "not a valid hour"},
        {fields->minute, 59, COD_USECS_PER_MINUTE, "not a valid minute"},
        {fields->second, 59, COD_USECS_PER_SECOND, "not a valid second"},
        {fields->fraction, 999999, 1, "not a valid fraction"},
    };
    CodInt64 magnitude = 0;
    for (const auto &[field, limit, unit, reason] : rules) {
        if (field > limit) {
            return raiseInterval(reason);
        }
        magnitude += field * unit;
    }
    return addFields(magnitude, fields->sign, interval);
}

void codGetYMIntervalStruct(CodYMInterval interval, CodYMIntervalStruct *fields) {
    if (fields != nullptr) {
        const CodUint32 months = static_cast<CodUint32>(magnitudeOf(interval));
        *fields = {interval < 0, {}, months / kMonthsPerYear, months % kMonthsPerYear};
    }
}

void codGetDSIntervalStruct(CodDSInterval interval, CodDSIntervalStruct *fields) {
    if (fields == nullptr) {
        return;
    }
    const CodUint64 useconds = magnitudeOf(interval);
    const CodUint64 rest = useconds % COD_USECS_PER_DAY;
    const CodUint32 seconds = static_cast<CodUint32>(rest / COD_USECS_PER_SECOND);
    *fields = {interval < 0,      {},           static_cast<CodUint32>(useconds / COD_USECS_PER_DAY), seconds / 3600,
               seconds / 60 % 60, seconds % 60, static_cast<CodUint32>(rest % COD_USECS_PER_SECOND)};
}

// ---- Declared precision ----

CodResult codYMICheckPrecision(CodYMInterval interval, CodInt32 precision) {
    const CodUint64 years = magnitudeOf(interval) / kMonthsPerYear;
    return years < gPrecisionLimit[std::clamp(precision, 0, 9)] ? COD_SUCCESS : raiseInterval("the leading precision is too small");
}

CodResult codDSICheckPrecision(CodDSInterval *interval, CodInt32 precision, CodInt32 scale) {
    if (interval == nullptr) {
        return raiseNull();
    }
    CodUint64 magnitude = magnitudeOf(*interval);
    if (scale < 6) {
        const auto &[unit, half] = gRoundMap[std::max(scale, 0)];
        const CodUint64 rest = magnitude % unit;
        magnitude += rest >= half ? unit - rest : 0 - rest;
    }
    if (magnitude / COD_USECS_PER_DAY >= gPrecisionLimit[std::clamp(precision, 0, 9)]) {
        return raiseInterval("the leading precision is too small");
    }
    const bool isNegative = *interval < 0;
    if (magnitude > static_cast<CodUint64>(INT64_MAX) + isNegative) {
        return raiseInterval(kOutOfRange);
    }
    *interval = static_cast<CodInt64>(isNegative ? 0 - magnitude : magnitude);
    return COD_SUCCESS;
}

void codGetYmintervalPrecision(CodYMInterval interval, CodUint32 *digits) {
    addDigits(digits, magnitudeOf(interval) / kMonthsPerYear);
}

void codGetDsintervalPrecision(CodDSInterval interval, CodUint32 *digits) {
    addDigits(digits, magnitudeOf(interval) / COD_USECS_PER_DAY);
}

void codGetDsintervalScale(CodDSInterval interval, CodUint32 *digits) {
    addDigits(digits, magnitudeOf(interval) % COD_USECS_PER_SECOND);
}

// ---- Arithmetic ----

CodResult codAddYMInterval(CodYMInterval a, CodYMInterval b, CodYMInterval *result) {
    return addIntervals(a, b, result);
}

CodResult codAddDSInterval(CodDSInterval a, CodDSInterval b, CodDSInterval *result) {
    return addIntervals(a, b, result);
}

CodResult codYMIntervalNumricMul(CodYMInterval interval, const CodNumber *n, CodYMInterval *result) {
    return computeWithNumber(codNumberMul, interval, n, 0, result);
}

CodResult codYMIntervalNumricDiv(CodYMInterval interval, const CodNumber *n, CodYMInterval *result) {
    return computeWithNumber(codNumberDiv, interval, n, 0, result);
}

CodResult codDSIntervalNumricMul(CodDSInterval interval, const CodNumber *n, CodDSInterval *result) {
    return computeWithNumber(codNumberMul, interval, n, 0, result);
}

CodResult codDSIntervalNumricDiv(CodDSInterval interval, const CodNumber *n, CodDSInterval *result) {
    return computeWithNumber(codNumberDiv, interval, n, ERR_CMM_DIVISION_BY_ZERO, result);
}

CodResult codNumeric2YMInterval(CodDouble value, const CodText *unit, CodYMInterval *result) {
    return fromUnits(kYMUnits, kYMFactors, value, unit, result);
}

CodResult codNumeric2DSInterval(CodDouble value, const CodText *unit, CodDSInterval *result) {
    return fromUnits(dsIntervalMap, kDSFactors, value, unit, result);
}

// ---- Text ----

CodResult codText2YMInterval(const CodText *text, CodYMInterval *result) {
    return readInterval(readYM, codGetYMInterval, text, result);
}

CodResult codText2DSInterval(const CodText *text, CodDSInterval *result) {
    return readInterval(readDS, codGetDSInterval, text, result);
}

CodResult codYMInterval2Text(CodYMInterval interval, CodText *text, CodUint32 bufSize) {
    return writeYM(interval, text, bufSize, 1);
}

CodResult codYMInterval2NText(CodYMInterval interval, CodText *text, CodUint32 bufSize) {
    return writeYM(interval, text, bufSize, 2);
}

CodResult codDSInterval2Text(CodDSInterval interval, CodText *text, CodUint32 bufSize) {
    return writeDS(interval, text, bufSize, 1);
}

CodResult codDSInterval2NText(CodDSInterval interval, CodText *text, CodUint32 bufSize) {
    return writeDS(interval, text, bufSize, 2);
}
