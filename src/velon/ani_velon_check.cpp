// Validation of documents and of single values.

#include <emmintrin.h>

#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_lazy.h>

#include "base/cod_utf8.h"
#include "velon/ani_velon_base_internal.h"

namespace cod::velon {
namespace {

// Payload bytes of the types of which every payload is valid; kNoWidth for the rest and for what is no type.
constexpr Widths makePlainWidths() {
    Widths widths = kWidths;
    widths.of[VELON_TYPE_TIMESTAMP] = kNoWidth;
    widths.of[VELON_TYPE_DATE] = kNoWidth;
    widths.of[VELON_TYPE_TIME] = kNoWidth;
    return widths;
}
constexpr Widths kPlainWidths = makePlainWidths();

class Checker {
public:
    explicit Checker(CodUint64 documentLength) : work_(documentLength) {}

    // The value at a position that has `depth` containers around it.
    CodResult checkValue(const VelonData &data, CodUint64 at, CodUint32 depth);
    // The value that an array's entry of this type leads to, or is.
    CodResult checkElement(VelonType type, const VelonData &array, CodUint32 word, CodUint32 depth);

private:
    // Of the types that are not plain.
    CodResult checkPayload(VelonType type, const VelonData &data, CodUint64 at, CodUint32 depth);
    template <VelonType kType>
    CodResult checkTime(const VelonData &data, CodUint64 at);
    CodResult checkObject(const VelonObject &object, CodUint32 depth);
    CodResult checkKey(const VelonObject &object, CodUint32 index, CodText *before, CodUint32 *valuePos);
    CodResult checkArray(const VelonArray &array, CodUint32 depth);

