// UTF-8: the tables of all variants, the scalar variant, and the choice.
//
// The vector variants follow J. Keiser and D. Lemire, "Validating UTF-8 in less than one instruction per byte" (2020). Each byte is judged
// with the one before it: both make up eight classes of pairs, seven of which are faults, and each of the three halves of bytes that tell
// the classes apart is looked up in a table of 16 entries. The eighth class, two continuations, must stand exactly where a lead byte of
// three or four bytes, two or three places before, asks for it. A byte 0 behind the end shows a character that is cut off.
//
// The scalar variant is a state machine by shifts, after P. Vognsen, "Shift-based DFAs" (2020): each byte has a word, in which the next
// state stands at the place that the present state says. A step is one shift by what the step before gave, without a branch.

#include "base/cod_utf8.h"

#include <algorithm>
#include <atomic>

#include "base/cod_cpu.h"

namespace cod {
namespace {

// ---- Classes of pairs ----

// Sets of halves of bytes: bit n for the half n.
constexpr CodUint16 kAny = 0xFFFF;
constexpr CodUint16 kContinuation = 0x0F00;

struct PairClass {
    CodUint16 firstHigh;
    CodUint16 firstLow;
    CodUint16 secondHigh;
};

constexpr PairClass kPairClasses[8] = {
    {0xF000, kAny, static_cast<CodUint16>(~kContinuation)},  // a lead byte, and no continuation
    {0x00FF, kAny, kContinuation},                           // ASCII, and a continuation
    {1 << 0xC, 0x0003, kContinuation},                       // C0, C1: overlong
    {1 << 0xE, 1 << 0x0, 0x0300},                            // E0 with 80 to 9F: overlong
    {1 << 0xE, 1 << 0xD, 0x0C00},                            // ED with A0 to BF: a surrogate
    {1 << 0xF, 0xFFF0, 0x0E00},                              // F4 and more with 90 to BF: above U+10FFFF
    {1 << 0xF, 0xFFE1, 0x0100},                              // F0 with 80 to 8F: overlong; F5 and more: above U+10FFFF
    {kContinuation, kAny, kContinuation},                    // kUtf8TwoContinuations
};

constexpr Utf8PairTables makePairTables() {
    Utf8PairTables tables{};
    for (CodUint32 half = 0; half < 16; half++) {
        for (CodUint32 i = 0; i < 8; i++) {
            const PairClass &pair = kPairClasses[i];
            tables.firstHigh[half] = static_cast<CodUint8>(tables.firstHigh[half] | (pair.firstHigh >> half & 1) << i);
            tables.firstLow[half] = static_cast<CodUint8>(tables.firstLow[half] | (pair.firstLow >> half & 1) << i);
            tables.secondHigh[half] = static_cast<CodUint8>(tables.secondHigh[half] | (pair.secondHigh >> half & 1) << i);
        }
    }
    return tables;
}

// ---- The state machine ----

// States are shifts: six bits a state. Behind a character, and what may follow: 1 to 3 continuations, or those behind a certain lead byte.
enum : CodUint8 { kFault = 0, kStart = 6, kOne = 12, kTwo = 18, kThree = 24, kAfterE0 = 30, kAfterEd = 36, kAfterF0 = 42, kAfterF4 = 48 };
constexpr CodUint64 kStateMask = 63;

struct Step {
    CodUint8 state;
    CodUint8 first;
    CodUint8 last;
    CodUint8 next;
};

constexpr Step kSteps[] = {
    {kStart, 0x00, 0x7F, kStart},   {kStart, 0xC2, 0xDF, kOne},   {kStart, 0xE0, 0xE0, kAfterE0}, {kStart, 0xE1, 0xEC, kTwo},
    {kStart, 0xED, 0xED, kAfterEd}, {kStart, 0xEE, 0xEF, kTwo},   {kStart, 0xF0, 0xF0, kAfterF0}, {kStart, 0xF1, 0xF3, kThree},
    {kStart, 0xF4, 0xF4, kAfterF4}, {kOne, 0x80, 0xBF, kStart},   {kTwo, 0x80, 0xBF, kOne},       {kThree, 0x80, 0xBF, kTwo},
    {kAfterE0, 0xA0, 0xBF, kOne},   {kAfterEd, 0x80, 0x9F, kOne}, {kAfterF0, 0x90, 0xBF, kTwo},   {kAfterF4, 0x80, 0x8F, kTwo},
};

struct StateTable {
    CodUint64 of[256];
};

constexpr StateTable makeStateTable() {
    StateTable table{};
    for (const Step &step : kSteps) {
        for (CodUint32 byte = step.first; byte <= step.last; byte++) {
            table.of[byte] |= CodUint64{step.next} << step.state;
        }
    }
    return table;
}
constexpr StateTable kNext = makeStateTable();

// The state is the low six bits of what is given and returned.
inline CodUint64 stepOver(CodUint64 state, CodUint8 byte) {
    return kNext.of[byte] >> (state & kStateMask);
}

inline bool isIn(CodUint64 state, CodUint64 wanted) {
    return (state & kStateMask) == wanted;
}

CodUint64 validPrefixByteByByte(const CodUint8 *data, CodUint64 length) {
    CodUint64 prefix = 0;
    CodUint64 state = kStart;
    for (CodUint64 i = 0; i < length && !isIn(state, kFault); i++) {
        state = stepOver(state, data[i]);
        prefix = isIn(state, kStart) ? i + 1 : prefix;
    }
    return prefix;
}

// ---- The choice ----

// In the order of Utf8Variant.
constexpr Utf8Scan kScans[] = {scanUtf8Scalar, scanUtf8Simd256, scanUtf8Simd512};
constexpr Utf8Count kCounts[] = {countUtf8Scalar, countUtf8Simd256, countUtf8Simd512};

constexpr CodUint32 kNotChosen = ~0u;
constinit std::atomic<CodUint32> gVariant{kNotChosen};

CodUint64 scan(const CodUint8 *data, CodUint64 length) {
    return kScans[utf8Variant()](data, length);
}

}  // namespace

constexpr Utf8PairTables kUtf8PairTables = makePairTables();

CodUint64 scanUtf8Scalar(const CodUint8 *data, CodUint64 length) {
    constexpr CodUint64 block = 16;
    CodUint64 state = kStart;
    CodUint64 begin = 0;
    for (; length - begin >= block; begin += block) {
        const CodUint64 all = loadLe<CodUint64>(data + begin) | loadLe<CodUint64>(data + begin + 8);
        if ((all & 0x8080808080808080) == 0 && isIn(state, kStart)) {
            continue;
        }
        for (CodUint64 i = 0; i < block; i++) {
            state = stepOver(state, data[begin + i]);
        }
        if (isIn(state, kFault)) {
            return begin;
        }
    }
    for (CodUint64 i = begin; i < length; i++) {
        state = stepOver(state, data[i]);
    }
    return isIn(state, kStart) ? kUtf8NoFault : begin;
}

CodUint64 countUtf8Scalar(const CodUint8 *data, CodUint64 length, CodUint64 *characters) {
    CodUint64 count = 0;
    for (CodUint64 i = 0; i < length; i++) {
        count += (data[i] & 0xC0) != 0x80;
    }
    *characters = count;
    return scanUtf8Scalar(data, length);
}

Utf8Variant detectUtf8Variant() {
    const CpuFeatures features = cpuFeatures();
    return features.avx512vbmi2 ? kUtf8Simd512 : features.avx2 ? kUtf8Simd256 : kUtf8Scalar;
}

Utf8Variant setUtf8Variant(Utf8Variant variant) {
    const Utf8Variant chosen = std::min(variant, detectUtf8Variant());
    gVariant.store(chosen, std::memory_order_relaxed);
    return chosen;
}

Utf8Variant utf8Variant() {
    const CodUint32 variant = gVariant.load(std::memory_order_relaxed);
    return COD_LIKELY(variant != kNotChosen) ? static_cast<Utf8Variant>(variant) : setUtf8Variant(detectUtf8Variant());
}

bool isValidUtf8Chosen(const CodUint8 *data, CodUint64 length) {
    return scan(data, length) == kUtf8NoFault;
}

CodUint64 utf8ValidPrefix(const CodUint8 *data, CodUint64 length) {
    CodUint64 begin = scan(data, length);
    if (begin == kUtf8NoFault) {
        return length;
    }
    // Back to the begin of a character: the last one before may go on here.
    while (begin > 0 && (data[--begin] & 0xC0) == 0x80) {
    }
    return begin + validPrefixByteByByte(data + begin, length - begin);
}

CodUint64 utf8CountCharacters(const CodUint8 *data, CodUint64 length, bool *isValid) {
    CodUint64 count = length;
    *isValid = (length <= 32 && isShortAscii(data, length)) || kCounts[utf8Variant()](data, length, &count) == kUtf8NoFault;
    return count;
}

}  // namespace cod
