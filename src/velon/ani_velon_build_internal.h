#pragma once

// What the builders of objects and arrays share: the rules of nesting, opening and finishing.

#include <vel_infra/velon/ani_velon_build_object.h>
#include <vel_infra/velon/ani_velon_lazy.h>

#include "velon/ani_velon_buf_internal.h"

namespace cod::velon {

// ---- Nesting ----

// The outermost builder's count of open builders.
inline CodUint32 *openCount(VelonDepth *depth) {
    return depth->current <= 1 ? &depth->total.count : depth->total.outermost;
}

inline CodUint16 &writtenOf(VelonObjectBuilder *builder) {
    return builder->kvCount;
}
inline CodUint16 &writtenOf(VelonArrayBuilder *builder) {
    return builder->valueCount;
}

COD_COLD CodResult raiseInnerUncompleted();
COD_COLD CodResult raiseReachesElementCount(CodUint32 elementCount);
COD_COLD CodResult raiseKeyTooLong();

// What holds for every push: no nested builder is open, and a member is missing.
template <class Builder>
inline CodResult checkPush(Builder *builder) {
    if (COD_UNLIKELY(*openCount(&builder->depth) != builder->depth.current)) {
        return raiseInnerUncompleted();
    }
    if (COD_UNLIKELY(writtenOf(builder) >= builder->elementCount)) {
        return raiseReachesElementCount(builder->elementCount);
    }
    return COD_SUCCESS;
}

// Opening in steps: checkOpen, room for openingSize bytes, beginContainer.
template <class Builder>
constexpr CodUint32 kEntryOf = std::is_same_v<Builder, VelonObjectBuilder> ? kKeyEntry : kValueEntry;
template <class Builder>
constexpr CodUint8 kTypeOf = std::is_same_v<Builder, VelonObjectBuilder> ? VELON_TYPE_OBJECT : VELON_TYPE_ARRAY;

CodResult checkOpen(VelonDepth *parent);

template <class Builder>
constexpr CodUint64 openingSize(CodUint32 elementCount, CodUint32 initialSize) {
    const CodUint32 table = kEntryOf<Builder> * elementCount + kTableAt;
    return roundUp8(table > initialSize ? table : initialSize);
}

// parent: the depth of the builder that this one is nested in; one of level 0 for none. The table stays to be written by the pushes.
template <class Builder>
void beginContainer(VelonBuf *buf, CodUint16 elementCount, VelonDepth *parent, Builder *builder) {
    CodUint8 *to = buf->ptr + buf->len;
    to[0] = kTypeOf<Builder>;
    memset(to + 1, 0, sizeof(CodUint32));
    storeLe(to + kCountAt, elementCount);
    memset(to + kTableAt, 0, CodUint64{kEntryOf<Builder>} * elementCount);
    builder->buf = buf;
    builder->elementCount = elementCount;
    writtenOf(builder) = 0;
    builder->startPos = buf->len + kCountAt;
    if (parent->current == 0) {
        builder->depth = {.current = 1, .total = {.count = 1}};
    } else {
        CodUint32 *count = openCount(parent);
        builder->depth = {.current = ++*count, .total = {.outermost = count}};
    }
    buf->len += kTableAt + kEntryOf<Builder> * elementCount;
}

void beginObject(VelonBuf *buf, CodUint16 elementCount, CodBool keySorted, VelonDepth *parent, VelonObjectBuilder *builder);
void beginArray(VelonBuf *buf, CodUint16 elementCount, VelonDepth *parent, VelonArrayBuilder *builder);

// The first step of velonObjectBuilderNew and velonArrayBuilderNew: room in the buffer, *parent the depth that counts.
template <class Builder>
CodResult prepareNew(VelonBuf *buf, CodUint16 elementCount, CodUint32 initialSize, VelonDepth *parent) {
    COD_TRY(checkOpen(parent));
    if (parent->current == 0 && buf->len != 0) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the buffer of an outermost builder is not empty");
    }
    return reserve(buf, openingSize<Builder>(elementCount, initialSize));
}

// A builder that takes nothing and may be freed.
template <class Builder>
void closeBuilder(Builder *builder) {
    *builder = {};
    builder->depth = {.current = 1, .total = {.count = 0}};
}

// The owned buffer of an outermost builder goes, finished or not; a nested builder owns none.
template <class Builder>
void freeBuilder(Builder *builder) {
    if (builder != nullptr && builder->bufOwned.owner != nullptr) {
        velonBufFree(&builder->bufOwned);
        closeBuilder(builder);
    }
}

// Decodes a lazy value by its type and gives it to push<type>(value): pointers for what is passed by pointer.
template <class Push>
CodResult pushLazy(const VelonLazyValue *lazy, Push push) {
    if (anyNull(lazy)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    switch (lazy->type) {
#define VELON_PUSH_FIXED(Name, ValueType, TYPE, member)            \
    case VELON_TYPE_##TYPE: {                                      \
        ValueType value = {};                                      \
        COD_TRY(velonLazyGet##Name(lazy, &value));                 \
        return push.template operator()<VELON_TYPE_##TYPE>(value); \
    }
#define VELON_PUSH_RECORD(Name, ValueType, TYPE)                                                    \
    case VELON_TYPE_##TYPE: {                                                                       \
        ValueType value = {};                                                                       \
        COD_TRY(velonLazyGet##Name(lazy, &value));                                                  \
        return push.template operator()<VELON_TYPE_##TYPE>(static_cast<const ValueType *>(&value)); \
    }
        VELON_FOR_EACH_FIXED(VELON_PUSH_FIXED)
        VELON_PUSH_RECORD(Object, VelonObject, OBJECT)
        VELON_PUSH_RECORD(Array, VelonArray, ARRAY)
        VELON_PUSH_RECORD(String, CodText, STRING)
        VELON_PUSH_RECORD(Binary, CodBytes, BINARY)
        VELON_PUSH_RECORD(Number, CodNumber, NUMBER)
#undef VELON_PUSH_FIXED
#undef VELON_PUSH_RECORD
        case VELON_TYPE_NULL:
            return push.template operator()<VELON_TYPE_NULL>(0);
        default:
            return raiseInvalidType(static_cast<CodUint32>(lazy->type));
    }
}

template <class Builder>
CodResult finishContainer(Builder *builder, Velon *velon) {
    CodUint32 *count = openCount(&builder->depth);
    if (COD_UNLIKELY(*count != builder->depth.current)) {
        return raiseInnerUncompleted();
    }
    if (COD_UNLIKELY(writtenOf(builder) != builder->elementCount)) {
        return codRaise(ERR_CMM_VELON_INCONSISTENT_ELEMENT_COUNT, static_cast<int>(builder->elementCount),
                        static_cast<int>(writtenOf(builder)));
    }
    VelonBuf *buf = builder->buf;
    const CodUint32 size = buf->len - builder->startPos;
    CodUint8 *countField = buf->ptr + builder->startPos;
    storeLe(countField - sizeof(CodUint32), size);
    --*count;
    if (builder->depth.current == 1) {
        return velonBufMoveToVelon(buf, velon);
    }
    *velon = {nullptr, {countField - kCountAt, size + kCountAt, builder->elementCount}};
    builder->depth.current = UINT32_MAX;  // equal to no count: nothing more may be pushed
    return COD_SUCCESS;
}

}  // namespace cod::velon
