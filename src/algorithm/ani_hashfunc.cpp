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

enum : int { kNoKey, kDrawing, kReady };
constinit SipKey gProcessKey{};
constinit std::atomic<int> gProcessKeyState{kNoKey};

// Drawn by the first thread that needs it; threads that come meanwhile wait for it.
COD_COLD void drawProcessKey() {
    int expected = kNoKey;
    if (!gProcessKeyState.compare_exchange_strong(expected, kDrawing, std::memory_order_acquire)) {
        while (gProcessKeyState.load(std::memory_order_acquire) != kReady) {
        }
        return;
    }
    if (getrandom(&gProcessKey, sizeof gProcessKey, 0) != ssize_t{sizeof gProcessKey}) {
        // A system without the call: time and the place of the stack, which an outsider can at least not see.
        gProcessKey = {static_cast<CodUint64>(codInstantNow()), reinterpret_cast<CodUint64>(__builtin_frame_address(0))};
    }
    gProcessKeyState.store(kReady, std::memory_order_release);
}

const SipKey &processKey() {
    if (COD_UNLIKELY(gProcessKeyState.load(std::memory_order_acquire) != kReady)) {
        drawProcessKey();
    }
    return gProcessKey;
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
