#include <vel_infra/velon/ani_velon_build_scalar.h>

#include <vel_infra/velon/ani_velon_buf.h>

#include "velon/ani_velon_buf_internal.h"

using namespace cod::velon;

namespace {

// Room is allocated for the longest form of the type: a NUMBER's 20 bytes, a string's varint of four.
template <VelonType kType, class Payload>
CodUint64 documentSize(const Payload &payload) {
    if constexpr (kType == VELON_TYPE_NUMBER) {
        return 2 + COD_NUMBER_STORED_SIZE;
    } else if constexpr (kType == VELON_TYPE_STRING || kType == VELON_TYPE_BINARY) {
        return CodUint64{payload.bytes.size} + 5;
    } else {
        return 1 + payload.size();
    }
}

template <VelonType kType, class Payload>
CodResult buildScalar(CodMemAlloc *owner, Payload payload, Velon *velon) {
    VelonBuf buf;
    COD_TRY(payload.prepare());
    COD_TRY(velonBufWithCapacity(owner, static_cast<CodUint32>(documentSize<kType>(payload)), &buf));
    buf.ptr[0] = kType;
    buf.len = static_cast<CodUint32>(payload.write(buf.ptr + 1) - buf.ptr);
    return velonBufMoveToVelon(&buf, velon);
}

template <VelonType kType, class Value>
CodResult build(CodMemAlloc *owner, Value value, Velon *velon) {
    if (anyNull(owner, velon) || isMissing(value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return buildScalar<kType>(owner, payloadOf<kType>(value), velon);
}

}  // namespace

#define VELON_BUILD_FIXED(Name, ValueType, TYPE, member)                                  \
    CodResult velonBuildScalar##Name(CodMemAlloc *owner, ValueType value, Velon *velon) { \
        return build<VELON_TYPE_##TYPE>(owner, value, velon);                             \
    }
VELON_FOR_EACH_FIXED(VELON_BUILD_FIXED)

CodResult velonBuildScalarString(CodMemAlloc *owner, const CodText *value, Velon *velon) {
    return build<VELON_TYPE_STRING>(owner, value, velon);
}

CodResult velonBuildScalarBinary(CodMemAlloc *owner, const CodBytes *value, Velon *velon) {
    return build<VELON_TYPE_BINARY>(owner, value, velon);
}

CodResult velonBuildScalarNumber(CodMemAlloc *owner, const CodNumber *value, Velon *velon) {
    return build<VELON_TYPE_NUMBER>(owner, value, velon);
}

CodResult velonBuildScalarNull(CodMemAlloc *owner, Velon *velon) {
    return anyNull(owner, velon) ? codRaise(ERR_CMM_POINTER_NULL) : buildScalar<VELON_TYPE_NULL>(owner, NullPayload{}, velon);
}
