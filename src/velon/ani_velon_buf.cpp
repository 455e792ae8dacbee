#include <vel_infra/velon/ani_velon_buf.h>

#include <algorithm>

#include "velon/ani_velon_buf_internal.h"

namespace cod::velon {
namespace {

COD_COLD CodResult raiseExceedsMaxSize() {
    return codRaise(ERR_CMM_VELON_EXCEEDS_MAX_SIZE, VELON_MAX_SIZE);
}

// Where a source will stand when the buffer has moved.
struct Following {
    Source *source;
    CodUint64 offset;

    // Addresses of different objects are compared as numbers.
    Following(const VelonBuf &buf, Source *followed) : source(followed), offset(0) {
        if (source != nullptr) {
            offset = reinterpret_cast<CodUint64>(source->bytes) - reinterpret_cast<CodUint64>(buf.ptr);
            source = source->bytes != nullptr && buf.ptr != nullptr && offset < buf.len ? source : nullptr;
        }
    }
    void follow(const VelonBuf &buf) const {
        if (source != nullptr) {
            source->bytes = buf.ptr + offset;
        }
    }
};

}  // namespace

CodResult growBuf(VelonBuf *buf, CodUint64 extra, Source *first, Source *second) {
    if (buf->owner == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const CodUint64 needed = buf->len + extra;
    if (needed > VELON_MAX_SIZE) {
        return raiseExceedsMaxSize();
    }
    // Not beyond the limit, so that what fits the capacity keeps it.
    const CodUint64 doubled = std::min<CodUint64>(2 * CodUint64{buf->capacity}, VELON_MAX_SIZE);
    const auto capacity = static_cast<CodUint32>(std::max(roundUp8(static_cast<CodUint32>(needed)), doubled));
    const Following sources[] = {{*buf, first}, {*buf, second}};
    void *memory = buf->ptr;
    if (memory == nullptr) {
        COD_TRY(buf->owner->alloc(buf->owner, capacity, &memory));
    } else {
        COD_TRY(codMemExtend(buf->owner, &memory, buf->capacity, capacity, true));
    }
    buf->ptr = static_cast<CodUint8 *>(memory);
    buf->capacity = capacity;
    for (const Following &source : sources) {
        source.follow(*buf);
    }
    return COD_SUCCESS;
}

CodResult raiseTooLong(VelonType type, CodUint32 size) {
    return type == VELON_TYPE_STRING ? codRaise(ERR_CMM_VELON_STRING_TOO_LONG, static_cast<int>(size))
                                     : codRaise(ERR_CMM_VELON_BINARY_TOO_LONG, static_cast<int>(size));
}

CodResult NumberPayload::prepare() {
    CodNumber copy = *number;  // the encoder takes its trailing zeros away
    CodBytes bytes = {stored, sizeof(stored), 0};
    COD_TRY(codNumberEncode(&copy, &bytes));
    storedSize = bytes.size;
    return COD_SUCCESS;
}

}  // namespace cod::velon

using namespace cod::velon;

VelonBuf velonBufNew(CodMemAlloc *owner) {
    return {owner, nullptr, 0, 0};
}

CodResult velonBufFromRaw(CodMemAlloc *owner, CodUint8 *ptr, CodUint32 capacity, CodUint32 len, VelonBuf *buf) {
    if (anyNull(buf) || (ptr == nullptr && capacity != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (len > capacity) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the buffer's length exceeds its capacity");
    }
    *buf = {owner, ptr, capacity, len};
    return COD_SUCCESS;
}

CodResult velonBufWithCapacity(CodMemAlloc *owner, CodUint32 capacity, VelonBuf *buf) {
    if (anyNull(owner, buf)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *buf = velonBufNew(owner);
    if (capacity > VELON_MAX_SIZE) {
        return raiseExceedsMaxSize();
    }
    if (capacity != 0) {
        void *memory = nullptr;
        COD_TRY(owner->alloc(owner, capacity, &memory));
        buf->ptr = static_cast<CodUint8 *>(memory);
        buf->capacity = capacity;
    }
    return COD_SUCCESS;
}

CodResult velonBufReserve(VelonBuf *buf, CodUint32 extra) {
    return anyNull(buf) ? codRaise(ERR_CMM_POINTER_NULL) : reserve(buf, extra);
}

CodResult velonBufPushString(VelonBuf *buf, const CodText *text) {
    return anyNull(buf, text) ? codRaise(ERR_CMM_POINTER_NULL) : pushPayload(buf, payloadOf<VELON_TYPE_STRING>(text));
}

CodResult velonBufPushBinary(VelonBuf *buf, const CodBytes *bytes) {
    return anyNull(buf, bytes) ? codRaise(ERR_CMM_POINTER_NULL) : pushPayload(buf, payloadOf<VELON_TYPE_BINARY>(bytes));
}

CodResult velonBufPushNumber(VelonBuf *buf, const CodNumber *number) {
    return anyNull(buf, number) ? codRaise(ERR_CMM_POINTER_NULL) : pushPayload(buf, payloadOf<VELON_TYPE_NUMBER>(number));
}

CodResult velonBufMoveToVelon(VelonBuf *buf, Velon *velon) {
    if (anyNull(buf, velon)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *velon = {buf->owner, {buf->ptr, buf->len, buf->capacity}};
    *buf = velonBufNew(buf->owner);
    return COD_SUCCESS;
}

void velonBufFree(VelonBuf *buf) {
    if (buf == nullptr) {
        return;
    }
    if (buf->ptr != nullptr && buf->owner != nullptr && buf->owner->free != nullptr) {
        buf->owner->free(buf->owner, buf->ptr);
    }
    *buf = velonBufNew(buf->owner);
}
