// Documents as JSON text. Every function that writes takes the place to write at and returns the place behind what it wrote, or null.

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <type_traits>

#include <vel_infra/utils/ani_date_iso.h>
#include <vel_infra/velon/ani_velon_json.h>

#include "base/cod_utf8.h"
#include "number/ani_decimal_text_internal.h"
#include "utils/ani_field_text_internal.h"
#include "velon/ani_velon_base_internal.h"
#include "velon/ani_velon_json_internal.h"

namespace cod::velon {
namespace {

// Room that is there whenever a member or element begins: a line's beginning, every scalar but strings and binaries, and what is written
// beyond the end.
constexpr CodUint32 kRoom = 512;

// ---- Scalars, in room that is there ----

char *putText(char *out, const char *text, CodUint32 length) {
    memcpy(out, text, length);
    return out + length;
}

char *putZeros(char *out, CodInt32 count) {
    memset(out, '0', static_cast<CodUint64>(count));
    return out + count;
}

// The digits of a value below 10^8, without a branch for their number.
char *putEight(char *out, CodUint32 value) {
    const __m128i lanes = eightDigits(value);
    const auto digits = static_cast<CodUint64>(_mm_cvtsi128_si64(_mm_packus_epi16(lanes, lanes)));
    const CodUint32 zeros = static_cast<CodUint32>(__builtin_ctzll(digits | CodUint64{1} << 56)) / 8;
    const CodUint64 text = (digits | 0x3030303030303030) >> 8 * zeros;
    memcpy(out, &text, sizeof(text));
    return out + 8 - zeros;
}

char *putInteger(char *out, CodInt64 value) {
    constexpr CodUint64 limit = 100000000;
    const CodUint64 magnitude = value < 0 ? 0 - static_cast<CodUint64>(value) : static_cast<CodUint64>(value);
    *out = '-';
    out += value < 0;
    return magnitude < limit ? putEight(out, static_cast<CodUint32>(magnitude)) : std::to_chars(out, out + kRoom, magnitude).ptr;
}

// d.ddde±xx without its point and exponent.
struct Scientific {
    char digits[32];
    CodInt32 count = 0;
    CodInt32 exp = 0;  // of the first digit

    template <class Float>
    explicit Scientific(Float magnitude) {
        char text[32];
        const char *end = std::to_chars(text, text + sizeof(text), magnitude, std::chars_format::scientific).ptr;
        const char *next = text;
        for (; *next != 'e'; next++) {
            if (*next != '.') {
                digits[count++] = *next;
            }
        }
        // The sign of the exponent is always written; from_chars does not take a plus.
        std::from_chars(next + 2, end, exp);
        exp = next[1] == '-' ? -exp : exp;
    }

