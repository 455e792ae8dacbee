// The calendar over random instants of the years 1 to 9999, and the cached clock. Ours and gmtime_r also give the days of year and week.

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <random>
#include <string>
#include <vector>

#include <vel_infra/vel_infra.h>

#ifdef VEL_INFRA_WITH_ABSL
#include <absl/time/time.h>
#endif
#ifdef VEL_INFRA_WITH_DATE
#include <date/date.h>
#endif

namespace {

using std::chrono::floor, std::chrono::microseconds;
using Instant = std::chrono::sys_time<microseconds>;

const std::vector<CodDate> gDates = [random = std::mt19937_64(1)]() mutable {
    std::vector<CodDate> dates(10000);
    std::generate(dates.begin(), dates.end(), [&] { return std::uniform_int_distribution(COD_DATE_MIN, COD_DATE_MAX)(random); });
    return dates;
}();

// Registers work(input, output) over a column, and returns the outputs.
template <class Output, class Input>
std::vector<Output> add(const std::string &name, const std::vector<Input> &inputs, auto work) {
    std::vector<Output> outputs(inputs.size());
    const auto pass = [inputs, work](std::vector<Output> &results) {
        for (size_t i = 0; i < inputs.size(); i++) {
            work(inputs[i], results[i]);
        }
    };
    pass(outputs);
    benchmark::RegisterBenchmark(name.c_str(), [pass, results = outputs](benchmark::State &state) mutable {
        for (auto _ : state) {
            pass(results);
            benchmark::ClobberMemory();
        }
        state.counters["ns_per_item"] = benchmark::Counter(static_cast<double>(results.size()) * 1e-9,
                                                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    });
    return outputs;
}

// From dates to a form and back.
template <class Form>
void addPair(const std::string (&works)[2], const std::string &who, auto make, auto read) {
    if (add<CodDate>(works[1] + who, add<Form>(works[0] + who, gDates, make), read) != gDates) {
        abort();
    }
}
const std::string kFields[] = {"date fields from microseconds/", "microseconds from date fields/"};
const std::string kText[] = {"date: write ISO text/", "date: read ISO text/"};

void addOurs() {
    const auto split = [](CodDate date, CodDateStruct &fields) { codGetDateStruct(date, &fields); };
    const auto join = [](const CodDateStruct &fields, CodDate &date) { codGetDate(&date, &fields); };
    addPair<CodDateStruct>(kFields, "ours", split, join);
    using Iso = std::array<char, COD_DATE_ISO_SIZE>;
    const auto write = [](CodDate date, Iso &iso) {
        CodText text{iso.data(), 0, 0};
        codDateToIso(date, &text, COD_DATE_ISO_SIZE);
    };
    const auto read = [](const Iso &iso, CodDate &date) {
        const CodText text{const_cast<char *>(iso.data()), COD_DATE_ISO_SIZE - 1, 0};
        codDateFromIso(&text, &date);
    };
    addPair<Iso>(kText, "ours", write, read);
}

// std::chrono, and the library that it was made of.
template <class SysDays, class YearMonthDay, class TimeOfDay>
void addChrono(const std::string &who) {
    using Fields = std::pair<YearMonthDay, TimeOfDay>;
    const auto split = [](CodDate date, Fields &fields) {
        const Instant instant{microseconds(date)};
        const SysDays days = floor<typename SysDays::duration>(instant);
        fields = {YearMonthDay(days), TimeOfDay(instant - days)};
    };
    const auto join = [](const Fields &fields, CodDate &date) {
        date = Instant(SysDays(fields.first) + fields.second.to_duration()).time_since_epoch().count();
    };
    addPair<Fields>(kFields, who, split, join);
}

// Whole seconds as a form, with the microseconds beside.
template <class Form>
void addSeconds(const std::string &who, auto make, auto read) {
    using Fields = std::pair<Form, CodInt64>;
    const auto split = [make](CodDate date, Fields &fields) {
        const time_t seconds = floor<std::chrono::seconds>(microseconds(date)).count();
        make(seconds, fields.first);
        fields.second = date - seconds * COD_USECS_PER_SECOND;
    };
    const auto join = [read](const Fields &fields, CodDate &date) { date = read(fields.first) * COD_USECS_PER_SECOND + fields.second; };
    addPair<Fields>(kFields, who, split, join);
}

void addMonths() {
    // Up to ten years towards the middle.
    static constexpr auto kMonths = [](CodDate date) { return -static_cast<CodInt32>(date >> 51); };
    const auto ours = [](CodDate date, CodDate &result) {
        result = date;
        codAddMonths(&result, kMonths(date), true, false, false);
    };
    const auto chrono = [](CodDate date, CodDate &result) {
        const Instant instant{microseconds(date)};
        const std::chrono::sys_days days = floor<std::chrono::days>(instant);
        const auto ymd = std::chrono::year_month_day(days) + std::chrono::months(kMonths(date));
        const std::chrono::sys_days moved = ymd.ok() ? ymd : ymd.year() / ymd.month() / std::chrono::last;
        result = Instant(moved + (instant - days)).time_since_epoch().count();
    };
    if (add<CodDate>("date: add months/ours", gDates, ours) != add<CodDate>("date: add months/peer: std::chrono", gDates, chrono)) {
        abort();
    }
}

[[maybe_unused]] const bool gRegistered = [] {
    static CodTimer timer;
    codStartTimer(&timer);
    add<CodDate>("read the cached clock/ours", gDates, [](CodDate, CodDate &now) { now = codTimerLocalTime(&timer); });
    add<timespec>("read the cached clock/peer: clock_gettime", gDates, [](CodDate, timespec &now) { clock_gettime(CLOCK_REALTIME, &now); });
    addOurs();
    addMonths();
    const auto toTm = [](time_t seconds, tm &fields) { gmtime_r(&seconds, &fields); };
    addSeconds<tm>("peer: gmtime_r, timegm", toTm, [](tm fields) { return timegm(&fields); });
    addChrono<std::chrono::sys_days, std::chrono::year_month_day, std::chrono::hh_mm_ss<microseconds>>("peer: std::chrono");
#ifdef VEL_INFRA_WITH_DATE
    addChrono<date::sys_days, date::year_month_day, date::hh_mm_ss<microseconds>>("peer: Howard Hinnant's date");
#endif
#ifdef VEL_INFRA_WITH_ABSL
    // Civil times without a zone: with the zone UTC they cost more.
    const auto toCivil = [](time_t seconds, absl::CivilSecond &civil) { civil = absl::CivilSecond() + seconds; };
    const auto fromCivil = [](const absl::CivilSecond &civil) { return civil - absl::CivilSecond(); };
    addSeconds<absl::CivilSecond>("peer: absl::CivilSecond", toCivil, fromCivil);
    const absl::TimeZone utc = absl::UTCTimeZone();
    static constexpr char kFormat[] = "%E4Y-%m-%dT%H:%M:%E6S";
    const auto write = [utc](CodDate date, std::string &text) { text = absl::FormatTime(kFormat, absl::FromUnixMicros(date), utc); };
    const auto read = [utc](const std::string &text, CodDate &date) {
        absl::Time time;
        absl::ParseTime(kFormat, text, utc, &time, nullptr);
        date = absl::ToUnixMicros(time);
    };
    addPair<std::string>(kText, "peer: absl::FormatTime, absl::ParseTime", write, read);
#endif
    return true;
}();

}  // namespace
