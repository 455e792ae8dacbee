#include <vel_infra/velon/ani_velon.h>

#include "velon/ani_velon_base_internal.h"

using namespace cod::velon;

void velonInit(Velon *velon) {
    if (velon != nullptr) {
        *velon = {};
    }
}

Velon velonNew(CodMemAlloc *owner, const VelonData *data) {
    return {owner, data != nullptr ? *data : VelonData{}};
}

void velonFree(Velon *velon) {
    if (velon == nullptr) {
        return;
    }
    if (velon->owner != nullptr && velon->owner->free != nullptr && velon->data.ptr != nullptr) {
        velon->owner->free(velon->owner, const_cast<CodUint8 *>(velon->data.ptr));
    }
    *velon = {};
}

const CodUint8 *velonGetDataPtr(const Velon *velon) {
    return velon != nullptr ? velon->data.ptr : nullptr;
}

CodUint32 velonGetDataLength(const Velon *velon) {
    return velon != nullptr ? velon->data.len : 0;
}

CodResult velonGetType(const Velon *velon, VelonType *type) {
    return anyNull(velon, type) ? codRaise(ERR_CMM_POINTER_NULL) : readType(velon->data, 0, type);
}

CodResult velonCheckType(const Velon *velon, VelonType type, CodBool *isType) {
    VelonType actual = VELON_TYPE_INVALID;
    if (anyNull(isType)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(velonGetType(velon, &actual));
    *isType = actual == type;
    return COD_SUCCESS;
}

CodResult velonIsNull(const Velon *velon, CodBool *isNull) {
    return velonCheckType(velon, VELON_TYPE_NULL, isNull);
}

CodResult velonGetValue(const Velon *velon, VelonValue *value) {
    VelonType type = VELON_TYPE_INVALID;
    if (anyNull(value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(velonGetType(velon, &type));
    return readValueOf(type, velon->data, 1, value);
}

#define VELON_ROOT_GETTERS(Name, ValueType, TYPE, member)                                                                      \
    CodResult velonGet##Name##Unchecked(const Velon *velon, ValueType *value) {                                                \
        return anyNull(velon, value) ? codRaise(ERR_CMM_POINTER_NULL) : readPayload<VELON_TYPE_##TYPE>(velon->data, 1, value); \
    }                                                                                                                          \
    CodResult velonGet##Name(const Velon *velon, ValueType *value) {                                                           \
        if (anyNull(velon, value)) {                                                                                           \
            return codRaise(ERR_CMM_POINTER_NULL);                                                                             \
        }                                                                                                                      \
        COD_TRY(checkType(velon->data, 0, VELON_TYPE_##TYPE));                                                                 \
        return readPayload<VELON_TYPE_##TYPE>(velon->data, 1, value);                                                          \
    }
VELON_FOR_EACH_TYPE(VELON_ROOT_GETTERS)
