#include "velon_dump.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstring>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_date_iso.h>
#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_array.h>
#include <vel_infra/velon/ani_velon_data.h>
#include <vel_infra/velon/ani_velon_object.h>
#include <vel_infra/velon/ani_velon_order.h>

#include "output_file.h"
#include "printable.h"
#include "velon_file.h"
#include "work_memory.h"

namespace vel {

namespace {

constexpr CodUint32 kCountAt = kVelonCountAt;
constexpr CodUint32 kTableAt = kCountAt + 2;
constexpr CodUint32 kKeyOffset = 4;     // bytes of an object's table for each member
constexpr CodUint32 kValueEntry = 5;    // the same of an array
constexpr CodUint32 kBytesOfLine = 10;  // shown
constexpr CodUint32 kTextLimit = 40;    // shown of a string
constexpr CodUint32 kMeaningSize = 128;

// "string "abc…", 300 bytes": the length where not all is shown.
CodUint32 describeText(const char *what, const CodText &text, char *meaning) {
    char shown[kTextLimit + 4];
    char size[kUnitsSize + 2] = "";
    writePrintable(text, false, '"', kTextLimit, shown);
    if (text.len > kTextLimit) {
        char bytes[kUnitsSize];
        snprintf(size, sizeof(size), ", %s", formatUnits(text.len, "byte", bytes));
    }
    return static_cast<CodUint32>(snprintf(meaning, kMeaningSize, "%s \"%s\"%s", what, shown, size));
}

void describeTime(CodShortTime time, char *text, size_t size) {
    const CodInt64 seconds = time / 1'000'000;
    snprintf(text, size, "%02ld:%02ld:%02ld.%06ld", seconds / 3600, seconds / 60 % 60, seconds % 60, time % 1'000'000);
}

// What behind the name of the type tells the value; texts are not told here.
void describeFigure(const VelonValue &value, char *text, CodUint32 size) {
    CodText written = {text, 0, 0};
    const auto print = [text, size](auto figure) { *std::to_chars(text, text + size - 1, figure).ptr = '\0'; };
    switch (value.type) {
        case VELON_TYPE_BOOL:
            snprintf(text, size, "%s", value.u.boolean ? "true" : "false");
            break;
        case VELON_TYPE_TINYINT:
            print(int{value.u.tinyint});
            break;
        case VELON_TYPE_SMALLINT:
            print(value.u.smallint);
            break;
        case VELON_TYPE_INTEGER:
            print(value.u.integer);
            break;
        case VELON_TYPE_BIGINT:
            print(value.u.bigint);
            break;
        case VELON_TYPE_FLOAT:
            print(value.u.float32);
            break;
        case VELON_TYPE_DOUBLE:
            print(value.u.float64);
            break;
        case VELON_TYPE_NUMBER:
            (void)codNumber2Str(&value.u.number, text, size);
            break;
        case VELON_TYPE_BINARY:
            formatUnits(value.u.bytes.size, "byte", text);
            break;
        case VELON_TYPE_TIMESTAMP:
        case VELON_TYPE_DATE:
            (void)codDateToIso(value.u.datetime, &written, size);
            break;
        case VELON_TYPE_TIME:
            describeTime(value.u.datetime, text, size);
            break;
        default:  // null has none
            text[0] = '\0';
    }
}

void describeScalar(const VelonValue &value, char *meaning) {
    if (value.type == VELON_TYPE_STRING) {
        describeText("string", value.u.text, meaning);
        return;
    }
    char figure[64];
    static_assert(sizeof(figure) >= COD_NUMBER_TEXT_SIZE && sizeof(figure) >= kUnitsSize);
    describeFigure(value, figure, sizeof(figure));
    snprintf(meaning, kMeaningSize, "%s%s%s", velonTypeName(value.type), figure[0] == '\0' ? "" : " ", figure);
}

// Bytes of a value that is no container, its type byte included.
CodUint32 sizeOfScalar(const CodUint8 *start, const VelonValue &value) {
    const auto sizeOfBytes = [start](const void *bytes, CodUint32 length) {
        return static_cast<CodUint32>(static_cast<const CodUint8 *>(bytes) - start) + length;
    };
    switch (value.type) {
        case VELON_TYPE_STRING:
            return sizeOfBytes(value.u.text.str, value.u.text.len);
        case VELON_TYPE_BINARY:
            return sizeOfBytes(value.u.bytes.data, value.u.bytes.size);
        case VELON_TYPE_NUMBER:
            return 2u + start[1];
        case VELON_TYPE_NULL:
            return 1;
        case VELON_TYPE_BOOL:
        case VELON_TYPE_TINYINT:
            return 2;
        case VELON_TYPE_SMALLINT:
            return 3;
        case VELON_TYPE_INTEGER:
        case VELON_TYPE_FLOAT:
            return 5;
        default:
            return 9;
    }
}

// Places of a container's members, in the order of their bytes.
class Order {
public:
    CodResult init(CodUint32 count) {
        return count == 0 ? COD_SUCCESS : memory_.init(sizeof(CodUint16) * count);
    }
    CodUint16 *places() const {
        return memory_.as<CodUint16>();
    }

private:
    SystemBuffer memory_;
};

// What the entry of an element that does not stand in it holds.
CodUint32 offsetIn(const VelonArray &array, CodUint32 place) {
    CodUint32 offset;
    memcpy(&offset, array.valueEntry + kValueEntry * place + 1, sizeof(offset));
    return offset;
}

// The elements that do not stand in their entries, in the order of their bytes. Returns how many.
CodUint32 sortElements(const VelonArray &array, CodUint16 *places) {
    CodUint32 count = 0;
    for (CodUint32 i = 0; i < array.data.aux; i++) {
        if (!isInlineInVelon(static_cast<VelonType>(array.valueEntry[kValueEntry * i]))) {
            places[count++] = static_cast<CodUint16>(i);
        }
    }
    std::sort(places, places + count, [&array](CodUint16 left, CodUint16 right) { return offsetIn(array, left) < offsetIn(array, right); });
    return count;
}

class Dump {
public:
    Dump(FILE *out, const Velon &document) : out_(out), start_(velonGetDataPtr(&document)), data_(document.data) {}

