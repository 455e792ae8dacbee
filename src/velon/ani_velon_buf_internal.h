#pragma once

// Appending to a buffer: room, copying, payloads.
//
// A push checks everything and reserves all of its room before it writes the first byte, so that a failed one leaves no trace.

#include <string.h>

#include <type_traits>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon_base.h>
#include <vel_infra/velon/ani_velon_buf.h>

#include "velon/ani_velon_base_internal.h"

namespace cod::velon {

// ---- Room ----

// Where bytes that are to be copied stand: they move with the buffer when they lie in it.
struct Source {
    const CodUint8 *bytes;
    CodUint32 size;
};

COD_COLD CodResult growBuf(VelonBuf *buf, CodUint64 extra, Source *first, Source *second);

// Makes room for `extra` bytes; follows the sources (null: none) when the buffer moves.
inline CodResult reserve(VelonBuf *buf, CodUint64 extra, Source *first = nullptr, Source *second = nullptr) {
    return COD_LIKELY(buf->len + extra <= buf->capacity) ? COD_SUCCESS : growBuf(buf, extra, first, second);
}

// ---- Writing, where there is room ----

template <class T>
inline void storeLe(CodUint8 *bytes, T value) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    memcpy(bytes, &value, sizeof(value));
}

template <class T>
inline void copyEnds(CodUint8 *to, const CodUint8 *from, CodUint32 size) {
    const T head = loadLe<T>(from);
    const T tail = loadLe<T>(from + size - sizeof(T));
    storeLe(to, head);
    storeLe(to + size - sizeof(T), tail);
}

struct TwoWords {
    CodUint64 words[2];
};

// memmove that makes no call for the short keys, strings and tables that most are.
inline void copyBytes(CodUint8 *to, const CodUint8 *from, CodUint32 size) {
    if (size > sizeof(TwoWords)) {
        if (size > 2 * sizeof(TwoWords)) {
            memmove(to, from, size);
        } else {
            copyEnds<TwoWords>(to, from, size);
        }
    } else if (size >= 8) {
        copyEnds<CodUint64>(to, from, size);
    } else if (size >= 4) {
        copyEnds<CodUint32>(to, from, size);
    } else if (size != 0) {
        const CodUint8 first = from[0];
        const CodUint8 middle = from[size / 2];
        const CodUint8 last = from[size - 1];
        to[0] = first;
        to[size / 2] = middle;
        to[size - 1] = last;
    }
}

constexpr CodUint32 varintSize(CodUint32 value) {
    return 1 + (value >= 1u << 7) + (value >= 1u << 14) + (value >= 1u << 21) + (value >= 1u << 28);
}

inline CodUint32 writeVarint(CodUint32 value, CodUint8 *out) {
    CodUint32 i = 0;
    for (; value >= 0x80; value >>= 7) {
        out[i++] = static_cast<CodUint8>(value | 0x80);
    }
    out[i++] = static_cast<CodUint8>(value);
    return i;
}

// ---- Payloads: what stands behind a type byte. prepare may fail, write may not ----

template <class T>
struct FixedPayload {
    T value;

    CodResult prepare() const {
        return COD_SUCCESS;
    }
    CodUint64 size() const {
        return sizeof(T);
    }
    Source *source() {
        return nullptr;
    }
    CodUint8 *write(CodUint8 *to) const {
        storeLe(to, value);
        return to + sizeof(T);
    }
};

struct NullPayload {
    CodResult prepare() const {
        return COD_SUCCESS;
    }
    CodUint64 size() const {
        return 0;
    }
    Source *source() {
        return nullptr;
    }
    CodUint8 *write(CodUint8 *to) const {
        return to;
    }
};

COD_COLD CodResult raiseTooLong(VelonType type, CodUint32 size);

// A string or binary.
template <VelonType kType>
struct CountedPayload {
    Source bytes;

    CodResult prepare() const {
        return COD_LIKELY(bytes.size <= VELON_MAX_LENGTH) ? COD_SUCCESS : raiseTooLong(kType, bytes.size);
    }
    CodUint64 size() const {
        return CodUint64{varintSize(bytes.size)} + bytes.size;
    }
    Source *source() {
        return &bytes;
    }
    CodUint8 *write(CodUint8 *to) const {
        to += writeVarint(bytes.size, to);
        copyBytes(to, bytes.bytes, bytes.size);
        return to + bytes.size;
    }
};

struct NumberPayload {
    const CodNumber *number;
    CodUint8 stored[COD_NUMBER_STORED_SIZE];
    CodUint32 storedSize;

    CodResult prepare();
    CodUint64 size() const {
        return 1 + CodUint64{storedSize};
    }
    Source *source() {
        return nullptr;
    }
    CodUint8 *write(CodUint8 *to) const {
        to[0] = static_cast<CodUint8>(storedSize);
        memcpy(to + 1, stored, storedSize);
        return to + 1 + storedSize;
    }
};

// An encoded container, but for its type byte.
struct WholePayload {
    Source bytes;

    CodResult prepare() const {
        return COD_SUCCESS;
    }
    CodUint64 size() const {
        return bytes.size;
    }
    Source *source() {
        return &bytes;
    }
    CodUint8 *write(CodUint8 *to) const {
        memcpy(to, bytes.bytes, bytes.size);
        return to + bytes.size;
    }
};

inline Source sourceOf(const CodText &text) {
    return {reinterpret_cast<const CodUint8 *>(text.str), text.len};
}

// A value as its pushes take it, by type.
template <VelonType kType, class Value>
inline auto payloadOf(Value value) {
    if constexpr (kType == VELON_TYPE_STRING) {
        return CountedPayload<kType>{sourceOf(*value)};
    } else if constexpr (kType == VELON_TYPE_BINARY) {
        return CountedPayload<kType>{{value->data, value->size}};
    } else if constexpr (kType == VELON_TYPE_NUMBER) {
        NumberPayload payload;
        payload.number = value;
        return payload;
    } else if constexpr (kType == VELON_TYPE_OBJECT || kType == VELON_TYPE_ARRAY) {
        return WholePayload{{value->data.ptr + 1, value->data.len - 1}};
    } else if constexpr (kType == VELON_TYPE_BOOL) {
        return FixedPayload<CodUint8>{static_cast<CodUint8>(value)};
    } else {
        return FixedPayload<Value>{value};
    }
}

// Whether a value is missing: a null pointer, a view of no container.
template <class Value>
constexpr bool isMissing(Value value) {
    if constexpr (std::is_same_v<Value, const VelonObject *> || std::is_same_v<Value, const VelonArray *>) {
        return value == nullptr || value->data.len == 0;
    } else if constexpr (std::is_pointer_v<Value>) {
        return value == nullptr;
    } else {
        return false;
    }
}

// Appends a payload alone.
template <class Payload>
inline CodResult pushPayload(VelonBuf *buf, Payload payload) {
    COD_TRY(payload.prepare());
    COD_TRY(reserve(buf, payload.size(), payload.source()));
    buf->len = static_cast<CodUint32>(payload.write(buf->ptr + buf->len) - buf->ptr);
    return COD_SUCCESS;
}

}  // namespace cod::velon
