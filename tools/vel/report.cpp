#include "report.h"

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

void writeColumn(FILE *out, const TableColumn &column) {
    const ColumnProfile &profile = column.profile;
    fprintf(out, "column %u \"%s\"\n", column.number, PrintedValue(column.name.str, column.name.len, column.name.len).text);
    writeFigure(out, "rows", false, profile.rows());
    fputc('\n', out);
    writeFigure(out, "empty", false, profile.empties());
    fputc('\n', out);
    writeFigure(out, "distinct", !profile.values().isExact(), profile.distinct());
    fputc('\n', out);
    writeExtreme(out, "shortest bytes", profile, profile.shortest());
    writeExtreme(out, "longest bytes", profile, profile.longest());
    if (profile.numbers().isNumeric()) {
        writeNumbers(out, profile.numbers());
    }
    const StoredValue *common[kMostCommon];
    const CodUint32 count = profile.values().mostCommon(common, kMostCommon);
    for (CodUint32 i = 0; i < count; i++) {
        writeCommon(out, *common[i]);
    }
    fputc('\n', out);
}

}  // namespace

void writeReport(FILE *out, const TableProfile &table, const char *name) {
    for (CodUint32 i = 0; i < table.selectedCount(); i++) {
        writeColumn(out, table.selected(i));
    }
    char rows[kCountSize];
    char columns[kCountSize];
    fprintf(out, "%s row%s, %s column%s, %s\n", formatCount(table.rows(), rows), table.rows() == 1 ? "" : "s",
            formatCount(table.selectedCount(), columns), table.selectedCount() == 1 ? "" : "s", name);
}

}  // namespace vel
