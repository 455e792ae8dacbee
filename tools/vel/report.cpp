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

void writeExtreme(FILE *out, const char *label, const ColumnProfile &profile, const ExtremeValue &value) {
    if (!profile.hasValues()) {
        fprintf(out, "  %-15s %15s\n", label, "-");
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
