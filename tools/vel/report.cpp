#include "report.h"

#include <vel_infra/error/ani_error_def.h>

#include "column_figures.h"
#include "printable.h"

namespace vel {

namespace {

constexpr CodUint32 kValueLimit = 72;  // printed bytes of a value

struct PrintedValue {
    char text[kValueLimit + 4];

    PrintedValue(const char *bytes, CodUint32 kept, CodUint32 length) {
        writePrintable({const_cast<char *>(bytes), kept, 0}, kept < length, '"', kValueLimit, text);
    }
};

// "  label                  ~1,234,567": one line per figure, with the label in front for grep and the figure in a column.
void writeLabelled(FILE *out, const char *label, const char *figure) {
    fprintf(out, "  %-15s %15s", label, figure);
}

void writeFigure(FILE *out, const char *label, bool isApproximate, CodUint64 figure) {
    char number[kCountSize];
    char marked[kCountSize + 1];
    snprintf(marked, sizeof(marked), "%s%s", isApproximate ? "~" : "", formatCount(figure, number));
    writeLabelled(out, label, marked);
}

void writeCount(FILE *out, const char *label, CodUint64 count) {
    writeFigure(out, label, false, count);
    fputc('\n', out);
}

void writeLine(FILE *out, const char *label, const char *figure) {
    writeLabelled(out, label, figure);
    fputc('\n', out);
}

void writeFigure(FILE *out, const Figure &figure) {
    char text[COD_NUMBER_TEXT_SIZE];
    switch (figure.kind) {
        case Figure::kCount:
            writeFigure(out, figure.label, figure.isApproximate, figure.count);
            break;
        case Figure::kNumber:
            (void)codNumber2Str(&figure.number, text, sizeof(text));
            writeLabelled(out, figure.label, text);
            break;
        case Figure::kText:
            writeLabelled(out, figure.label, figure.text);
            break;
        case Figure::kBool:
            writeLabelled(out, figure.label, figure.count != 0 ? "yes" : "no");
            break;
        case Figure::kValue:
            writeLabelled(out, figure.label, "");
            break;
        default:
            writeLabelled(out, figure.label, "-");
    }
    if (figure.value.str != nullptr) {
        fprintf(out, "  \"%s\"", PrintedValue(figure.value.str, figure.value.len, figure.valueSize).text);
    }
    if (figure.textRatio > 0) {
        fprintf(out, "  (the text takes %.1f times as much)", figure.textRatio);
    }
    if (figure.note[0] != '\0') {
        fprintf(out, "  (%s)", figure.note);
    }
    fputc('\n', out);
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
    fprintf(out, "column %u \"%s\"\n", column.number, PrintedValue(column.name.str, column.name.len, column.name.len).text);
    const ColumnFigures figures(column.profile);
    for (CodUint32 i = 0; i < figures.count; i++) {
        writeFigure(out, figures.figures[i]);
    }
    for (CodUint32 i = 0; i < figures.commonCount; i++) {
        writeCommon(out, *figures.common[i]);
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