    CodResult write() {
        fprintf(out_, "offset    %-*s  meaning\n", static_cast<int>(3 * kBytesOfLine - 1), "bytes");
        return writeValue(data_, 0, 0);
    }

private:
    CodUint32 offsetOf(const CodUint8 *bytes) const {
        return static_cast<CodUint32>(bytes - start_);
    }
    void writeLine(const CodUint8 *bytes, CodUint32 size, CodUint32 level, const char *format, ...) __attribute__((format(printf, 5, 6)));
    void writeBytes(const CodUint8 *bytes, CodUint32 size);
    void writeUnusedUpTo(CodUint32 offset, CodUint32 level);
    bool isShown(const CodUint8 *bytes, CodUint32 level);
    CodResult writeValue(const VelonData &data, CodUint32 pos, CodUint32 level);
    void writeHead(const VelonData &container, const char *member, CodUint32 level);
    CodResult writeObject(const VelonObject &object, CodUint32 level);
    CodResult writeKeyOffsets(const VelonObject &object, CodUint32 level);
    CodResult writeMembers(const VelonObject &object, CodUint32 level);
    CodResult writeArray(const VelonArray &array, CodUint32 level);
    CodResult writeEntry(const VelonArray &array, CodUint32 index, CodUint32 level);
    CodResult writeElements(const VelonArray &array, CodUint32 level);