    // As plain digits, with zeros for what is missing up to the point.
    char *put(char *out) const {
        if (exp < 0) {
            out = putZeros(putText(out, "0.", 2), -exp - 1);
            return putText(out, digits, static_cast<CodUint32>(count));
        }
        const CodInt32 whole = std::min(count, exp + 1);
        out = putText(out, digits, static_cast<CodUint32>(whole));
        if (whole == count) {
            return putZeros(out, exp + 1 - count);
        }
        *out++ = '.';
        return putText(out, digits + whole, static_cast<CodUint32>(count - whole));
    }
};

template <class Float>
char *putFloat(char *out, Float value, bool isTyped) {
    if (isTyped) {
        const Scientific parts(std::abs(value));
        const CodInt32 magnitude = parts.exp + 1;
        // Where a NUMBER could hold the value, it would be taken for one.
        if (value == 0 || (magnitude >= COD_NUMBER_MIN_MAGNITUDE && magnitude <= COD_NUMBER_MAX_MAGNITUDE)) {
            *out = '-';
            return putText(parts.put(out + std::signbit(value)), "E0", 2);
        }
    }
    // From here on plain digits would be all of the integer's, which are more than it takes.
    constexpr Float large = 2 / std::numeric_limits<Float>::epsilon();
    char *end = out + kRoom;
    return std::abs(value) < large ? std::to_chars(out, end, value).ptr : std::to_chars(out, end, value, std::chars_format::scientific).ptr;
}

char *putTimeOfDay(char *out, CodShortTime time) {
    const auto fraction = static_cast<CodUint32>(time % COD_USECS_PER_SECOND);
    const auto seconds = static_cast<CodUint32>(time / COD_USECS_PER_SECOND);
    out = putTime(out, seconds / 3600, seconds / 60 % 60, seconds % 60);
    return fraction != 0 ? putSix(putChar(out, '.'), fraction) : out;
}

constexpr char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

char *putBase64(char *out, const CodUint8 *bytes, CodUint32 size) {
    const auto putSextets = [&](CodUint32 bits) {
        for (CodUint32 shift = 24; shift != 0; shift -= 6) {
            *out++ = kBase64[bits >> (shift - 6) & 0x3F];
        }
    };
    for (; size >= 3; size -= 3, bytes += 3) {
        putSextets(CodUint32{bytes[0]} << 16 | CodUint32{bytes[1]} << 8 | bytes[2]);
    }
    if (size != 0) {
        putSextets(CodUint32{bytes[0]} << 16 | (size > 1 ? CodUint32{bytes[1]} << 8 : 0));
        memset(out - (3 - size), '=', 3 - size);
    }
    return out;
}

char *putEscape(char *out, CodUint8 c) {
    constexpr char kHex[] = "0123456789abcdef";
    const auto letter = static_cast<char>(kEscapeLetters.to[c]);
    *out++ = '\\';
    if (letter != 0) {
        return putChar(out, letter);
    }
    out = putText(out, "u00", 3);
    return putChar(putChar(out, kHex[c >> 4]), kHex[c & 0xF]);
}

// ---- Documents ----

constexpr CodUint32 kFirstPlaces = 1024;
constexpr CodUint32 kEscapeSize = 6;
constexpr CodUint32 kScalarSize = 9;

class Writer {
public:
    Writer(CodMemAlloc *owner, const VelonData &document, CodUint32 flags)
        : owner_(owner),
          document_(document),
          isIndented_((flags & VELON_JSON_INDENTED) != 0),
          isTyped_((flags & VELON_JSON_TYPED_DOUBLES) != 0),
          work_(document.len) {}
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;
    ~Writer() {
        if (places_ != firstPlaces_) {
            freeMemory(places_);
        }
        freeMemory(buffer_);
    }

    CodResult write(CodText *text);

private:
    void freeMemory(void *memory) {
        if (memory != nullptr && owner_->free != nullptr) {
            owner_->free(owner_, memory);
        }
    }
    COD_COLD char *grow(char *out, CodUint64 extra);
    // Room for `extra` bytes and then some.
    char *reserve(char *out, CodUint64 extra) {
        return COD_LIKELY(static_cast<CodUint64>(end_ - out) >= extra + kRoom) ? out : grow(out, extra);
    }
    COD_COLD CodResult growPlaces(CodUint32 needed);

    char *putString(char *out, const CodUint8 *bytes, CodUint32 size);
    char *putLine(char *out, CodUint32 depth);
    char *putKey(char *out, const CodText &key);
    char *putNumber(char *out, const VelonData &data, CodUint64 at);
    template <VelonType kType>
    char *putScalar(char *out, ValueOf<kType> value);
    template <VelonType kType>
    char *readScalar(char *out, const VelonData &data, CodUint64 at);
    char *putCounted(char *out, VelonType type, const VelonData &data, CodUint64 at);
    char *putPayload(char *out, VelonType type, const VelonData &data, CodUint64 at, CodUint32 depth);
    char *putInline(char *out, VelonType type, CodUint32 word);
    char *putElement(char *out, const VelonArray &array, CodUint32 index, CodUint32 depth);
    char *putMember(char *out, const VelonObject &object, CodUint32 index, CodUint32 depth);
    template <class Put>
    char *putEntries(char *out, const char *brackets, CodUint32 count, CodUint32 depth, Put put);
    bool enter(CodUint32 depth, CodUint32 count, CodUint32 entry);
    char *putArray(char *out, const VelonArray &array, CodUint32 depth);
    char *putObject(char *out, const VelonObject &object, CodUint32 depth);

    CodMemAlloc *owner_;
    VelonData document_;
    bool isIndented_;
    bool isTyped_;
    WorkLimit work_;

    char *buffer_ = nullptr;
    char *end_ = nullptr;
    CodUint32 capacity_ = 0;

