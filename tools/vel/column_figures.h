#ifndef VEL_COLUMN_FIGURES_H
#define VEL_COLUMN_FIGURES_H

#include "table_profile.h"

namespace vel {

// One figure of a column, whatever form the report takes.
struct Figure {
    enum Kind : CodUint8 { kNone, kCount, kNumber, kText, kBool, kValue };

    const char *label;
    Kind kind;            // kNone: the column has no such figure; kValue: it is the value itself
    bool isApproximate;   // of a count
    CodUint64 count;      // kCount; kBool: 0 or 1
    CodNumber number;     // kNumber
    char text[64];        // kText
    CodText value;        // the value that the figure tells of, its beginning at least; str null: none
    CodUint32 valueSize;  // bytes of that value as a whole
    double textRatio;     // how many times as much the text takes; 0: nothing to tell
    char note[64];        // what is to be said of the figure; empty: nothing
};

// The figures of a column in the order of a report. Views the column.
struct ColumnFigures {
    static constexpr CodUint32 kMostCommon = 5;
    static constexpr CodUint32 kMostFigures = 16;

    Figure figures[kMostFigures];
    CodUint32 count = 0;
    const StoredValue *common[kMostCommon];
    CodUint32 commonCount = 0;

    explicit ColumnFigures(const ColumnProfile &profile);

private:
    Figure *add(const char *label);
    void addCount(const char *label, CodUint64 count);
    void addText(const char *label, const char *text);
    void addNumber(const char *label, const CodNumber &number);
    void addBool(const char *label, bool value);
    void addValue(const char *label, const ExtremeValue &value);
    void addExtreme(const char *label, CodUint64 size, const ExtremeValue &value);
    void addType(const NumericProfile &numbers);
    void addNumbers(const NumericProfile &numbers);
    void addBits(const char *label, const IntegerProfile &integers, CodInt32 bits);
    void addIntegers(const IntegerProfile &integers);
    void addDate(const char *label, CodDate date);
    void addSpan(const DateProfile &dates);
    void addDates(const DateProfile &dates);
    void addTexts(const TextProfile &texts);
};

}  // namespace vel

#endif
