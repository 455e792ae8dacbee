#include <vel_infra/algorithm/ani_hashfunc.h>

#include <string.h>
#include <sys/random.h>

#include <atomic>
#include <bit>

#include <vel_infra/utils/ani_clock.h>

#include "algorithm/ani_murmur.h"

namespace {

// SipHash: four words of state, mixed by rounds of additions, rotations and exclusive ors; one round per word, three at the end.
struct SipState {
    CodUint64 v0, v1, v2, v3;

    void round() {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }
    void absorb(CodUint64 word) {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

struct SipKey {
    CodUint64 low, high;
};

CodUint64 sipHash13(SipKey key, const void *ptr, CodUint64 len) {
    SipState state{key.low ^ 0x736f6d6570736575ULL, key.high ^ 0x646f72616e646f6dULL, key.low ^ 0x6c7967656e657261ULL,
                   key.high ^ 0x7465646279746573ULL};
    const auto *bytes = static_cast<const CodUint8 *>(ptr);
    for (const CodUint8 *end = bytes + len / 8 * 8; bytes != end; bytes += 8) {
        state.absorb(cod::loadLe<CodUint64>(bytes));
    }
    CodUint64 last = len << 56;
    for (CodUint64 i = 0; i < len % 8; i++) {
        last |= CodUint64{bytes[i]} << (8 * i);
    }
    state.absorb(last);
    state.v2 ^= 0xff;
    for (int i = 0; i < 3; i++) {
        state.round();
    }
    return state.v0 ^ state.v1 ^ state.v2 ^ state.v3;
}

// The secret behind the keyed hashes; 0: not drawn yet. 64 bits are far beyond guessing from the order of a hash map.
constinit std::atomic<CodUint64> gProcessSecret{0};

// Threads that come at the same time all draw, and the first one's secret holds.
COD_COLD CodUint64 drawProcessSecret() {
    CodUint64 drawn = 0;
    if (getrandom(&drawn, sizeof drawn, 0) != ssize_t{sizeof drawn}) {
        // A system without the call: time and the place of the stack, which an outsider can at least not see.
        drawn = static_cast<CodUint64>(codInstantNow()) * 0x9E3779B97F4A7C15ULL ^ reinterpret_cast<CodUint64>(__builtin_frame_address(0));
    }
    drawn |= 1;
    CodUint64 known = 0;
    return gProcessSecret.compare_exchange_strong(known, drawn, std::memory_order_relaxed) ? drawn : known;
}

SipKey processKey() {
    const CodUint64 secret = gProcessSecret.load(std::memory_order_relaxed);
    const CodUint64 low = COD_LIKELY(secret != 0) ? secret : drawProcessSecret();
    return {low, std::rotl(low, 32) ^ 0x9E3779B97F4A7C15ULL};
}

struct Span {
    const void *data;
    CodUint32 size;
};

Span textOf(CodHashPointer key) {
    const auto *text = static_cast<const CodText *>(key.ptrValue);
    return {text->str, text->len};
}

Span bytesOf(CodHashPointer key) {
    const auto *bytes = static_cast<const CodBytes *>(key.ptrValue);
    return {bytes->data, bytes->size};
}

CodUint32 fold(CodUint64 hash) {
    return static_cast<CodUint32>(hash ^ (hash >> 32));
}

CodInt32 compare(Span left, Span right) {
    if (left.size != right.size) {
        return left.size < right.size ? -1 : 1;
    }
    return left.size == 0 ? 0 : memcmp(left.data, right.data, left.size);
}

}  // namespace

CodUint64 codMurmurHash64(const void *ptr, CodUint32 len) {
    return cod::murmurHash64(ptr, len);
}

CodUint64 codSipHash13(const CodUint8 *key, const void *ptr, CodUint64 len) {
    if (key == nullptr) {
        return 0;
    }
    return sipHash13({cod::loadLe<CodUint64>(key), cod::loadLe<CodUint64>(key + 8)}, ptr, len);
}

CodUint32 codHashCalcText(CodHashPointer key) {
    const Span text = textOf(key);
    return fold(cod::murmurHash64(text.data, text.size));
}

CodInt32 codHashCompareText(CodHashPointer left, CodHashPointer right) {
    return compare(textOf(left), textOf(right));
}

CodUint32 codHashCalcBytes(CodHashPointer key) {
    const Span bytes = bytesOf(key);
    return fold(cod::murmurHash64(bytes.data, bytes.size));
}

CodInt32 codHashCompareBytes(CodHashPointer left, CodHashPointer right) {
    return compare(bytesOf(left), bytesOf(right));
}

CodUint32 codHashCalcTextKeyed(CodHashPointer key) {
    const Span text = textOf(key);
    return fold(sipHash13(processKey(), text.data, text.size));
}

CodUint32 codHashCalcBytesKeyed(CodHashPointer key) {
    const Span bytes = bytesOf(key);
    return fold(sipHash13(processKey(), bytes.data, bytes.size));
}
