#include <cstdio>
#include <cstring>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon_array.h>
#include <vel_infra/velon/ani_velon_object.h>
#include <vel_infra/velon/ani_velon_path.h>

#include "commands.h"
#include "json_text.h"
#include "output_file.h"
#include "velon_dump.h"
#include "velon_file.h"

namespace vel {

namespace {

CodResult countValues(const VelonValue &value, CodUint64 *count) {
    (*count)++;
    CodBool isThere = false;
    VelonValue child;
    if (value.type == VELON_TYPE_OBJECT) {
        for (VelonObjectIter iter = velonObjectIterNew(&value.u.object); velonObjectIterHasNext(&iter);) {
            COD_TRY(velonObjectIterNextValue(&iter, &isThere, &child));
            COD_TRY(countValues(child, count));
        }
    } else if (value.type == VELON_TYPE_ARRAY) {
        for (VelonArrayIter iter = velonArrayIterNew(&value.u.array); velonArrayIterHasNext(&iter);) {
            COD_TRY(velonArrayIterNextValue(&iter, &isThere, &child));
            COD_TRY(countValues(child, count));
        }
    }
    return COD_SUCCESS;
}

// "object, 7 values, 84 bytes", without a line end.
CodResult printSummary(const Velon &document, WorkDone *done) {
    VelonValue root;
    CodUint64 count = 0;
    COD_TRY(velonGetValue(&document, &root));
    COD_TRY(countValues(root, &count));
    char values[kUnitsSize];
    char bytes[kUnitsSize];
    printf("%s, %s, %s", velonTypeName(root.type), formatUnits(count, "value", values),
           formatUnits(velonGetDataLength(&document), "byte", bytes));
    *done = {count, "value"};
    return COD_SUCCESS;
}

CodResult writeFile(const char *path, const void *bytes, CodUint64 size, const char *end) {
    OutputFile output(path);
    COD_TRY(output.create());
    COD_TRY(output.append(bytes, size));
    COD_TRY(output.append(end, strlen(end)));
    return output.finish();
}

CodResult makeText(const VelonFile &file, const Velon &document, CodUint32 flags, JsonText *text) {
    return text->init(document, flags) == COD_SUCCESS ? COD_SUCCESS : file.raiseAgain();
}

CodResult readFile(const JsonCommand &command, VelonFile *file) {
    return command.isText ? file->readJson() : file->readDocument();
}

// A value found in a document, as a document of its own, which views it. An inline element stands in no encoding but its entry's.
class ValueView {
public:
    explicit ValueView(const VelonLazyValue &value) : data_(value.data) {
        if (value.isArrayMember) {
            viewElement(value);
        }
    }
    ValueView(const ValueView &) = delete;
    ValueView &operator=(const ValueView &) = delete;

    Velon document() const {
        return velonNew(nullptr, &data_);
    }

private:
    void viewElement(const VelonLazyValue &value);

    VelonData data_;
    CodUint8 entry_[5] = {};
};

void ValueView::viewElement(const VelonLazyValue &value) {
    if (isInlineInVelon(value.type)) {
        entry_[0] = static_cast<CodUint8>(value.type);
        memcpy(entry_ + 1, &value.valuePos, sizeof(value.valuePos));
        data_ = {entry_, sizeof(entry_), 0};
    } else {
        const CodUint32 offset = kVelonCountAt + value.valuePos;
        data_ = {value.data.ptr + offset, value.data.len - offset, 0};
    }
}

}  // namespace

CodResult runJsonCheck(const JsonCommand &command, WorkDone *done) {
    VelonFile file(command.file);
    COD_TRY(file.readDocument());
    COD_TRY(printSummary(file.document(), done));
    printf(", %s\n", file.name());
    return COD_SUCCESS;
}

CodResult runJsonEncode(const JsonCommand &command, WorkDone *done) {
    VelonFile file(command.file);
    COD_TRY(file.readJson());
    const Velon &document = file.document();
    COD_TRY(writeFile(command.output, velonGetDataPtr(&document), velonGetDataLength(&document), ""));
    COD_TRY(printSummary(document, done));
    printf(", %.2f of the text, %s\n", static_cast<double>(velonGetDataLength(&document)) / static_cast<double>(file.fileSize()),
           PrintableName(command.output).str());
    return COD_SUCCESS;
}

CodResult runJsonDecode(const JsonCommand &command, WorkDone *done) {
    VelonFile file(command.file);
    JsonText text;
    COD_TRY(file.readDocument());
    const int flags = (command.isIndented ? VELON_JSON_INDENTED : VELON_JSON_COMPACT) |
                      (command.hasTypedDoubles ? VELON_JSON_TYPED_DOUBLES : VELON_JSON_COMPACT);
    COD_TRY(makeText(file, file.document(), static_cast<CodUint32>(flags), &text));
    if (command.output != nullptr) {
        COD_TRY(writeFile(command.output, text.text().str, text.text().len, "\n"));
    } else {
        text.print(stdout);
    }
    *done = {file.fileSize(), "byte"};
    return COD_SUCCESS;
}

CodResult runJsonGet(const JsonCommand &command, WorkDone *done) {
    VelonFile file(command.file);
    COD_TRY(readFile(command, &file));
    VelonLazyValue value;
    const CodText path = textOf(command.path);
    if (velonGetPath(&file.document(), &path, &value) != COD_SUCCESS) {
        return file.raiseAgain();
    }
    JsonText text;
    const ValueView view(value);
    COD_TRY(makeText(file, view.document(), VELON_JSON_COMPACT, &text));
    text.print(stdout);
    *done = {1, "value"};
    return COD_SUCCESS;
}

CodResult runJsonDump(const JsonCommand &command, WorkDone *done) {
    VelonFile file(command.file);
    COD_TRY(readFile(command, &file));
    COD_TRY(writeVelonDump(stdout, file.document()));
    *done = {velonGetDataLength(&file.document()), "byte"};
    return COD_SUCCESS;
}

}  // namespace vel
