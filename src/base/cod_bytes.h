#pragma once

// Little-endian reads from any address, and sizes that do not wrap.

#include <cstring>

#include <vel_infra/base/cod_types.h>

namespace cod {

template <class T>
inline T loadLe(const void *bytes) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

constexpr bool isPowerOf2(CodUint64 value) {
    return value != 0 && (value & (value - 1)) == 0;
}

// value rounded up to a multiple of 8, in 64 bits so that no 32-bit size wraps.
constexpr CodUint64 roundUp8(CodUint32 value) {
    return (CodUint64{value} + 7) & ~CodUint64{7};
}

}  // namespace cod
