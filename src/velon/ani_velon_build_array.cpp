#include <vel_infra/velon/ani_velon_build_array.h>

#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_lazy.h>

#include "velon/ani_velon_build_internal.h"

namespace cod::velon {

void beginArray(VelonBuf *buf, CodUint16 elementCount, VelonDepth *parent, VelonArrayBuilder *builder) {
    builder->bufOwned = {};
    beginContainer(buf, elementCount, parent, builder);
    builder->valueEntryPos = builder->startPos + sizeof(CodUint16);
}

namespace {

inline void appendEntry(VelonArrayBuilder *builder, CodUint32 type, CodUint32 word) {
    CodUint8 *entry = builder->buf->ptr + builder->valueEntryPos;
    entry[0] = static_cast<CodUint8>(type);
    storeLe(entry + 1, word);
    builder->valueEntryPos += kValueEntry;
    builder->valueCount++;
}
// The entry of a value that is about to be written at the buffer's end.
inline void appendOffsetEntry(VelonArrayBuilder *builder, CodUint32 type) {
    appendEntry(builder, type, builder->buf->len - builder->startPos);
}

inline CodResult checkElement(VelonArrayBuilder *builder) {
    return COD_UNLIKELY(anyNull(builder)) ? codRaise(ERR_CMM_POINTER_NULL) : checkPush(builder);
}

template <VelonType kType, class Value>
inline CodResult push(VelonArrayBuilder *builder, Value value) {
    if (COD_UNLIKELY(isMissing(value))) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(checkElement(builder));
    auto payload = payloadOf<kType>(value);
    if constexpr (isInline(kType)) {
        CodUint8 word[sizeof(CodUint32)] = {};
        payload.write(word);
        appendEntry(builder, kType, loadLe<CodUint32>(word));
    } else {
        VelonBuf *buf = builder->buf;
        COD_TRY(payload.prepare());
        COD_TRY(reserve(buf, 1 + payload.size(), payload.source()));
        appendOffsetEntry(builder, kType);
        CodUint8 *to = buf->ptr + buf->len;
        to[0] = kType;
        buf->len = static_cast<CodUint32>(payload.write(to + 1) - buf->ptr);
    }
    return COD_SUCCESS;
}

// Writes the entry of a nested container that is about to begin, with room for it.
template <class Nested>
CodResult openElement(VelonArrayBuilder *builder, CodUint16 elementCount, Nested *nested) {
    if (anyNull(nested)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(checkElement(builder));
    COD_TRY(checkOpen(&builder->depth));
    COD_TRY(reserve(builder->buf, openingSize<Nested>(elementCount, 0)));
    appendOffsetEntry(builder, kTypeOf<Nested>);
    return COD_SUCCESS;
}

// The type of an entry that is pushed alone.
CodResult checkEntryType(VelonType type, bool wantsInline) {
    const auto code = static_cast<CodUint32>(type);
    return isTypeCode(code) && isInline(code) == wantsInline ? COD_SUCCESS : raiseInvalidType(code);
}

}  // namespace
}  // namespace cod::velon

using namespace cod::velon;

CodResult velonArrayBuilderCreate(CodMemAlloc *owner, CodUint16 elementCount, CodUint32 initialSize, VelonArrayBuilder *arrBuilder) {
    if (anyNull(arrBuilder)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonBuf buf = velonBufNew(owner);
    closeBuilder(arrBuilder);
    COD_TRY(velonArrayBuilderNew(&buf, elementCount, initialSize, nullptr, arrBuilder));
    arrBuilder->bufOwned = buf;
    arrBuilder->buf = &arrBuilder->bufOwned;
    return COD_SUCCESS;
}

CodResult velonArrayBuilderNew(VelonBuf *buf, CodUint16 elementCount, CodUint32 initialSize, VelonDepth *depth,
                               VelonArrayBuilder *arrBuilder) {
    if (anyNull(buf, arrBuilder)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonDepth none = {};
    VelonDepth *parent = depth != nullptr ? depth : &none;
    COD_TRY(prepareNew<VelonArrayBuilder>(buf, elementCount, initialSize, parent));
    beginArray(buf, elementCount, parent, arrBuilder);
    return COD_SUCCESS;
}

void velonArrayBuilderFree(VelonArrayBuilder *arrBuilder) {
    freeBuilder(arrBuilder);
}

#define VELON_ARRAY_PUSH(Name, ValueType, TYPE, member)                                     \
    CodResult velonArrayBuilderPush##Name(VelonArrayBuilder *arrBuilder, ValueType value) { \
        return push<VELON_TYPE_##TYPE>(arrBuilder, value);                                  \
    }
VELON_FOR_EACH_FIXED(VELON_ARRAY_PUSH)

CodResult velonArrayBuilderPushString(VelonArrayBuilder *arrBuilder, const CodText *value) {
    return push<VELON_TYPE_STRING>(arrBuilder, value);
}

CodResult velonArrayBuilderPushBinary(VelonArrayBuilder *arrBuilder, const CodBytes *value) {
    return push<VELON_TYPE_BINARY>(arrBuilder, value);
}

CodResult velonArrayBuilderPushNumber(VelonArrayBuilder *arrBuilder, const CodNumber *value) {
    return push<VELON_TYPE_NUMBER>(arrBuilder, value);
}

CodResult velonArrayBuilderPushNull(VelonArrayBuilder *arrBuilder) {
    COD_TRY(checkElement(arrBuilder));
    appendEntry(arrBuilder, VELON_TYPE_NULL, 0);
    return COD_SUCCESS;
}

CodResult velonArrayBuilderPushFullObject(VelonArrayBuilder *arrBuilder, const VelonObject *inner) {
    return push<VELON_TYPE_OBJECT>(arrBuilder, inner);
}

CodResult velonArrayBuilderPushFullArray(VelonArrayBuilder *arrBuilder, const VelonArray *inner) {
    return push<VELON_TYPE_ARRAY>(arrBuilder, inner);
}

CodResult velonArrayBuilderPushLazyValue(VelonArrayBuilder *arrBuilder, const VelonLazyValue *lazy) {
    return pushLazy(lazy, [=]<VelonType kType>(auto value) {
        if constexpr (kType == VELON_TYPE_NULL) {
            return velonArrayBuilderPushNull(arrBuilder);
        } else {
            return push<kType>(arrBuilder, value);
        }
    });
}

CodResult velonArrayBuilderPushObject(VelonArrayBuilder *arrBuilder, CodUint16 elementCount, CodBool keySorted,
                                      VelonObjectBuilder *nestedObjBuilder) {
    COD_TRY(openElement(arrBuilder, elementCount, nestedObjBuilder));
    beginObject(arrBuilder->buf, elementCount, keySorted, &arrBuilder->depth, nestedObjBuilder);
    return COD_SUCCESS;
}

CodResult velonArrayBuilderPushArray(VelonArrayBuilder *arrBuilder, CodUint16 elementCount, VelonArrayBuilder *nestedArrBuilder) {
    COD_TRY(openElement(arrBuilder, elementCount, nestedArrBuilder));
    beginArray(arrBuilder->buf, elementCount, &arrBuilder->depth, nestedArrBuilder);
    return COD_SUCCESS;
}

CodResult velonArrayBuilderPushValueEntry(VelonArrayBuilder *arrBuilder, VelonType type) {
    COD_TRY(checkElement(arrBuilder));
    COD_TRY(checkEntryType(type, false));
    appendOffsetEntry(arrBuilder, static_cast<CodUint32>(type));
    return COD_SUCCESS;
}

CodResult velonArrayBuilderPushInlineValue(VelonArrayBuilder *arrBuilder, VelonType type, CodUint32 value) {
    COD_TRY(checkElement(arrBuilder));
    COD_TRY(checkEntryType(type, true));
    appendEntry(arrBuilder, static_cast<CodUint32>(type), value);
    return COD_SUCCESS;
}

CodResult velonArrayBuilderFinish(VelonArrayBuilder *arrBuilder, Velon *velon) {
    return anyNull(arrBuilder, velon) ? codRaise(ERR_CMM_POINTER_NULL) : finishContainer(arrBuilder, velon);
}
