#define COD_NO_INLINE
#include <vel_infra/velon/ani_velon_array.h>

#include "velon/ani_velon_base_internal.h"

using namespace cod::velon;

namespace {

struct Entry {
    CodUint32 type;  // any byte
    CodUint32 word;
};

inline CodResult readEntry(const VelonArray &array, CodInt32 index, Entry *entry) {
    // A negative index is beyond every count too.
    if (COD_UNLIKELY(static_cast<CodUint32>(index) >= array.data.aux)) {
        return raiseOutOfBounds(array.data.aux, static_cast<CodUint64>(CodInt64{index}));
    }
    const CodUint8 *bytes = array.valueEntry + CodInt64{kValueEntry} * index;
    *entry = {bytes[0], cod::loadLe<CodUint32>(bytes + 1)};
    return COD_SUCCESS;
}

template <VelonType kType>
inline CodResult getElement(const VelonArray *array, CodInt32 index, ValueOf<kType> *value) {
    if (anyNull(array, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    Entry entry;
    COD_TRY(readEntry(*array, index, &entry));
    if (COD_UNLIKELY(entry.type != kType)) {
        return raiseUnexpectedType(kType, entry.type);
    }
    return readElement<kType>(array->data, entry.word, value);
}

// The element at the iterator's index by get, which steps on.
template <class Value>
CodResult nextElement(VelonArrayIter *iter, CodBool *hasEntry, Value *value, CodResult (*get)(const VelonArray *, CodInt32, Value *)) {
    if (anyNull(iter, hasEntry, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const bool hasNext = velonArrayIterHasNext(iter);
    if (hasNext) {
        COD_TRY(get(iter->array, iter->index, value));
        iter->index++;
    }
    *hasEntry = hasNext;
    return COD_SUCCESS;
}

}  // namespace

CodUint16 velonArrayGetElementCount(const VelonArray *array) {
    return array != nullptr ? static_cast<CodUint16>(array->data.aux) : 0;
}

CodUint32 velonArrayGetDataLength(const VelonArray *array) {
    return array != nullptr ? array->data.len : 0;
}

CodResult velonArrayGetValueEntry(const VelonArray *array, CodInt32 index, VelonType *type, CodUint32 *value) {
    if (anyNull(array, type, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    Entry entry;
    COD_TRY(readEntry(*array, index, &entry));
    if (COD_UNLIKELY(!isTypeCode(entry.type))) {
        return raiseInvalidType(entry.type);
    }
    *type = static_cast<VelonType>(entry.type);
    *value = entry.word;
    return COD_SUCCESS;
}

CodResult velonArrayGetType(const VelonArray *array, CodInt32 index, VelonType *type) {
    CodUint32 word = 0;
    return velonArrayGetValueEntry(array, index, type, &word);
}

CodResult velonArrayCheckType(const VelonArray *array, CodInt32 index, VelonType type, CodBool *isType) {
    VelonType actual = VELON_TYPE_INVALID;
    if (anyNull(isType)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(velonArrayGetType(array, index, &actual));
    *isType = actual == type;
    return COD_SUCCESS;
}

CodResult velonArrayIsNull(const VelonArray *array, CodInt32 index, CodBool *isNull) {
    return velonArrayCheckType(array, index, VELON_TYPE_NULL, isNull);
}

CodResult velonArrayGetValue(const VelonArray *array, CodInt32 index, VelonValue *value) {
    VelonType type = VELON_TYPE_INVALID;
    CodUint32 word = 0;
    if (anyNull(value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(velonArrayGetValueEntry(array, index, &type, &word));
    return readElementOf(type, array->data, word, value);
}

CodResult velonArrayGetLazyValue(const VelonArray *array, CodInt32 index, VelonLazyValue *lazy) {
    VelonType type = VELON_TYPE_INVALID;
    CodUint32 word = 0;
    if (anyNull(lazy)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(velonArrayGetValueEntry(array, index, &type, &word));
    *lazy = {array->data, word, type, true};
    return COD_SUCCESS;
}

#define VELON_ARRAY_GETTER(Name, ValueType, TYPE, member)                                      \
    CodResult velonArrayGet##Name(const VelonArray *array, CodInt32 index, ValueType *value) { \
        return getElement<VELON_TYPE_##TYPE>(array, index, value);                             \
    }
VELON_FOR_EACH_TYPE(VELON_ARRAY_GETTER)

#define VELON_ARRAY_SECOND_NAME(Name, ValueType) \
    CodResult velonArrayGet##Name##Exported(const VelonArray *array, CodInt32 index, ValueType *value) COD_SECOND_NAME(velonArrayGet##Name);
/* clang-format off */
VELON_ARRAY_SECOND_NAME(Tinyint,   CodInt8)
VELON_ARRAY_SECOND_NAME(Smallint,  CodInt16)
VELON_ARRAY_SECOND_NAME(Integer,   CodInt32)
VELON_ARRAY_SECOND_NAME(Float,     CodFloat)
VELON_ARRAY_SECOND_NAME(Bigint,    CodInt64)
VELON_ARRAY_SECOND_NAME(Double,    CodDouble)
VELON_ARRAY_SECOND_NAME(Timestamp, CodDate)
VELON_ARRAY_SECOND_NAME(Date,      CodDate)
VELON_ARRAY_SECOND_NAME(Time,      CodShortTime)
/* clang-format on */

VelonArrayIter velonArrayIterNew(const VelonArray *array) {
    return {array, 0};
}

CodBool velonArrayIterHasNext(const VelonArrayIter *iter) {
    return iter != nullptr && iter->array != nullptr && iter->index < iter->array->data.aux;
}

CodResult velonArrayIterNextValue(VelonArrayIter *iter, CodBool *hasEntry, VelonValue *value) {
    return nextElement(iter, hasEntry, value, velonArrayGetValue);
}

CodResult velonArrayIterNextLazyValue(VelonArrayIter *iter, CodBool *hasEntry, VelonLazyValue *lazy) {
    return nextElement(iter, hasEntry, lazy, velonArrayGetLazyValue);
}