    FILE *out_;
    const CodUint8 *start_;
    VelonData data_;
    CodUint32 next_ = 0;  // the offset behind all bytes that have been shown
};

// At most kBytesOfLine of them, filled up to the width of as many.
void Dump::writeBytes(const CodUint8 *bytes, CodUint32 size) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    char text[3 * kBytesOfLine + 2];
    const bool isCut = size > kBytesOfLine;
    const CodUint32 shown = isCut ? kBytesOfLine - 1 : size;
    memset(text, ' ', sizeof(text));
    for (CodUint32 i = 0; i < shown; i++) {
        text[3 * i] = kDigits[bytes[i] >> 4];
        text[3 * i + 1] = kDigits[bytes[i] & 15];
    }
    if (isCut) {
        text[3 * shown] = '.';
        text[3 * shown + 1] = '.';
    }
    fwrite(text, 1, 3 * kBytesOfLine + 1, out_);
}

void Dump::writeLine(const CodUint8 *bytes, CodUint32 size, CodUint32 level, const char *format, ...) {
    fprintf(out_, "%08X  ", offsetOf(bytes));
    writeBytes(bytes, size);
    fprintf(out_, "%*s", static_cast<int>(2 * level), "");
    va_list arguments;
    va_start(arguments, format);
    vfprintf(out_, format, arguments);
    va_end(arguments);
    fputc('\n', out_);
    next_ = std::max(next_, offsetOf(bytes) + size);
}

void Dump::writeUnusedUpTo(CodUint32 offset, CodUint32 level) {
    if (offset > next_) {
        char bytes[kUnitsSize];
        writeLine(start_ + next_, offset - next_, level, "unused, %s", formatUnits(offset - next_, "byte", bytes));
    }
}

// Bytes that were shown as part of something else are not shown again, nor what they lead to.
bool Dump::isShown(const CodUint8 *bytes, CodUint32 level) {
    writeUnusedUpTo(offsetOf(bytes), level);
    if (offsetOf(bytes) == next_) {
        return false;
    }
    writeLine(bytes, 0, level, "shown above");
    return true;
}

CodResult Dump::writeValue(const VelonData &data, CodUint32 pos, CodUint32 level) {
    if (ferror(out_) != 0) {
        return raiseWriteError("standard output");
    }
    if (isShown(data.ptr + pos, level)) {
        return COD_SUCCESS;
    }
    VelonValue value;
    COD_TRY(velonDataReadValue(&data, pos, &value));
    if (value.type == VELON_TYPE_OBJECT) {
        return writeObject(value.u.object, level);
    }
    if (value.type == VELON_TYPE_ARRAY) {
        return writeArray(value.u.array, level);
    }
    char meaning[kMeaningSize];
    describeScalar(value, meaning);
    writeLine(data.ptr + pos, sizeOfScalar(data.ptr + pos, value), level, "%s", meaning);
    return COD_SUCCESS;
}

void Dump::writeHead(const VelonData &container, const char *member, CodUint32 level) {
    char text[kUnitsSize];
    writeLine(container.ptr, kCountAt, level, "%s, %s in all", velonTypeName(static_cast<VelonType>(container.ptr[0])),
              formatUnits(container.len, "byte", text));
    writeLine(container.ptr + kCountAt, kTableAt - kCountAt, level + 1, "%s", formatUnits(container.aux, member, text));
}

CodResult Dump::writeKeyOffsets(const VelonObject &object, CodUint32 level) {
    VelonObjectIter iter = velonObjectIterNew(&object);
    CodBool isThere = false;
    CodText key;
    for (CodUint32 i = 0; velonObjectIterHasNext(&iter); i++) {
        COD_TRY(velonObjectIterNextKey(&iter, &isThere, &key));
        char meaning[kMeaningSize];
        describeText("key", key, meaning);
        const auto *record = reinterpret_cast<const CodUint8 *>(key.str) - sizeof(CodUint16);
        writeLine(object.keyOffsets + kKeyOffset * i, kKeyOffset, level, "%s at %08X", meaning, offsetOf(record));
    }
    return COD_SUCCESS;
}

CodResult Dump::writeMembers(const VelonObject &object, CodUint32 level) {
    Order order;
    VelonOrderedIter iter;
    COD_TRY(order.init(object.data.aux));
    COD_TRY(velonOrderedIterNew(&object, order.places(), object.data.aux, &iter));
    while (velonOrderedIterHasNext(&iter)) {
        CodBool isThere = false;
        CodText key;
        VelonLazyValue value;
        COD_TRY(velonOrderedIterNext(&iter, &isThere, &key, &value));
        const auto *record = reinterpret_cast<const CodUint8 *>(key.str) - sizeof(CodUint16);
        if (!isShown(record, level)) {
            char meaning[kMeaningSize];
            describeText("key", key, meaning);
            writeLine(record, static_cast<CodUint32>(sizeof(CodUint16)) + key.len, level, "%s", meaning);
        }
        COD_TRY(writeValue(value.data, 0, level + 1));
    }
    return COD_SUCCESS;
}

CodResult Dump::writeObject(const VelonObject &object, CodUint32 level) {
    writeHead(object.data, "member", level);
    COD_TRY(writeKeyOffsets(object, level + 1));
    COD_TRY(writeMembers(object, level + 1));
    writeUnusedUpTo(offsetOf(object.data.ptr) + object.data.len, level + 1);
    return COD_SUCCESS;
}

CodResult Dump::writeEntry(const VelonArray &array, CodUint32 index, CodUint32 level) {
    VelonType type = VELON_TYPE_INVALID;
    CodUint32 word = 0;
    COD_TRY(velonArrayGetValueEntry(&array, static_cast<CodInt32>(index), &type, &word));
    char meaning[kMeaningSize];
    if (isInlineInVelon(type)) {
        VelonValue value;
        COD_TRY(velonArrayGetValue(&array, static_cast<CodInt32>(index), &value));
        describeScalar(value, meaning);
    } else {
        snprintf(meaning, sizeof(meaning), "%s at %08X", velonTypeName(type), offsetOf(array.data.ptr) + kCountAt + word);
    }
    writeLine(array.valueEntry + kValueEntry * index, kValueEntry, level, "[%u] %s", index, meaning);
    return COD_SUCCESS;
}

CodResult Dump::writeElements(const VelonArray &array, CodUint32 level) {
    Order order;
    COD_TRY(order.init(array.data.aux));
    const CodUint32 count = sortElements(array, order.places());
    for (CodUint32 i = 0; i < count; i++) {
        COD_TRY(writeValue(array.data, kCountAt + offsetIn(array, order.places()[i]), level));
    }
    return COD_SUCCESS;
}

CodResult Dump::writeArray(const VelonArray &array, CodUint32 level) {
    writeHead(array.data, "element", level);
    for (CodUint32 i = 0; i < array.data.aux; i++) {
        COD_TRY(writeEntry(array, i, level + 1));
    }
    COD_TRY(writeElements(array, level + 1));
    writeUnusedUpTo(offsetOf(array.data.ptr) + array.data.len, level + 1);
    return COD_SUCCESS;
}

}  // namespace

CodResult writeVelonDump(FILE *out, const Velon &document) {
    return Dump(out, document).write();
}

}  // namespace vel
