#include <vel_infra/velon/ani_velon_object.h>

#include "velon/ani_velon_base_internal.h"

using namespace cod::velon;

namespace {

// Finds a member and reads its value by read(value position), which must leave the outputs alone when it fails.
template <class Read>
inline CodResult readMember(const VelonObject *object, const CodText *key, CodBool *found, Read read) {
    if (COD_UNLIKELY(anyNull(object, key, found))) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    CodUint32 at = 0;
    COD_TRY(findKey(*object, *key, &at));
    if (at != 0) {
        COD_TRY(read(at));
    }
    *found = at != 0;
    return COD_SUCCESS;
}

template <VelonType kType>
inline CodResult getMember(const VelonObject *object, const CodText *key, CodBool *found, ValueOf<kType> *value) {
    if (COD_UNLIKELY(anyNull(value))) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [object, value](CodUint32 at) {
        COD_TRY(checkType(object->data, at, kType));
        return readPayload<kType>(object->data, CodUint64{at} + 1, value);
    });
}

// The value at a position of the object's view.
CodResult readMemberValue(const VelonObject &object, CodUint32 at, VelonValue *value) {
    VelonType type = VELON_TYPE_INVALID;
    COD_TRY(readType(object.data, at, &type));
    return readValueOf(type, object.data, CodUint64{at} + 1, value);
}
CodResult readMemberLazy(const VelonObject &object, CodUint32 at, VelonLazyValue *value) {
    return readLazy(object.data, at, value);
}

// The member at the iterator's index; steps on when all of it is read. value may be null, when read is not called, or key.
template <class Value>
CodResult nextMember(VelonObjectIter *iter, CodBool *hasNext, CodText *key, Value *value,
                     CodResult (*read)(const VelonObject &, CodUint32, Value *)) {
    const bool isThere = velonObjectIterHasNext(iter);
    if (isThere) {
        CodText keyRead = {};
        CodUint32 at = 0;
        COD_TRY(readRecord(*iter->object, keyOffsetAt(*iter->object, iter->index), &keyRead, &at));
        if (value != nullptr) {
            COD_TRY(read(*iter->object, at, value));
        }
        if (key != nullptr) {
            *key = keyRead;
        }
        iter->index++;
    }
    *hasNext = isThere;
    return COD_SUCCESS;
}

}  // namespace

CodUint16 velonObjectGetElementCount(const VelonObject *object) {
    return object != nullptr ? static_cast<CodUint16>(object->data.aux) : 0;
}

CodUint32 velonObjectGetDataLength(const VelonObject *object) {
    return object != nullptr ? object->data.len : 0;
}

CodResult velonObjectContainsKey(const VelonObject *object, const CodText *key, CodBool *found) {
    CodUint32 at = 0;
    return velonObjectFindKey(object, key, found, &at);
}

CodResult velonObjectGetValue(const VelonObject *object, const CodText *key, CodBool *found, VelonValue *value) {
    if (anyNull(value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [=](CodUint32 at) { return readMemberValue(*object, at, value); });
}

CodResult velonObjectGetLazyValue(const VelonObject *object, const CodText *key, CodBool *found, VelonLazyValue *lazyChild) {
    if (anyNull(lazyChild)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [=](CodUint32 at) { return readLazy(object->data, at, lazyChild); });
}

CodResult velonObjectGetNthLazyValue(const VelonObject *object, CodUint32 index, VelonLazyValue *lazyChild) {
    if (anyNull(object, lazyChild)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (index >= object->data.aux) {
        return raiseOutOfBounds(object->data.aux, index);
    }
    CodText key = {};
    CodUint32 at = 0;
    COD_TRY(readRecord(*object, keyOffsetAt(*object, index), &key, &at));
    return readLazy(object->data, at, lazyChild);
}

CodResult velonObjectGetType(const VelonObject *object, const CodText *key, CodBool *found, VelonType *type) {
    if (anyNull(type)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [=](CodUint32 at) { return readType(object->data, at, type); });
}

CodResult velonObjectCheckType(const VelonObject *object, const CodText *key, VelonType type, CodBool *found, CodBool *isType) {
    if (anyNull(isType)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [=](CodUint32 at) {
        VelonType actual = VELON_TYPE_INVALID;
        COD_TRY(readType(object->data, at, &actual));
        *isType = actual == type;
        return COD_SUCCESS;
    });
}

CodResult velonObjectIsNull(const VelonObject *object, const CodText *key, CodBool *found, CodBool *isNull) {
    return velonObjectCheckType(object, key, VELON_TYPE_NULL, found, isNull);
}

#define VELON_OBJECT_GETTER(Name, ValueType, TYPE, member)                                                            \
    CodResult velonObjectGet##Name(const VelonObject *object, const CodText *key, CodBool *found, ValueType *value) { \
        return getMember<VELON_TYPE_##TYPE>(object, key, found, value);                                               \
    }
VELON_FOR_EACH_TYPE(VELON_OBJECT_GETTER)

CodResult velonObjectCheckTypeAndGetValueIndex(const VelonObject *object, const CodText *key, VelonType type, CodBool *found,
                                               CodUint32 *valueIndex) {
    if (anyNull(valueIndex)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [=](CodUint32 at) {
        COD_TRY(checkType(object->data, at, type));
        *valueIndex = at + 1;
        return COD_SUCCESS;
    });
}

CodResult velonObjectReadKey(const VelonObject *object, CodUint32 keyOffset, CodText *key, CodUint32 *valuePos) {
    return anyNull(object, key, valuePos) ? codRaise(ERR_CMM_POINTER_NULL) : readRecord(*object, keyOffset, key, valuePos);
}

CodResult velonObjectFindKey(const VelonObject *object, const CodText *key, CodBool *found, CodUint32 *valuePos) {
    if (anyNull(valuePos)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readMember(object, key, found, [=](CodUint32 at) {
        *valuePos = at;
        return COD_SUCCESS;
    });
}

VelonObjectIter velonObjectIterNew(const VelonObject *object) {
    return {object, 0};
}

CodBool velonObjectIterHasNext(const VelonObjectIter *iter) {
    return iter != nullptr && iter->object != nullptr && iter->index < iter->object->data.aux;
}

CodResult velonObjectIterNextEntry(VelonObjectIter *iter, CodBool *hasEntry, CodText *key, VelonValue *value) {
    return anyNull(iter, hasEntry, key, value) ? codRaise(ERR_CMM_POINTER_NULL) : nextMember(iter, hasEntry, key, value, readMemberValue);
}

CodResult velonObjectIterNextKey(VelonObjectIter *iter, CodBool *hasKey, CodText *key) {
    return anyNull(iter, hasKey, key) ? codRaise(ERR_CMM_POINTER_NULL)
                                      : nextMember<VelonValue>(iter, hasKey, key, nullptr, readMemberValue);
}

CodResult velonObjectIterNextValue(VelonObjectIter *iter, CodBool *hasValue, VelonValue *value) {
    return anyNull(iter, hasValue, value) ? codRaise(ERR_CMM_POINTER_NULL)
                                          : nextMember<VelonValue>(iter, hasValue, nullptr, value, readMemberValue);
}

CodResult velonObjectIterNextKeyAndLazyValue(VelonObjectIter *iter, CodBool *hasValue, CodText *key, VelonLazyValue *lazyValue) {
    return anyNull(iter, hasValue, key, lazyValue) ? codRaise(ERR_CMM_POINTER_NULL)
                                                   : nextMember(iter, hasValue, key, lazyValue, readMemberLazy);
}
