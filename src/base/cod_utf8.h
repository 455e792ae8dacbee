#pragma once

// Whether bytes are UTF-8 as RFC 3629 has it: no overlong forms, no surrogates, nothing above U+10FFFF, no character cut off at the end.
// No bytes at all are valid, and may then be at null. No byte outside of those given is read. Any thread.

#include "base/cod_bytes.h"

namespace cod {

bool isValidUtf8Chosen(const CodUint8 *data, CodUint64 length);

// At most 32 bytes. Loads from both ends overlap, so that no byte is left over.
inline bool isShortAscii(const CodUint8 *data, CodUint64 length) {
    CodUint64 all = 0;
    if (length >= 16) {
        all = loadLe<CodUint64>(data) | loadLe<CodUint64>(data + 8);
        all |= loadLe<CodUint64>(data + length - 16) | loadLe<CodUint64>(data + length - 8);
    } else if (length >= 8) {
        all = loadLe<CodUint64>(data) | loadLe<CodUint64>(data + length - 8);
    } else if (length >= 4) {
        all = loadLe<CodUint32>(data) | loadLe<CodUint32>(data + length - 4);
    } else if (length > 0) {
        all = CodUint64{data[0]} | data[length / 2] | data[length - 1];
    }
    return (all & 0x8080808080808080) == 0;
}

inline bool isValidUtf8(const CodUint8 *data, CodUint64 length) {
    return (length <= 32 && isShortAscii(data, length)) || isValidUtf8Chosen(data, length);
}

// Length of the longest prefix that consists of whole valid characters.
CodUint64 utf8ValidPrefix(const CodUint8 *data, CodUint64 length);

// Characters, counted in the same pass that validates. *isValid false: the count means nothing.
CodUint64 utf8CountCharacters(const CodUint8 *data, CodUint64 length, bool *isValid);

// ---- The choice: the widest variant that the processor has. Tests and measurements take others ----

// One choice for all that is done with UTF-8: 512 bits want what the conversions of cod_utf16.h need.
enum Utf8Variant : CodUint32 { kUtf8Scalar, kUtf8Simd256, kUtf8Simd512 };

Utf8Variant detectUtf8Variant();
// A variant that the processor lacks gives the widest one that it has. Returns what was chosen.
Utf8Variant setUtf8Variant(Utf8Variant variant);
// The present choice, made now if none was.
Utf8Variant utf8Variant();

// ---- What the variants share; cod_utf8.cpp tells how they work ----

// kUtf8NoFault, or a place at or before the first fault: what stands before it can begin a valid text.
using Utf8Scan = CodUint64 (*)(const CodUint8 *data, CodUint64 length);
constexpr CodUint64 kUtf8NoFault = ~CodUint64{0};

CodUint64 scanUtf8Scalar(const CodUint8 *data, CodUint64 length);
CodUint64 scanUtf8Simd256(const CodUint8 *data, CodUint64 length);  // AVX2
CodUint64 scanUtf8Simd512(const CodUint8 *data, CodUint64 length);  // AVX-512 F and BW

// As the scans. *characters is set where there is no fault.
using Utf8Count = CodUint64 (*)(const CodUint8 *data, CodUint64 length, CodUint64 *characters);
CodUint64 countUtf8Scalar(const CodUint8 *data, CodUint64 length, CodUint64 *characters);
CodUint64 countUtf8Simd256(const CodUint8 *data, CodUint64 length, CodUint64 *characters);
CodUint64 countUtf8Simd512(const CodUint8 *data, CodUint64 length, CodUint64 *characters);

// The classes that a byte and the next one belong to, by the halves of the first byte and the high half of the second: the bits that all
// three have. A pair of no class is well formed.
struct Utf8PairTables {
    CodUint8 firstHigh[16];
    CodUint8 firstLow[16];
    CodUint8 secondHigh[16];
};
extern const Utf8PairTables kUtf8PairTables;
// The class that is no fault by itself: a continuation behind another one, as third and fourth bytes must be.
constexpr CodUint8 kUtf8TwoContinuations = 0x80;

// Not 0 where a fault shows. Vector is a type of the variant's own source, so that no other source shares what is made of it.
template <class Vector, class Bytes>
[[gnu::always_inline]] inline Bytes findUtf8Faults(Bytes bytes, Bytes previous) {
    const Bytes across = Vector::across(bytes, previous);
    const Bytes first = Vector::template before<1>(bytes, across);
    const Bytes classes = Vector::lookUp(kUtf8PairTables.firstHigh, Vector::highHalves(first)) &
                          Vector::lookUp(kUtf8PairTables.firstLow, Vector::lowHalves(first)) &
                          Vector::lookUp(kUtf8PairTables.secondHigh, Vector::highHalves(bytes));
    // The top bits say where a third or a fourth byte must stand.
    const Bytes third = Vector::subtract(Vector::template before<2>(bytes, across), 0xE0 - 0x80);
    const Bytes fourth = Vector::subtract(Vector::template before<3>(bytes, across), 0xF0 - 0x80);
    return ((third | fourth) & Vector::fill(kUtf8TwoContinuations)) ^ classes;
}

// *characters, unless null, becomes their number: all bytes but the continuations.
template <class Vector>
[[gnu::always_inline]] inline CodUint64 scanUtf8Blocks(const CodUint8 *data, CodUint64 length, CodUint64 *characters) {
    constexpr CodUint64 size = Vector::kSize;
    constexpr CodUint64 block = 4 * size;
    auto previous = Vector::fill(0);
    CodUint64 tails = 0;
    CodUint64 begin = 0;
    for (; length - begin >= block; begin += block) {
        const auto a = Vector::load(data + begin);
        const auto b = Vector::load(data + begin + size);
        const auto c = Vector::load(data + begin + 2 * size);
        const auto d = Vector::load(data + begin + 3 * size);
        // A character may go on from the vector before.
        if (!Vector::isAscii(a | b | c | d | previous)) {
            const auto found = findUtf8Faults<Vector>(a, previous) | findUtf8Faults<Vector>(b, a) | findUtf8Faults<Vector>(c, b) |
                               findUtf8Faults<Vector>(d, c);
            if (!Vector::isZero(found)) {
                return begin;
            }
            tails += Vector::countTails(a) + Vector::countTails(b) + Vector::countTails(c) + Vector::countTails(d);
        }
        previous = d;
    }
    auto found = Vector::fill(0);
    CodUint64 i = begin;
    for (; length - i >= size; i += size) {
        const auto bytes = Vector::load(data + i);
        if (!Vector::isAscii(bytes | previous)) {
            found |= findUtf8Faults<Vector>(bytes, previous);
            tails += Vector::countTails(bytes);
        }
        previous = bytes;
    }
    const auto rest = i == length ? Vector::fill(0) : Vector::loadRest(data + i, length - i);
    if (!Vector::isAscii(rest | previous)) {
        found |= findUtf8Faults<Vector>(rest, previous);
        tails += Vector::countTails(rest);
    }
    if (characters != nullptr) {
        *characters = length - tails;
    }
    return Vector::isZero(found) ? kUtf8NoFault : begin;
}

}  // namespace cod
