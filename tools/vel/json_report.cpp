#include <limits.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_build_array.h>
#include <vel_infra/velon/ani_velon_build_object.h>

#include "column_figures.h"
#include "json_text.h"
#include "printable.h"
#include "report.h"

namespace vel {

namespace {

// Of a value, in UTF-8: with it the report of 4096 columns fits into a document.
constexpr CodUint32 kValueLimit = 256;
// What a name of the longest kind may become.
constexpr CodUint32 kNameLimit = 3 * std::max<CodUint32>(TableProfile::kNameLimit, PATH_MAX);

// "packed_from_min_note": the label's first `length` bytes and a suffix.
struct Key {
    char bytes[48];
    CodText text;

    Key(const char *label, size_t length, const char *suffix)
        : text{bytes, static_cast<CodUint32>(snprintf(bytes, sizeof(bytes), "%.*s%s", static_cast<int>(length), label, suffix)), 0} {
        std::replace(bytes, bytes + text.len, ' ', '_');
    }
    Key(const char *label, const char *suffix) : Key(label, strlen(label), suffix) {}
};

template <CodUint32 kLimit>
CodResult pushText(VelonObjectBuilder *builder, const CodText &key, const CodText &text, bool isCut) {
    char bytes[kLimit + 4];
    const CodText value = {bytes, writeUtf8(text, isCut, kLimit, bytes), 0};
    return velonObjectBuilderPushString(builder, &key, &value);
}

CodResult pushText(VelonObjectBuilder *builder, const char *key, const char *text) {
    return pushText<kNameLimit>(builder, textOf(key), textOf(text), false);
}

CodResult pushCount(VelonObjectBuilder *builder, const char *key, CodUint64 count) {
    const CodText keyText = textOf(key);
    return velonObjectBuilderPushBigint(builder, &keyText, static_cast<CodInt64>(count));
}

// One decimal place, as the text report has it.
CodResult pushRatio(VelonObjectBuilder *builder, const CodText &key, double ratio) {
    char text[64];
    CodNumber number;
    snprintf(text, sizeof(text), "%.1f", ratio);
    COD_TRY(codNumberFromStr(text, &number));
    return velonObjectBuilderPushNumber(builder, &key, &number);
}

bool hasValueBeside(const Figure &figure) {
    return figure.value.str != nullptr && figure.kind != Figure::kValue;
}

CodUint32 countMembers(const Figure &figure) {
    return 1u + figure.isApproximate + hasValueBeside(figure) + (figure.textRatio > 0) + (figure.note[0] != '\0');
}

CodResult pushValue(VelonObjectBuilder *builder, const Key &key, const Figure &figure) {
    return pushText<kValueLimit>(builder, key.text, figure.value, figure.value.len < figure.valueSize);
}

CodResult pushMain(VelonObjectBuilder *builder, const Figure &figure) {
    const Key key(figure.label, "");
    const CodText text = textOf(figure.text);
    switch (figure.kind) {
        case Figure::kCount:
            return velonObjectBuilderPushBigint(builder, &key.text, static_cast<CodInt64>(figure.count));
        case Figure::kNumber:
            return velonObjectBuilderPushNumber(builder, &key.text, &figure.number);
        case Figure::kText:
            return velonObjectBuilderPushString(builder, &key.text, &text);
        case Figure::kBool:
            return velonObjectBuilderPushBool(builder, &key.text, figure.count != 0);
        case Figure::kValue:
            return pushValue(builder, key, figure);
        default:
            return velonObjectBuilderPushNull(builder, &key.text);
    }
}

CodResult pushFigure(VelonObjectBuilder *builder, const Figure &figure) {
    COD_TRY(pushMain(builder, figure));
    if (figure.isApproximate) {
        const Key key(figure.label, "_is_estimate");
        COD_TRY(velonObjectBuilderPushBool(builder, &key.text, true));
    }
    if (hasValueBeside(figure)) {
        // "shortest" of "shortest bytes"; "longest_chars_value", as "longest" is the one of the most bytes
        const char *bytes = strstr(figure.label, " bytes");
        const Key key = bytes != nullptr ? Key(figure.label, static_cast<size_t>(bytes - figure.label), "") : Key(figure.label, "_value");
        COD_TRY(pushValue(builder, key, figure));
    }
    if (figure.textRatio > 0) {
        COD_TRY(pushRatio(builder, Key(figure.label, "_text_ratio").text, figure.textRatio));
    }
    if (figure.note[0] != '\0') {
        const Key key(figure.label, "_note");
        const CodText note = textOf(figure.note);
        COD_TRY(velonObjectBuilderPushString(builder, &key.text, &note));
    }
    return COD_SUCCESS;
}

CodResult pushCommon(VelonArrayBuilder *values, const StoredValue &value) {
    VelonObjectBuilder builder;
    Velon done;
    COD_TRY(velonArrayBuilderPushObject(values, value.missedMax > 0 ? 3 : 2, false, &builder));
    const CodText text = {const_cast<char *>(value.text), value.keptLength(), 0};
    COD_TRY(pushText<kValueLimit>(&builder, textOf("value"), text, text.len < value.length));
    COD_TRY(pushCount(&builder, "count", value.count));
    if (value.missedMax > 0) {
        COD_TRY(pushCount(&builder, "count_at_most", value.count + value.missedMax));
    }
    return velonObjectBuilderFinish(&builder, &done);
}

CodResult pushMostCommon(VelonObjectBuilder *column, const ColumnFigures &figures) {
    const CodText key = textOf("most_common");
    VelonArrayBuilder values;
    Velon done;
    COD_TRY(velonObjectBuilderPushArray(column, &key, static_cast<CodUint16>(figures.commonCount), &values));
    for (CodUint32 i = 0; i < figures.commonCount; i++) {
        COD_TRY(pushCommon(&values, *figures.common[i]));
    }
    return velonArrayBuilderFinish(&values, &done);
}

CodResult pushColumn(VelonArrayBuilder *columns, const TableColumn &column) {
    const ColumnFigures figures(column.profile);
    CodUint32 members = 3;
    for (CodUint32 i = 0; i < figures.count; i++) {
        members += countMembers(figures.figures[i]);
    }
    VelonObjectBuilder builder;
    Velon done;
    COD_TRY(velonArrayBuilderPushObject(columns, static_cast<CodUint16>(members), false, &builder));
    COD_TRY(pushCount(&builder, "column", column.number));
    COD_TRY(pushText<kNameLimit>(&builder, textOf("name"), column.name, false));
    for (CodUint32 i = 0; i < figures.count; i++) {
        COD_TRY(pushFigure(&builder, figures.figures[i]));
    }
    COD_TRY(pushMostCommon(&builder, figures));
    return velonObjectBuilderFinish(&builder, &done);
}

CodResult pushTable(VelonObjectBuilder *report, const TableProfile &table, const char *name) {
    const CodText key = textOf("columns");
    VelonArrayBuilder columns;
    Velon done;
    COD_TRY(velonObjectBuilderPushArray(report, &key, static_cast<CodUint16>(table.selectedCount()), &columns));
    for (CodUint32 i = 0; i < table.selectedCount(); i++) {
        COD_TRY(pushColumn(&columns, table.selected(i)));
    }
    COD_TRY(velonArrayBuilderFinish(&columns, &done));
    COD_TRY(pushCount(report, "rows", table.rows()));
    return pushText(report, "file", name);
}

// The builder is to be freed whatever the result.
CodResult buildReport(VelonObjectBuilder *report, const TableProfile &table, const char *name, Velon *document) {
    COD_TRY(velonObjectBuilderCreate(codMemGetSystemAlloc(), 3, false, 0, report));
    COD_TRY(pushTable(report, table, name));
    return velonObjectBuilderFinish(report, document);
}

}  // namespace

CodResult writeJsonReport(FILE *out, const TableProfile &table, const char *name) {
    VelonObjectBuilder report;
    Velon document;
    velonInit(&document);
    CodResult result = buildReport(&report, table, name, &document);
    velonObjectBuilderFree(&report);
    JsonText text;
    if (result == COD_SUCCESS) {
        result = text.init(document, VELON_JSON_INDENTED);
        velonFree(&document);
    }
    COD_TRY(result);
    text.print(out);
    return COD_SUCCESS;
}

}  // namespace vel