    // The orders of the open objects' members, one after the other.
    CodUint16 *places_ = firstPlaces_;
    CodUint32 placesUsed_ = 0;
    CodUint32 placesCapacity_ = kFirstPlaces;
    CodUint16 firstPlaces_[kFirstPlaces];
};

char *Writer::grow(char *out, CodUint64 extra) {
    const CodUint64 used = static_cast<CodUint64>(out - buffer_);
    const CodUint64 needed = used + extra + 2 * kRoom;
    if (needed > UINT32_MAX) {
        codRaise(ERR_CMM_OUT_OF_MEMORY, "a JSON text", static_cast<long>(needed));
        return nullptr;
    }
    const CodUint64 wanted = std::min<CodUint64>(std::max(needed, CodUint64{capacity_} * 2), UINT32_MAX);
    void *memory = buffer_;
    const CodResult result = buffer_ == nullptr ? owner_->alloc(owner_, static_cast<CodUint32>(wanted), &memory)
                                                : codMemExtend(owner_, &memory, capacity_, static_cast<CodUint32>(wanted), true);
    if (result != COD_SUCCESS) {
        return nullptr;
    }
    buffer_ = static_cast<char *>(memory);
    capacity_ = static_cast<CodUint32>(wanted);
    end_ = buffer_ + capacity_;
    return buffer_ + used;
}

CodResult Writer::growPlaces(CodUint32 needed) {
    const CodUint32 wanted = std::max(needed, placesCapacity_ * 2);
    void *memory = places_ == firstPlaces_ ? nullptr : places_;
    const auto sizeOf = [](CodUint32 count) { return count * static_cast<CodUint32>(sizeof(CodUint16)); };
    if (memory == nullptr) {
        COD_TRY(owner_->alloc(owner_, sizeOf(wanted), &memory));
        memcpy(memory, firstPlaces_, sizeOf(placesUsed_));
    } else {
        COD_TRY(codMemExtend(owner_, &memory, sizeOf(placesCapacity_), sizeOf(wanted), true));
    }
    places_ = static_cast<CodUint16 *>(memory);
    placesCapacity_ = wanted;
    return COD_SUCCESS;
}

// ---- Texts ----

char *Writer::putString(char *out, const CodUint8 *bytes, CodUint32 size) {
    const CodUint8 *documentEnd = document_.ptr + document_.len;
    const CodUint8 *in = bytes;
    CodUint32 left = size;
    CodUint32 others = 0;  // than ASCII
    out = reserve(out, CodUint64{size});
    if (out == nullptr) {
        return nullptr;
    }
    *out++ = '"';
    while (left != 0) {
        const __m128i chunk = loadChunk(in, static_cast<CodUint64>(documentEnd - in));
        storeChunk(reinterpret_cast<CodUint8 *>(out), chunk);
        const CodUint32 plain = std::min<CodUint32>(left, static_cast<CodUint32>(__builtin_ctz(specialBytes(chunk) | 1u << kChunk)));
        others |= static_cast<CodUint32>(_mm_movemask_epi8(chunk)) & ((1u << plain) - 1);
        out += plain;
        in += plain;
        left -= plain;
        if (plain < kChunk && left != 0) {
            out = reserve(out, CodUint64{left});
            if (out == nullptr || work_.spend(kEscapeSize) != COD_SUCCESS) {
                return nullptr;
            }
            out = putEscape(out, *in++);
            left--;
        }
    }
    if (COD_UNLIKELY(others != 0) && !isValidUtf8(bytes, size)) {
        codRaise(ERR_CMM_VELON_INVALID_UNICODE);
        return nullptr;
    }
    *out++ = '"';
    return out;
}

// The beginning of a line, when there are lines.
char *Writer::putLine(char *out, CodUint32 depth) {
    if (isIndented_) {
        *out++ = '\n';
        memset(out, ' ', 2 * CodUint64{depth});
        out += 2 * depth;
    }
    return out;
}

char *Writer::putKey(char *out, const CodText &key) {
    out = putString(out, reinterpret_cast<const CodUint8 *>(key.str), key.len);
    if (out != nullptr) {
        *out++ = ':';
        *out = ' ';
        out += isIndented_;
    }
    return out;
}

// ---- Values ----

char *Writer::putNumber(char *out, const VelonData &data, CodUint64 at) {
    CodNumber number;
    CodText text = {out, 0, 0};
    if (readNumber(data, at, &number) != COD_SUCCESS || codNumber2Text(&number, &text, COD_NUMBER_TEXT_SIZE) != COD_SUCCESS) {
        return nullptr;
    }
    return out + text.len;
}

COD_COLD char *failDatetime() {
    codRaise(ERR_CMM_VELON_INVALID_DATETIME);
    return nullptr;
}

COD_COLD char *failNotFinite() {
    codRaise(ERR_CMM_TYPECONV_ERROR, "not a valid number");
    return nullptr;
}

char *putIsoDate(char *out, CodDate date) {
    if (date < COD_DATE_MIN || date > COD_DATE_MAX) {
        return failDatetime();
    }
    CodText text = {out + 1, 0, 0};
    codDateToIso(date, &text, COD_DATE_ISO_SIZE);
    *out = '"';
    return putChar(out + 1 + text.len, '"');
}

char *putIsoTime(char *out, CodShortTime time) {
    if (time < 0 || time >= COD_USECS_PER_DAY) {
        return failDatetime();
    }
    return putChar(putTimeOfDay(putChar(out, '"'), time), '"');
}

template <VelonType kType>
char *Writer::putScalar(char *out, ValueOf<kType> value) {
    if constexpr (kType == VELON_TYPE_BOOL) {
        return value ? putText(out, "true", 4) : putText(out, "false", 5);
    } else if constexpr (std::is_floating_point_v<ValueOf<kType>>) {
        if (COD_LIKELY(std::isfinite(value))) {
            return putFloat(out, value, isTyped_);
        }
        return failNotFinite();
    } else if constexpr (kType == VELON_TYPE_TIMESTAMP || kType == VELON_TYPE_DATE) {
        return putIsoDate(out, value);
    } else if constexpr (kType == VELON_TYPE_TIME) {
        return putIsoTime(out, value);
    } else {
        return putInteger(out, value);
    }
}

template <VelonType kType>
char *Writer::readScalar(char *out, const VelonData &data, CodUint64 at) {
    ValueOf<kType> value = {};
    return readPayload<kType>(data, at, &value) == COD_SUCCESS ? putScalar<kType>(out, value) : nullptr;
}

// A string or binary.
char *Writer::putCounted(char *out, VelonType type, const VelonData &data, CodUint64 at) {
    const CodUint8 *bytes = nullptr;
    CodUint32 size = 0;
    CodUint32 headerLen = 0;
    if (readCounted(data, at, &bytes, &size, &headerLen) != COD_SUCCESS || work_.spend(1 + headerLen + CodUint64{size}) != COD_SUCCESS) {
        return nullptr;
    }
    if (type == VELON_TYPE_STRING) {
        return putString(out, bytes, size);
    }
    out = reserve(out, (CodUint64{size} + 2) / 3 * 4);
    return out != nullptr ? putChar(putBase64(putChar(out, '"'), bytes, size), '"') : nullptr;
}

// Of the types whose value may stand in an entry.
char *Writer::putInline(char *out, VelonType type, CodUint32 word) {
    switch (type) {
        case VELON_TYPE_BOOL:
            return putScalar<VELON_TYPE_BOOL>(out, inlineValue<VELON_TYPE_BOOL>(word));
        case VELON_TYPE_TINYINT:
            return putScalar<VELON_TYPE_TINYINT>(out, inlineValue<VELON_TYPE_TINYINT>(word));
        case VELON_TYPE_SMALLINT:
            return putScalar<VELON_TYPE_SMALLINT>(out, inlineValue<VELON_TYPE_SMALLINT>(word));
        case VELON_TYPE_INTEGER:
            return putScalar<VELON_TYPE_INTEGER>(out, inlineValue<VELON_TYPE_INTEGER>(word));
        case VELON_TYPE_FLOAT:
            return putScalar<VELON_TYPE_FLOAT>(out, inlineValue<VELON_TYPE_FLOAT>(word));
        default:
            return putText(out, "null", 4);
    }
}

// The payload of a value that has `depth` containers around it.
char *Writer::putPayload(char *out, VelonType type, const VelonData &data, CodUint64 at, CodUint32 depth) {
    switch (type) {
        case VELON_TYPE_OBJECT: {
            VelonObject object;
            return readPayload<VELON_TYPE_OBJECT>(data, at, &object) == COD_SUCCESS ? putObject(out, object, depth) : nullptr;
        }
        case VELON_TYPE_ARRAY: {
            VelonArray array;
            return readPayload<VELON_TYPE_ARRAY>(data, at, &array) == COD_SUCCESS ? putArray(out, array, depth) : nullptr;
        }
        case VELON_TYPE_STRING:
        case VELON_TYPE_BINARY:
            return putCounted(out, type, data, at);
        default:
            break;
    }
    if (work_.spend(kScalarSize) != COD_SUCCESS) {
        return nullptr;
    }
    switch (type) {
        case VELON_TYPE_NUMBER:
            return putNumber(out, data, at);
        case VELON_TYPE_NULL:
            return putText(out, "null", 4);
#define VELON_PUT_CASE(Name, ValueType, TYPE, member) \
    case VELON_TYPE_##TYPE:                           \
        return readScalar<VELON_TYPE_##TYPE>(out, data, at);
            VELON_FOR_EACH_FIXED(VELON_PUT_CASE)
#undef VELON_PUT_CASE
        default:
            return nullptr;
    }
}

char *Writer::putElement(char *out, const VelonArray &array, CodUint32 index, CodUint32 depth) {
    VelonLazyValue element;
    if (readLazyElement(array, index, &element) != COD_SUCCESS) {
        return nullptr;
    }
    if (isInline(static_cast<CodUint32>(element.type))) {
        return putInline(out, element.type, element.valuePos);
    }
    const CodUint64 at = CodUint64{element.valuePos} + kCountAt;
    return checkType(array.data, at, element.type) == COD_SUCCESS ? putPayload(out, element.type, array.data, at + 1, depth) : nullptr;
}

char *Writer::putMember(char *out, const VelonObject &object, CodUint32 index, CodUint32 depth) {
    CodText key = {};
    CodUint32 at = 0;
    VelonType type = VELON_TYPE_INVALID;
    if (readRecord(object, keyOffsetAt(object, index), &key, &at) != COD_SUCCESS || work_.spend(2 + CodUint64{key.len}) != COD_SUCCESS ||
        readType(object.data, at, &type) != COD_SUCCESS) {
        return nullptr;
    }
    out = putKey(out, key);
    return out != nullptr ? putPayload(out, type, object.data, CodUint64{at} + 1, depth) : nullptr;
}

// A container with `depth` others around it and so many entries of so many bytes. What is written beyond what is read counts as work too.
bool Writer::enter(CodUint32 depth, CodUint32 count, CodUint32 entry) {
    if (COD_UNLIKELY(depth > VELON_MAX_DEPTH)) {
        raiseNestedTooDeeply();
        return false;
    }
    const CodUint64 indentation = isIndented_ ? 2 * (CodUint64{depth} + 1) : 0;
    return work_.spend(kTableAt + (entry + indentation) * count) == COD_SUCCESS;
}

// The bracket, each entry by put(out, index), and the other bracket.
template <class Put>
char *Writer::putEntries(char *out, const char *brackets, CodUint32 count, CodUint32 depth, Put put) {
    *out++ = brackets[0];
    for (CodUint32 i = 0; i < count; i++) {
        out = reserve(out, 0);
        if (out == nullptr) {
            return nullptr;
        }
        *out = ',';
        out = put(putLine(out + (i != 0), depth + 1), i);
        if (out == nullptr) {
            return nullptr;
        }
    }
    if (count != 0) {
        out = reserve(out, 0);
        if (out == nullptr) {
            return nullptr;
        }
        out = putLine(out, depth);
    }
    return putChar(out, brackets[1]);
}

char *Writer::putArray(char *out, const VelonArray &array, CodUint32 depth) {
    const CodUint32 count = array.data.aux;
    if (!enter(depth, count, kValueEntry)) {
        return nullptr;
    }
    return putEntries(out, "[]", count, depth, [&](char *at, CodUint32 i) { return putElement(at, array, i, depth + 1); });
}

char *Writer::putObject(char *out, const VelonObject &object, CodUint32 depth) {
    const CodUint32 count = object.data.aux;
    const CodUint32 first = placesUsed_;
    if (!enter(depth, count, kKeyEntry) || (first + count > placesCapacity_ && growPlaces(first + count) != COD_SUCCESS)) {
        return nullptr;
    }
    orderByRecord(object, places_ + first);
    placesUsed_ = first + count;
    out = putEntries(out, "{}", count, depth, [&](char *at, CodUint32 i) { return putMember(at, object, places_[first + i], depth + 1); });
    placesUsed_ = first;
    return out;
}

CodResult Writer::write(CodText *text) {
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readType(document_, 0, &type));
    // Most texts are somewhat longer or shorter than their documents.
    char *out = grow(nullptr, CodUint64{document_.len} + document_.len / 8);
    if (out == nullptr || (out = putPayload(out, type, document_, 1, 0)) == nullptr) {
        return COD_ERROR;
    }
    text->len = static_cast<CodUint32>(out - buffer_);
    text->str = buffer_;
    buffer_ = nullptr;
    return COD_SUCCESS;
}

}  // namespace
}  // namespace cod::velon

CodResult velonToJson(CodMemAlloc *owner, const Velon *velon, CodUint32 flags, CodText *text) {
    if (cod::velon::anyNull(owner, velon, text) || (velon->data.ptr == nullptr && velon->data.len != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return cod::velon::Writer(owner, velon->data, flags).write(text);
}
