#pragma once

// UTF-8 to UTF-16 in little-endian order and back, by vectors, for the stretches of a text that are valid.

#include "base/cod_utf8.h"

namespace cod {

// Bytes.
struct Utf16Progress {
    CodUint64 read;
    CodUint64 written;
};

// Converts whole characters from the begin on. Stops before the first fault, or a few characters earlier, and where a vector of them does
// not fit; the rest is the caller's. No byte outside of those given is read or written. Room behind what is counted as written may hold
// anything afterwards. By the choice of cod_utf8.h; the scalar variant converts nothing. Any thread.
Utf16Progress utf8ToUtf16(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);
Utf16Progress utf16ToUtf8(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);

// ---- What the variants share; cod_utf16.cpp tells how they work ----

using Utf16Convert = Utf16Progress (*)(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);

Utf16Progress utf8ToUtf16Simd256(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);  // AVX2
Utf16Progress utf16ToUtf8Simd256(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);
Utf16Progress utf8ToUtf16Simd512(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);  // AVX-512 F, BW, VBMI and VBMI2
Utf16Progress utf16ToUtf8Simd512(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room);

// For each mask of eight bytes the places of those that it keeps, one behind the other.
struct Utf16KeepTable {
    CodUint8 places[256][8];
};
extern const Utf16KeepTable kUtf16KeepTable;

// The lowest bits, at least one.
[[gnu::always_inline]] inline CodUint64 lowBits(CodUint64 count) {
    return ~CodUint64{0} >> (64 - count);
}

// The units' halves at the last bytes of characters; those of four bytes have the first unit of their pair at the third byte.
template <class Bytes>
struct Utf16Halves {
    Bytes low;
    Bytes high;
};

template <class Vector>
[[gnu::always_inline]] inline auto makeUtf16Halves(typename Vector::Bytes bytes, bool hasPairs) {
    using Bytes = typename Vector::Bytes;
    const Bytes back1 = bytes >= 0x80 ? Vector::template behind<1>(bytes) : Bytes{};
    const Bytes back2 = Vector::template behind<2>(bytes);
    const Bytes lead = back2 >= 0xE0 ? back2 << 4 : Bytes{};
    Utf16Halves<Bytes> halves = {(bytes & 0x7F) | back1 << 6, (back1 >> 2 & 0x0F) | lead};
    if (COD_UNLIKELY(hasPairs)) {
        // The first unit is 0xD7C0 and the code point's bits from 10 on.
        const Bytes carry = back1 >= 0x90 ? Bytes{} + 1 : Bytes{};
        const Bytes firstLow = (back1 << 2 | (bytes >> 4 & 3)) + 0xC0;
        const Bytes firstHigh = (back2 & 7) + carry + 0xD7;
        const Bytes secondHigh = Vector::template behind<3>(bytes) >= 0xF0 ? (halves.high & 3) | 0xDC : halves.high;
        const auto isFirst = back2 >= 0xF0;
        halves = {isFirst ? firstLow : halves.low, isFirst ? firstHigh : secondHigh};
    }
    return halves;
}

template <class Vector>
[[gnu::always_inline]] inline Utf16Progress utf8ToUtf16Blocks(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    using Bytes = typename Vector::Bytes;
    constexpr CodUint64 size = Vector::kSize;
    Utf16Progress done = {0, 0};
    while (done.read < length) {
        const CodUint64 left = length - done.read;
        const CodUint64 free = room - done.written;
        const auto bytes = left >= size ? Vector::load(in + done.read) : Vector::loadRest(in + done.read, left);
        if (Vector::isAscii(bytes) && left >= size && free >= 2 * size) {
            Vector::storeAscii(bytes, out + done.written);
            done = {done.read + size, done.written + 2 * size};
            continue;
        }
        // A vector begins with a character and is taken up to the begin of its last one. A branch on faults, instead of masks only, lets
        // the next vector begin before this one is validated.
        CodUint64 leads = Vector::leadsOf(bytes);
        const auto found = findUtf8Faults<Vector>(bytes, Vector::fill(0));
        if (COD_UNLIKELY(left < size || !Vector::isZero(found))) {
            // Up to the begin of the last one before a fault; what is behind the end begins one too.
            const CodUint64 stops = Vector::bitsOf(Vector::isNotZero(found)) | (left < size ? CodUint64{2} << left : 0);
            leads &= (stops - 1) & ~stops;
        }
        if (leads <= 1) {
            break;
        }
        const auto taken = static_cast<CodUint64>(63 - __builtin_clzll(leads));
        const CodUint64 fours = Vector::bitsOf(Bytes(bytes) >= 0xF0);
        const CodUint64 units = (leads >> 1 | fours << 2) & lowBits(taken);
        const auto written = 2 * static_cast<CodUint64>(__builtin_popcountll(units));
        const auto halves = makeUtf16Halves<Vector>(Bytes(bytes), fours != 0);
        CodUint8 aside[2 * size];
        CodUint8 *to = free >= sizeof(aside) ? out + done.written : aside;
        if (to == aside && free < written) {
            break;
        }
        Vector::storeUnits(halves, units, to);
        if (COD_UNLIKELY(to == aside)) {
            __builtin_memcpy(out + done.written, aside, written);
        }
        done = {done.read + taken, done.written + written};
    }
    return done;
}

// The bytes of each unit that is no surrogate, at the begin of its lane but for zeros; the last one of them is the lane's third byte.
template <class Lanes>
[[gnu::always_inline]] inline Lanes makeUtf8Lanes(Lanes units) {
    const Lanes three = units >> 12 | (units << 2 & 0x3F00) | (units << 16 & 0x3F0000) | 0x8080E0;
    const Lanes two = three ^ (0x8080E0 ^ 0x80C000);
    return units < 0x80 ? units << 16 : units < 0x800 ? two : three;
}

// Two bytes of each surrogate.
template <class Lanes>
[[gnu::always_inline]] inline Lanes makeUtf8PairLanes(Lanes units, Lanes before) {
    const Lanes first = units - 0xD7C0;  // the code point's bits from 10 on
    const Lanes lead = (first & 0x700) | (first << 14 & 0x3F0000) | 0x80F000;
    const Lanes tail = (before << 12 & 0x3000) | (units << 2 & 0x0F00) | (units << 16 & 0x3F0000) | 0x808000;
    return units < 0xDC00 ? lead : tail;
}

template <class Vector>
[[gnu::always_inline]] inline Utf16Progress utf16ToUtf8Blocks(const CodUint8 *in, CodUint64 length, CodUint8 *out, CodUint64 room) {
    using Lanes = typename Vector::Lanes;
    constexpr CodUint64 lanes = Vector::kSize / 4;
    Utf16Progress done = {0, 0};
    while (length - done.read >= 2) {
        const CodUint64 left = (length - done.read) / 2;
        const CodUint64 free = room - done.written;
        if (left >= 2 * lanes && free >= 2 * lanes && Vector::packAscii(in + done.read, out + done.written)) {
            done = {done.read + 4 * lanes, done.written + 2 * lanes};
            continue;
        }
        const Lanes units = left >= lanes ? Vector::widen(in + done.read) : Vector::widenRest(in + done.read, left);
        Lanes bytes = makeUtf8Lanes(units);
        CodUint64 taken = left < lanes ? left : lanes;
        const auto isSurrogate = (units & 0xF800) == 0xD800;
        if (COD_UNLIKELY(Vector::bitsOfLanes(isSurrogate) != 0)) {
            // A surrogate that wants its other half ends what is taken: before a lone one, or a pair that goes on behind the vector.
            const CodUint64 firsts = Vector::bitsOfLanes((units & 0xFC00) == 0xD800);
            const CodUint64 seconds = Vector::bitsOfLanes((units & 0xFC00) == 0xDC00);
            const CodUint64 wrong = firsts << 1 ^ seconds;
            if (COD_UNLIKELY(wrong != 0)) {
                taken = static_cast<CodUint64>(__builtin_ctzll(wrong | CodUint64{1} << taken));
                taken -= firsts << 1 >> taken & 1;
            }
            if (taken == 0) {
                break;
            }
            bytes = isSurrogate ? makeUtf8PairLanes(units, Vector::laneBehind(units)) : bytes;
        }
        const CodUint64 notZero = Vector::bitsOf(typename Vector::Bytes(bytes) != 0);
        const CodUint64 kept = (notZero | 0x4444444444444444) & lowBits(4 * taken);
        const auto written = static_cast<CodUint64>(__builtin_popcountll(kept));
        CodUint8 aside[4 * lanes];
        CodUint8 *to = free >= sizeof(aside) ? out + done.written : aside;
        if (to == aside && free < written) {
            break;
        }
        Vector::storeKept(bytes, kept, to);
        if (COD_UNLIKELY(to == aside)) {
            __builtin_memcpy(out + done.written, aside, written);
        }
        done = {done.read + 2 * taken, done.written + written};
    }
    return done;
}

}  // namespace cod