    WorkLimit work_;
};

// A short string whose neighbourhood may be read: ASCII without a branch on its length.
inline bool isShortAscii(const VelonData &data, CodUint64 at, CodUint32 size) {
    constexpr CodUint32 kBlock = sizeof(__m128i);
    if (COD_UNLIKELY(size >= 2 * kBlock || at + 2 * kBlock > data.len)) {
        return false;
    }
    const auto *blocks = reinterpret_cast<const __m128i *>(data.ptr + at);
    const auto low = static_cast<CodUint32>(_mm_movemask_epi8(_mm_loadu_si128(blocks)));
    const auto high = static_cast<CodUint32>(_mm_movemask_epi8(_mm_loadu_si128(blocks + 1)));
    return ((high << kBlock | low) & ((1u << size) - 1)) == 0;
}

inline CodResult Checker::checkValue(const VelonData &data, CodUint64 at, CodUint32 depth) {
    if (COD_UNLIKELY(at >= data.len)) {
        return raiseOutOfBounds(data.len, at);
    }
    const CodUint32 code = data.ptr[at];
    const CodUint64 width = kPlainWidths.of[code];
    if (COD_LIKELY(width != kNoWidth)) {
        COD_TRY(work_.spend(1 + width));
        return checkEnd(data, at + 1 + width);
    }
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readType(data, at, &type));
    return checkPayload(type, data, at + 1, depth);
}

// Times that a type may hold.
template <VelonType kType>
constexpr bool isTimeInRange(CodInt64 time) {
    return kType == VELON_TYPE_TIME ? time >= 0 && time < COD_USECS_PER_DAY : time >= COD_DATE_MIN && time <= COD_DATE_MAX;
}

template <VelonType kType>
CodResult Checker::checkTime(const VelonData &data, CodUint64 at) {
    CodInt64 time = 0;
    COD_TRY(work_.spend(1 + sizeof(time)));
    COD_TRY(readPayload<kType>(data, at, &time));
    return isTimeInRange<kType>(time) ? COD_SUCCESS : codRaise(ERR_CMM_VELON_INVALID_DATETIME);
}

CodResult Checker::checkPayload(VelonType type, const VelonData &data, CodUint64 at, CodUint32 depth) {
    switch (type) {
        case VELON_TYPE_OBJECT: {
            VelonObject object;
            COD_TRY(readPayload<VELON_TYPE_OBJECT>(data, at, &object));
            return checkObject(object, depth);
        }
        case VELON_TYPE_ARRAY: {
            VelonArray array;
            COD_TRY(readPayload<VELON_TYPE_ARRAY>(data, at, &array));
            return checkArray(array, depth);
        }
        case VELON_TYPE_STRING:
        case VELON_TYPE_BINARY: {
            const CodUint8 *bytes = nullptr;
            CodUint32 size = 0;
            CodUint32 headerLen = 0;
            COD_TRY(readCounted(data, at, &bytes, &size, &headerLen));
            COD_TRY(work_.spend(1 + headerLen + CodUint64{size}));
            const bool isText = type == VELON_TYPE_BINARY || isShortAscii(data, at + headerLen, size) || isValidUtf8(bytes, size);
            return isText ? COD_SUCCESS : codRaise(ERR_CMM_VELON_INVALID_UNICODE);
        }
        case VELON_TYPE_NUMBER: {
            CodNumber number;
            COD_TRY(work_.spend(2));
            return readNumber(data, at, &number);
        }
        case VELON_TYPE_TIMESTAMP:
            return checkTime<VELON_TYPE_TIMESTAMP>(data, at);
        case VELON_TYPE_DATE:
            return checkTime<VELON_TYPE_DATE>(data, at);
        default:
            return checkTime<VELON_TYPE_TIME>(data, at);
    }
}

CodResult Checker::checkElement(VelonType type, const VelonData &array, CodUint32 word, CodUint32 depth) {
    if (isInline(type)) {
        return COD_SUCCESS;
    }
    const CodUint64 at = CodUint64{word} + kCountAt;
    VelonType actual = VELON_TYPE_INVALID;
    COD_TRY(readType(array, at, &actual));
    if (COD_UNLIKELY(actual != type)) {
        return raiseInvalidType(actual);
    }
    return checkValue(array, at, depth);
}

// The key at a place of the table, which must stand behind *before; that becomes the key.
CodResult Checker::checkKey(const VelonObject &object, CodUint32 index, CodText *before, CodUint32 *valuePos) {
    CodText key = {};
    COD_TRY(readRecord(object, keyOffsetAt(object, index), &key, valuePos));
    if (COD_UNLIKELY(index != 0 && compareKeys(*before, key) >= 0)) {
        return codRaise(ERR_CMM_VELON_INVALID_KEY);
    }
    *before = key;
    return work_.spend(2 + CodUint64{key.len});
}

CodResult Checker::checkObject(const VelonObject &object, CodUint32 depth) {
    if (COD_UNLIKELY(depth > VELON_MAX_DEPTH)) {
        return raiseNestedTooDeeply();
    }
    COD_TRY(work_.spend(kTableAt + CodUint64{kKeyEntry} * object.data.aux));
    CodText before = {};
    for (CodUint32 i = 0; i < object.data.aux; i++) {
        CodUint32 at = 0;
        COD_TRY(checkKey(object, i, &before, &at));
        COD_TRY(checkValue(object.data, at, depth + 1));
    }
    return COD_SUCCESS;
}

CodResult Checker::checkArray(const VelonArray &array, CodUint32 depth) {
    if (COD_UNLIKELY(depth > VELON_MAX_DEPTH)) {
        return raiseNestedTooDeeply();
    }
    COD_TRY(work_.spend(kTableAt + CodUint64{kValueEntry} * array.data.aux));
    for (CodUint32 i = 0; i < array.data.aux; i++) {
        VelonLazyValue element;
        COD_TRY(readLazyElement(array, i, &element));
        COD_TRY(checkElement(element.type, array.data, element.valuePos, depth + 1));
    }
    return COD_SUCCESS;
}

// The bytes that the root value says it takes.
CodResult readRootLength(const VelonData &data, VelonType type, CodUint64 *length) {
    const CodUint64 width = kWidths.of[type];
    if (width != kNoWidth) {
        *length = 1 + width;
    } else if (type == VELON_TYPE_NUMBER) {
        COD_TRY(checkEnd(data, 2));
        *length = 2 + CodUint64{data.ptr[1]};
    } else if (type == VELON_TYPE_OBJECT || type == VELON_TYPE_ARRAY) {
        COD_TRY(checkEnd(data, kCountAt));
        *length = kCountAt + CodUint64{loadLe<CodUint32>(data.ptr + 1)};
    } else {
        CodUint32 size = 0;
        CodUint32 headerLen = 0;
        COD_TRY(readVarint(data, 1, &size, &headerLen));
        *length = 1 + CodUint64{headerLen} + size;
    }
    return COD_SUCCESS;
}

}  // namespace
}  // namespace cod::velon

using namespace cod::velon;

CodResult velonCheckData(const Velon *velon) {
    VelonType type = VELON_TYPE_INVALID;
    CodUint64 length = 0;
    if (anyNull(velon)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const VelonData &data = velon->data;
    COD_TRY(readType(data, 0, &type));
    COD_TRY(readRootLength(data, type, &length));
    if (length != data.len) {
        return codRaise(ERR_CMM_VELON_DATA_LENGTH_MISMATCHED, static_cast<int>(length), static_cast<int>(data.len));
    }
    return Checker(data.len).checkValue(data, 0, 0);
}

CodResult velonLazyValueCheck(const VelonLazyValue *lazy, CodUint8 depth) {
    if (anyNull(lazy)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (depth > VELON_MAX_DEPTH) {
        return raiseNestedTooDeeply();
    }
    if (!velonTypeIsValid(static_cast<CodUint32>(lazy->type))) {
        return raiseInvalidType(static_cast<CodUint32>(lazy->type));
    }
    Checker checker(lazy->data.len);
    return lazy->isArrayMember ? checker.checkElement(lazy->type, lazy->data, lazy->valuePos, depth)
                               : checker.checkValue(lazy->data, 0, depth);
}
