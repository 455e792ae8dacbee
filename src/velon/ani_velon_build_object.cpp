#include <vel_infra/velon/ani_velon_build_object.h>

#include <vel_infra/velon/ani_velon_buf.h>
#include <vel_infra/velon/ani_velon_lazy.h>

#include "velon/ani_velon_build_internal.h"

namespace cod::velon {

CodResult raiseInnerUncompleted() {
    return codRaise(ERR_CMM_VELON_INNER_UNCOMPLETED);
}

CodResult raiseReachesElementCount(CodUint32 elementCount) {
    return codRaise(ERR_CMM_VELON_REACHES_ELEMENT_COUNT, static_cast<int>(elementCount));
}

CodResult raiseKeyTooLong() {
    return codRaise(ERR_CMM_INVALID_PARAMETER, "the key is longer than 65535 bytes");
}

CodResult checkOpen(VelonDepth *parent) {
    return *openCount(parent) >= VELON_MAX_DEPTH ? raiseNestedTooDeeply() : COD_SUCCESS;
}

void beginObject(VelonBuf *buf, CodUint16 elementCount, CodBool keySorted, VelonDepth *parent, VelonObjectBuilder *builder) {
    builder->bufOwned = {};
    beginContainer(buf, elementCount, parent, builder);
    builder->keySorted = keySorted;
    builder->keyOffsetPos = builder->startPos + sizeof(CodUint16);
}

namespace {

constexpr CodUint64 recordHeadSize(CodUint32 keySize) {
    return sizeof(CodUint16) + CodUint64{keySize};
}

// Puts the offset of the record that begins at the buffer's end into the key table. Out of order, it takes its place among those that are
// there: an equal key moves up.
inline void insertKeyOffset(VelonObjectBuilder *builder, const Source &key) {
    CodUint8 *countField = builder->buf->ptr + builder->startPos;
    const CodUint32 offset = builder->buf->len - builder->startPos;
    if (builder->keySorted) {
        storeLe(builder->buf->ptr + builder->keyOffsetPos, offset);
        builder->keyOffsetPos += kKeyEntry;
        return;
    }
    const CodUint32 place = insertionPoint(countField, offset, builder->kvCount, textOf(key.bytes, key.size));
    CodUint8 *entry = countField + sizeof(CodUint16) + CodUint64{kKeyEntry} * place;
    copyBytes(entry + kKeyEntry, entry, kKeyEntry * (builder->kvCount - place));
    storeLe(entry, offset);
}

// Writes a record's head, for which there is room.
inline CodUint8 *appendKey(VelonObjectBuilder *builder, const Source &key) {
    insertKeyOffset(builder, key);
    CodUint8 *to = builder->buf->ptr + builder->buf->len;
    storeLe(to, static_cast<CodUint16>(key.size));
    copyBytes(to + sizeof(CodUint16), key.bytes, key.size);
    builder->kvCount++;
    builder->buf->len += static_cast<CodUint32>(recordHeadSize(key.size));
    return to + recordHeadSize(key.size);
}

inline CodResult checkMember(VelonObjectBuilder *builder, const CodText *key) {
    if (COD_UNLIKELY(anyNull(builder, key))) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(checkPush(builder));
    return COD_LIKELY(key->len <= VELON_MAX_KEY_LENGTH) ? COD_SUCCESS : raiseKeyTooLong();
}

template <class Payload>
inline CodResult pushMember(VelonObjectBuilder *builder, const CodText *key, VelonType type, Payload payload) {
    COD_TRY(checkMember(builder, key));
    COD_TRY(payload.prepare());
    Source keySource = sourceOf(*key);
    VelonBuf *buf = builder->buf;
    COD_TRY(reserve(buf, recordHeadSize(keySource.size) + 1 + payload.size(), &keySource, payload.source()));
    CodUint8 *to = appendKey(builder, keySource);
    to[0] = static_cast<CodUint8>(type);
    buf->len = static_cast<CodUint32>(payload.write(to + 1) - buf->ptr);
    return COD_SUCCESS;
}

template <VelonType kType, class Value>
inline CodResult push(VelonObjectBuilder *builder, const CodText *key, Value value) {
    if (COD_UNLIKELY(isMissing(value))) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return pushMember(builder, key, kType, payloadOf<kType>(value));
}

// Writes the key of a nested container that is about to begin, with room for both.
template <class Nested>
CodResult openMember(VelonObjectBuilder *builder, const CodText *key, CodUint16 elementCount, Nested *nested) {
    if (anyNull(nested)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    COD_TRY(checkMember(builder, key));
    COD_TRY(checkOpen(&builder->depth));
    Source keySource = sourceOf(*key);
    COD_TRY(reserve(builder->buf, recordHeadSize(keySource.size) + openingSize<Nested>(elementCount, 0), &keySource));
    appendKey(builder, keySource);
    return COD_SUCCESS;
}

}  // namespace
}  // namespace cod::velon

using namespace cod::velon;

CodResult velonObjectBuilderCreate(CodMemAlloc *owner, CodUint16 elementCount, CodBool keySorted, CodUint32 initialSize,
                                   VelonObjectBuilder *objBuilder) {
    if (anyNull(objBuilder)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonBuf buf = velonBufNew(owner);
    closeBuilder(objBuilder);
    COD_TRY(velonObjectBuilderNew(&buf, elementCount, keySorted, initialSize, nullptr, objBuilder));
    objBuilder->bufOwned = buf;
    objBuilder->buf = &objBuilder->bufOwned;
    return COD_SUCCESS;
}

CodResult velonObjectBuilderNew(VelonBuf *buf, CodUint16 elementCount, CodBool keySorted, CodUint32 initialSize, VelonDepth *depth,
                                VelonObjectBuilder *objBuilder) {
    if (anyNull(buf, objBuilder)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    VelonDepth none = {};
    VelonDepth *parent = depth != nullptr ? depth : &none;
    COD_TRY(prepareNew<VelonObjectBuilder>(buf, elementCount, initialSize, parent));
    beginObject(buf, elementCount, keySorted, parent, objBuilder);
    return COD_SUCCESS;
}

void velonObjectBuilderFree(VelonObjectBuilder *objBuilder) {
    freeBuilder(objBuilder);
}

#define VELON_OBJECT_PUSH(Name, ValueType, TYPE, member)                                                          \
    CodResult velonObjectBuilderPush##Name(VelonObjectBuilder *objBuilder, const CodText *key, ValueType value) { \
        return push<VELON_TYPE_##TYPE>(objBuilder, key, value);                                                   \
    }
VELON_FOR_EACH_FIXED(VELON_OBJECT_PUSH)

CodResult velonObjectBuilderPushString(VelonObjectBuilder *objBuilder, const CodText *key, const CodText *value) {
    return push<VELON_TYPE_STRING>(objBuilder, key, value);
}

CodResult velonObjectBuilderPushBinary(VelonObjectBuilder *objBuilder, const CodText *key, const CodBytes *value) {
    return push<VELON_TYPE_BINARY>(objBuilder, key, value);
}

CodResult velonObjectBuilderPushNumber(VelonObjectBuilder *objBuilder, const CodText *key, const CodNumber *value) {
    return push<VELON_TYPE_NUMBER>(objBuilder, key, value);
}

CodResult velonObjectBuilderPushNull(VelonObjectBuilder *objBuilder, const CodText *key) {
    return pushMember(objBuilder, key, VELON_TYPE_NULL, NullPayload{});
}

CodResult velonObjectBuilderPushFullObject(VelonObjectBuilder *objBuilder, const CodText *key, const VelonObject *inner) {
    return push<VELON_TYPE_OBJECT>(objBuilder, key, inner);
}

CodResult velonObjectBuilderPushFullArray(VelonObjectBuilder *objBuilder, const CodText *key, const VelonArray *inner) {
    return push<VELON_TYPE_ARRAY>(objBuilder, key, inner);
}

CodResult velonObjectBuilderPushLazyValue(VelonObjectBuilder *objBuilder, const CodText *key, const VelonLazyValue *lazy) {
    return pushLazy(lazy, [=]<VelonType kType>(auto value) {
        if constexpr (kType == VELON_TYPE_NULL) {
            return velonObjectBuilderPushNull(objBuilder, key);
        } else {
            return push<kType>(objBuilder, key, value);
        }
    });
}

CodResult velonObjectBuilderPushObject(VelonObjectBuilder *objBuilder, const CodText *key, CodUint16 elementCount, CodBool keySorted,
                                       VelonObjectBuilder *nestedObjBuilder) {
    COD_TRY(openMember(objBuilder, key, elementCount, nestedObjBuilder));
    beginObject(objBuilder->buf, elementCount, keySorted, &objBuilder->depth, nestedObjBuilder);
    return COD_SUCCESS;
}

CodResult velonObjectBuilderPushArray(VelonObjectBuilder *objBuilder, const CodText *key, CodUint16 elementCount,
                                      VelonArrayBuilder *nestedArrBuilder) {
    COD_TRY(openMember(objBuilder, key, elementCount, nestedArrBuilder));
    beginArray(objBuilder->buf, elementCount, &objBuilder->depth, nestedArrBuilder);
    return COD_SUCCESS;
}

CodResult velonObjectBuilderPushKey(VelonObjectBuilder *objBuilder, const CodText *key) {
    COD_TRY(checkMember(objBuilder, key));
    Source keySource = sourceOf(*key);
    COD_TRY(reserve(objBuilder->buf, recordHeadSize(keySource.size), &keySource));
    appendKey(objBuilder, keySource);
    return COD_SUCCESS;
}

CodResult velonObjectBuilderFinish(VelonObjectBuilder *objBuilder, Velon *velon) {
    return anyNull(objBuilder, velon) ? codRaise(ERR_CMM_POINTER_NULL) : finishContainer(objBuilder, velon);
}
