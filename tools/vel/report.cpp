#include "report.h"

#include <vel_infra/error/ani_error_def.h>
#include <vel_infra/utils/ani_date_iso.h>
#include <vel_infra/utils/ani_interval.h>

#include "printable.h"

namespace vel {

namespace {

constexpr CodUint32 kMostCommon = 5;
constexpr CodUint32 kValueLimit = 72;  // printed bytes of a value

struct PrintedValue {
    char text[kValueLimit + 4];

    PrintedValue(const char *bytes, CodUint32 kept, CodUint32 length) {
        writePrintable({const_cast<char *>(bytes), kept, 0}, kept < length, '"', kValueLimit, text);
    }
};

// "  label                  ~1,234,567": one line per figure, with the label in front for grep and the figure in a column.
void writeFigure(FILE *out, const char *label, bool isApproximate, CodUint64 figure) {
    char number[kCountSize];
    char marked[kCountSize + 1];
    snprintf(marked, sizeof(marked), "%s%s", isApproximate ? "~" : "", formatCount(figure, number));
    fprintf(out, "  %-15s %15s", label, marked);
}

void writeCount(FILE *out, const char *label, CodUint64 count) {
    writeFigure(out, label, false, count);
    fputc('\n', out);
}

// A figure that is no count, with what is to be said of it.
void writeLine(FILE *out, const char *label, const char *figure, const char *note = "") {
    fprintf(out, "  %-15s %15s%s\n", label, figure, note);
}

void writeExtreme(FILE *out, const char *label, const ColumnProfile &profile, const ExtremeValue &value) {
    if (!profile.hasValues()) {
        writeLine(out, label, "-");
        return;
    }
    writeFigure(out, label, false, value.length);
    fprintf(out, "  \"%s\"\n", PrintedValue(value.text, value.kept, value.length).text);
}

void writeCommon(FILE *out, const StoredValue &value) {
    writeFigure(out, "most common", value.missedMax > 0, value.count);
    fprintf(out, "  \"%s\"", PrintedValue(value.text, value.keptLength(), value.length).text);
    if (value.missedMax > 0) {
        char number[kCountSize];
        fprintf(out, "  (at most %s)", formatCount(value.count + value.missedMax, number));
    }
    fputc('\n', out);
}

void writeNumber(FILE *out, const char *label, const CodNumber &number, const char *note = "") {
    char text[COD_NUMBER_TEXT_SIZE];
    (void)codNumber2Str(&number, text, sizeof(text));
    writeLine(out, label, text, note);
}

void writeType(FILE *out, const NumericProfile &numbers) {
    char text[64];
    const CodInt32 precision = numbers.precision();
    if (precision > COD_NUMBER_DIGITS) {
        snprintf(text, sizeof(text), "  (%d digits needed, NUMBER has %d)", precision, COD_NUMBER_DIGITS);
        writeLine(out, "type", "-", text);
        return;
    }
    snprintf(text, sizeof(text), "NUMBER(%d,%d)", precision, numbers.scale());
    writeLine(out, "type", text);
}

void writeNumbers(FILE *out, const NumericProfile &numbers) {
    writeType(out, numbers);
    writeNumber(out, "minimum", numbers.minimum());
    writeNumber(out, "maximum", numbers.maximum());
    CodNumber number;
    bool isExact = false;
    if (numbers.sum(&number, &isExact)) {
        writeNumber(out, "sum", number, isExact ? "" : "  (rounded)");
    } else {
        writeLine(out, "sum", "-", "  (cannot be held exactly)");
    }
    if (numbers.mean(&number)) {
        writeNumber(out, "mean", number);
    } else {
        writeLine(out, "mean", "-");
    }
}

void writeBits(FILE *out, const char *label, const IntegerProfile &integers, CodInt32 bits) {
    if (bits == IntegerProfile::kNotPackable) {
        writeLine(out, label, "-");
        return;
    }
    char note[64] = "  (all values are equal)";
    if (bits > 0) {
        snprintf(note, sizeof(note), "  (the text takes %.1f times as much)", integers.ratioOfText(bits));
    }
    writeFigure(out, label, false, static_cast<CodUint64>(bits));
    fprintf(out, "%s\n", note);
}

void writeIntegers(FILE *out, const IntegerProfile &integers) {
    writeBits(out, "packed bits", integers, integers.bits());
    writeBits(out, "packed from min", integers, integers.bitsFromMinimum());
    writeBits(out, "packed as steps", integers, integers.bitsOfSteps());
}

void writeDate(FILE *out, const char *label, CodDate date) {
    char text[COD_DATE_ISO_SIZE];
    CodText written = {text, 0, 0};
    (void)codDateToIso(date, &written, sizeof(text));
    writeLine(out, label, text);
}

void writeSpan(FILE *out, const DateProfile &dates) {
    CodDSInterval span = 0;
    (void)codIntervalBetweenDate(dates.latest(), dates.earliest(), &span);
    if (dates.hasTimes()) {
        char text[COD_DS_INTERVAL_TEXT_SIZE];
        CodText written = {text, 0, 0};
        (void)codDSInterval2Text(span, &written, sizeof(text));
        writeLine(out, "span", text);
    } else {
        char text[kUnitsSize];
        writeLine(out, "span", formatUnits(static_cast<CodUint64>(span / COD_USECS_PER_DAY), "day", text));
    }
}

void writeDates(FILE *out, const DateProfile &dates) {
    const char *zones = dates.mixesZones() ? "  (with and without zone)" : dates.hasZones() ? "  (with zone, shown in UTC)" : "";
    writeLine(out, "type", dates.hasTimes() ? "TIMESTAMP" : "DATE", zones);
    writeDate(out, "earliest", dates.earliest());
    writeDate(out, "latest", dates.latest());
    writeSpan(out, dates);
}

void writeColumn(FILE *out, const TableColumn &column) {
    const ColumnProfile &profile = column.profile;
    fprintf(out, "column %u \"%s\"\n", column.number, PrintedValue(column.name.str, column.name.len, column.name.len).text);
    writeCount(out, "rows", profile.rows());
    writeCount(out, "empty", profile.empties());
    writeFigure(out, "distinct", !profile.values().isExact(), profile.distinct());
    fputc('\n', out);
    writeExtreme(out, "shortest bytes", profile, profile.shortest());
    writeExtreme(out, "longest bytes", profile, profile.longest());
    if (profile.numbers().isNumeric()) {
        writeNumbers(out, profile.numbers());
        if (profile.integers().isIntegers()) {
            writeIntegers(out, profile.integers());
        }
    } else if (profile.dates().isDates()) {
        writeDates(out, profile.dates());
    }
    const StoredValue *common[kMostCommon];
    const CodUint32 count = profile.values().mostCommon(common, kMostCommon);
    for (CodUint32 i = 0; i < count; i++) {
        writeCommon(out, *common[i]);
    }
    fputc('\n', out);
}

void writeLines(FILE *out, const char *label, const LogLines &lines, const char *note) {
    writeFigure(out, label, false, lines.count);
    fprintf(out, "  %s  %s%s%s\n", lines.earliest, lines.latest, note[0] == '\0' ? "" : "  ", note);
}

void writeCode(FILE *out, const LogCode &code) {
    char label[32];
    snprintf(label, sizeof(label), "VEL-%05d", code.code);
    const CodErrDef *def = codFindErrorDef(static_cast<CodError>(code.code));
    writeLines(out, label, code.lines, def == nullptr ? "-" : def->name);
}

}  // namespace

void writeReport(FILE *out, const TableProfile &table, const char *name) {
    for (CodUint32 i = 0; i < table.selectedCount(); i++) {
        writeColumn(out, table.selected(i));
    }
    char rows[kUnitsSize];
    char columns[kUnitsSize];
    fprintf(out, "%s, %s, %s\n", formatUnits(table.rows(), "row", rows), formatUnits(table.selectedCount(), "column", columns), name);
}

void writeLogReport(FILE *out, const LogProfile &log, const char *name) {
    writeLine(out, "first", log.all().earliest);
    writeLine(out, "last", log.all().latest);
    for (int level = COD_LOG_LEVEL_TRACE; level < LogProfile::kLevelEnd; level++) {
        if (log.level(level).count > 0) {
            writeLines(out, codGetLogLevelDesc(static_cast<CodLogLevel>(level)), log.level(level), "");
        }
    }
    writeCount(out, "other lines", log.otherLines());
    for (CodUint32 i = 0; i < log.codeCount(); i++) {
        writeCode(out, log.code(i));
    }
    if (log.linesOfOtherCodes() > 0) {
        writeCount(out, "other codes", log.linesOfOtherCodes());
    }
    char lines[kUnitsSize];
    fprintf(out, "\n%s, %s\n", formatUnits(log.rows(), "line", lines), name);
}

}  // namespace vel
