#pragma once

// MurmurHash64A (Austin Appleby, public domain) inline, for the callers that hash on a hot path.

#include "base/cod_bytes.h"

namespace cod {

// 1 to 7 bytes as a little-endian number.
inline CodUint64 loadTail(const CodUint8 *bytes, CodUint32 count) {
    if (count >= 4) {
        const CodUint64 last = loadLe<CodUint32>(bytes + count - 4);
        return loadLe<CodUint32>(bytes) | last << (8 * (count - 4));
    }
    CodUint64 word = bytes[0];
    word |= CodUint64{bytes[count / 2]} << (8 * (count / 2));
    return word | CodUint64{bytes[count - 1]} << (8 * (count - 1));
}

inline CodUint64 murmurHash64(const void *ptr, CodUint32 len) {
    constexpr CodUint64 kMultiplier = 0xc6a4a7935bd1e995ULL;
    constexpr CodUint64 kSeed = 0xe17a1465;
    constexpr int kShift = 47;

    CodUint64 hash = kSeed ^ (len * kMultiplier);
    const auto *bytes = static_cast<const CodUint8 *>(ptr);
    for (const CodUint8 *end = bytes + len / 8 * 8; bytes != end; bytes += 8) {
        CodUint64 word = loadLe<CodUint64>(bytes) * kMultiplier;
        word = (word ^ (word >> kShift)) * kMultiplier;
        hash = (hash ^ word) * kMultiplier;
    }
    if (const CodUint32 tail = len % 8) {
        // The tail as a little-endian number: the last whole word shifted into place, where there is one.
        hash = (hash ^ (len > 8 ? loadLe<CodUint64>(bytes + tail - 8) >> (64 - 8 * tail) : loadTail(bytes, tail))) * kMultiplier;
    }
    hash = (hash ^ (hash >> kShift)) * kMultiplier;
    return hash ^ (hash >> kShift);
}

}  // namespace cod
