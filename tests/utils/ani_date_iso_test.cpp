#include <vel_infra/utils/ani_date_iso.h>

#include <chrono>

#include "number/number_operands.h"

namespace {

using namespace number_model;
using namespace std::chrono;
using collection_support::expectError;

constexpr CodInt64 kDay = COD_USECS_PER_DAY, kMin = COD_DATE_MIN, kMax = COD_DATE_MAX;

TEST(DateIso, weeksAndUnitsAreThoseOfTheCalendar) {
    Operands draw(1);
    for (CodDate date = kMin; date <= kMax; date += kDay) {
        const sys_time<microseconds> at(microseconds(date + CodInt64(draw.next() % kDay) * draw.below(2)));
        const sys_days day = floor<days>(at), monday = day - (weekday(day) - Monday), thursday = monday + days(3);
        const year_month_day ymd(day), first = year_month_day(thursday).year() / 1 / 1;
        const sys_days year = ymd.year() / 1 / 1, month = ymd.year() / ymd.month() / 1, week = day - (day - year) % 7;
        const sys_days quarter = (ymd.year() / ymd.month() - (ymd.month() - January) % 3) / 1;
        const sys_time<microseconds> hour = floor<hours>(at), minute = floor<minutes>(at), second = floor<seconds>(at);
        const sys_time<microseconds> units[] = {year, quarter, month, monday, week, day, hour, minute, second};
        CodUint32 weekYear = 0, number = 0, dayOfWeek = 0;
        ASSERT_EQ(codGetIsoWeek(date, &weekYear, &number, &dayOfWeek), COD_SUCCESS);
        ASSERT_EQ(std::tuple(weekYear, number), std::tuple(int(first.year()), (thursday - sys_days(first)).count() / 7 + 1)) << date;
        ASSERT_EQ(dayOfWeek, weekday(day).iso_encoding()) << date;
        for (int unit = 0; unit < __COD_UNIT_COUNT__; unit++) {
            const auto truncate = [&](auto *out) { return *out = at.time_since_epoch().count(), codDateTruncate(out, CodDateUnit(unit)); };
            ASSERT_TRUE(agree([&] { return units[unit].time_since_epoch().count(); }, truncate)) << "unit " << unit << " on " << date;
        }
    }
}

CodResult readIso(const std::string &text, CodDate *date) {
    const CodText borrowed = {const_cast<char *>(text.data()), CodUint32(text.size()), 0};
    return codDateFromIso(&borrowed, date);
}

TEST(DateIso, textsReadBackInManySpellingsAndOthersAreRefused) {
    const CodInt64 sizes[] = {10, 16, 19, 21, 23, 26}, parts[] = {kDay, 60000000, 1000000, 100000, 1000, 1}, east[] = {0, 480, -359, 1380};
    const std::string zones[] = {"", "+08:00", "-0559", "+23"}, names[] = {"month", "day", "hour", "minute", "second"}, day = "2026-01-01";
    Operands draw(2);
    CodDate date = 0;
    for (CodUint64 i = 0; i < cases(20); i++) {
        const CodUint32 form = draw.below(6), zone = form == 0 ? 0 : draw.below(4), field = draw.below(5), digit = draw.below(10);
        date = kMin + kDay + CodInt64(draw.next() % (kMax - kMin - 2 * kDay)) / parts[form] * parts[form];
        const std::time_t second = (date - kMin) / 1000000 + kMin / 1000000;
        char text[64];
        std::strftime(text, sizeof(text), "%04Y-%m-%dT%H:%M:%S.", std::gmtime(&second));
        std::string whole = text + std::to_string(1000000 + date - second * 1000000).substr(1);
        const std::string shortest = whole.substr(0, date % kDay == 0 ? 10 : date % 1000000 == 0 ? 19 : 26);
        ASSERT_TRUE(writes(shortest, shortest.size() + 1, [&](auto *out, auto room) { return codDateToIso(date, out, room); })) << whole;
        std::string spelt = whole.substr(0, std::size_t(sizes[form])) + (form == 5 ? std::to_string(digit) : "") + zones[zone];
        const CodDate utc = date + (form == 5 && digit >= 5) - east[zone] * 60000000;
        ASSERT_TRUE(readIso(" " + spelt.replace(10, form > 0, form > 0, "Tt "[draw.below(3)]) + "\t", &date) == COD_SUCCESS && date == utc);
        spelt[draw.below(CodUint32(spelt.size()))] = '#';
        expectError(ERR_CMM_TYPECONV_ERROR, "type convert error : the date format is invalid", [&] { return readIso(spelt, &date); });
        whole.replace(5 + 3 * field, 2, std::to_string(std::array{13u, 32u, 24u, 60u, 60u}[field] + digit));
        expectError(ERR_CMM_TYPECONV_ERROR, "type convert error : not a valid " + names[field], [&] { return readIso(whole, &date); });
    }
    for (const char *rest : {"T", "Z", "  00:00", "T00:00:", "T00:00:00.", "T00:00.5", "T00:00+008", "T00:00+24", "T00:00+00:60"}) {
        expectError(ERR_CMM_TYPECONV_ERROR, "type convert error : the date format is invalid", [&] { return readIso(day + rest, &date); });
    }
    for (const char *refused : {"0000-12-31", "0001-01-01T00:00+00:01", "9999-12-31T23:59:59.9999995"}) {
        expectError(ERR_CMM_DATE_OVERFLOW, "date/timestamp value overflow", [&] { return readIso(refused, &date); });
    }
    expectError(ERR_CMM_TYPECONV_ERROR, "type convert error : not a valid day", [&] { return readIso("2026-02-29", &date); });
    expectError(ERR_CMM_INVALID_PARAMETER, "", [&] { return date = 0, codDateTruncate(&date, __COD_UNIT_COUNT__); });
    expectError(ERR_CMM_DATE_OVERFLOW, "", [&] { return date = kMin - 1, codDateTruncate(&date, COD_UNIT_DAY); });
    expectError(ERR_CMM_DATE_OVERFLOW, "", [&] { return codGetIsoWeek(kMax + 1, nullptr, nullptr, nullptr); });
}

}  // namespace
