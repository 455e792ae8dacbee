#include "column_figures.h"

#include <cstdio>

#include <vel_infra/utils/ani_date_iso.h>
#include <vel_infra/utils/ani_interval.h>

#include "printable.h"

namespace vel {

Figure *ColumnFigures::add(const char *label) {
    Figure *figure = &figures[count++];
    *figure = {};
    figure->label = label;
    return figure;
}

void ColumnFigures::addCount(const char *label, CodUint64 value) {
    Figure *figure = add(label);
    figure->kind = Figure::kCount;
    figure->count = value;
}

void ColumnFigures::addText(const char *label, const char *text) {
    Figure *figure = add(label);
    figure->kind = Figure::kText;
    snprintf(figure->text, sizeof(figure->text), "%s", text);
}

void ColumnFigures::addNumber(const char *label, const CodNumber &number) {
    Figure *figure = add(label);
    figure->kind = Figure::kNumber;
    figure->number = number;
}

void ColumnFigures::addBool(const char *label, bool value) {
    Figure *figure = add(label);
    figure->kind = Figure::kBool;
    figure->count = value;
}

void ColumnFigures::addValue(const char *label, const ExtremeValue &value) {
    Figure *figure = add(label);
    figure->kind = Figure::kValue;
    figure->value = {const_cast<char *>(value.text), value.kept, 0};
    figure->valueSize = value.length;
}

// A size of 0: there is no such value.
void ColumnFigures::addExtreme(const char *label, CodUint64 size, const ExtremeValue &value) {
    if (size == 0) {
        add(label);
        return;
    }
    addValue(label, value);
    figures[count - 1].kind = Figure::kCount;
    figures[count - 1].count = size;
}

void ColumnFigures::addType(const NumericProfile &numbers) {
    Figure *figure = add("type");
    const CodInt32 precision = numbers.precision();
    if (precision > COD_NUMBER_DIGITS) {
        snprintf(figure->note, sizeof(figure->note), "%d digits needed, NUMBER has %d", precision, COD_NUMBER_DIGITS);
        return;
    }
    figure->kind = Figure::kText;
    snprintf(figure->text, sizeof(figure->text), "NUMBER(%d,%d)", precision, numbers.scale());
}

void ColumnFigures::addNumbers(const NumericProfile &numbers) {
    addType(numbers);
    addNumber("minimum", numbers.minimum());
    addNumber("maximum", numbers.maximum());
    bool isExact = false;
    Figure *sum = add("sum");
    const bool hasSum = numbers.sum(&sum->number, &isExact);
    sum->kind = hasSum ? Figure::kNumber : Figure::kNone;
    snprintf(sum->note, sizeof(sum->note), "%s", !hasSum ? "cannot be held exactly" : isExact ? "" : "rounded");
    Figure *mean = add("mean");
    mean->kind = numbers.mean(&mean->number) ? Figure::kNumber : Figure::kNone;
}

void ColumnFigures::addBits(const char *label, const IntegerProfile &integers, CodInt32 bits) {
    Figure *figure = add(label);
    if (bits == IntegerProfile::kNotPackable) {
        return;
    }
    figure->kind = Figure::kCount;
    figure->count = static_cast<CodUint64>(bits);
    if (bits > 0) {
        figure->textRatio = integers.ratioOfText(bits);
    } else {
        snprintf(figure->note, sizeof(figure->note), "all values are equal");
    }
}

void ColumnFigures::addIntegers(const IntegerProfile &integers) {
    addBits("packed bits", integers, integers.bits());
    addBits("packed from min", integers, integers.bitsFromMinimum());
    addBits("packed as steps", integers, integers.bitsOfSteps());
}

void ColumnFigures::addDate(const char *label, CodDate date) {
    char text[COD_DATE_ISO_SIZE];
    CodText written = {text, 0, 0};
    (void)codDateToIso(date, &written, sizeof(text));
    addText(label, text);
}

void ColumnFigures::addSpan(const DateProfile &dates) {
    CodDSInterval span = 0;
    (void)codIntervalBetweenDate(dates.latest(), dates.earliest(), &span);
    if (dates.hasTimes()) {
        char text[COD_DS_INTERVAL_TEXT_SIZE];
        CodText written = {text, 0, 0};
        (void)codDSInterval2Text(span, &written, sizeof(text));
        addText("span", text);
    } else {
        char text[kUnitsSize];
        addText("span", formatUnits(static_cast<CodUint64>(span / COD_USECS_PER_DAY), "day", text));
    }
}

void ColumnFigures::addDates(const DateProfile &dates) {
    addText("type", dates.hasTimes() ? "TIMESTAMP" : "DATE");
    Figure *type = &figures[count - 1];
    snprintf(type->note, sizeof(type->note), "%s",
             dates.mixesZones() ? "with and without zone"
             : dates.hasZones() ? "with zone, shown in UTC"
                                : "");
    addDate("earliest", dates.earliest());
    addDate("latest", dates.latest());
    addSpan(dates);
}

void ColumnFigures::addTexts(const TextProfile &texts) {
    addBool("valid utf8", texts.isValid());
    if (!texts.isValid()) {
        addCount("invalid row", texts.firstInvalidRow());
    }
    addExtreme("longest chars", texts.isValid() ? texts.longestCharacters() : 0, texts.longest());
    addValue("minimum", texts.minimum());
    addValue("maximum", texts.maximum());
}

ColumnFigures::ColumnFigures(const ColumnProfile &profile) {
    addCount("rows", profile.rows());
    addCount("empty", profile.empties());
    addCount("distinct", profile.distinct());
    figures[count - 1].isApproximate = !profile.values().isExact();
    addExtreme("shortest bytes", profile.shortest().length, profile.shortest());
    addExtreme("longest bytes", profile.longest().length, profile.longest());
    if (profile.numbers().isNumeric()) {
        addNumbers(profile.numbers());
        if (profile.integers().isIntegers()) {
            addIntegers(profile.integers());
        }
    } else if (profile.dates().isDates()) {
        addDates(profile.dates());
    } else if (profile.hasValues()) {
        addTexts(profile.texts());
    }
    commonCount = profile.values().mostCommon(common, kMostCommon);
}

}  // namespace vel
