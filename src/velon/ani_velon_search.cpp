// The search of key tables: keys ascend by length, then by bytes.
//
// A record begins with its key's length and bytes, so its first eight bytes are most of a comparison: the length and six bytes of the key
// as one word, of which the bytes swapped order as the keys do. Only keys that agree in that word are compared as bytes.
//
// The outcome of a comparison cannot be foreseen, and a mispredicted branch costs more than comparing several keys does. So a lookup halves
// the table only as far as kMostScanned places, and then compares the words of all that are left for equality, four at a time without a
// branch. Where that is not enough, more than one key agrees or something is odd, such as a record beyond the limit, the plain search
// decides. In a table that is in order, equal keys included, the result is the plain search's; in one that is not, a key may be found that
// it would miss.

#include <emmintrin.h>

#include <algorithm>

#include "velon/ani_velon_base_internal.h"

namespace cod::velon {
namespace {

// The plain search: lo = 0, hi = count, mid = lo + (hi - lo) / 2, left at the first equal key. *place: that key's, else of the first
// greater one.
CodResult searchPlainly(const VelonObject &object, const CodText &key, CodUint32 *place, bool *isEqual) {
    CodUint32 lo = 0;
    CodUint32 hi = object.data.aux;
    *isEqual = false;
    while (lo < hi && !*isEqual) {
        const CodUint32 mid = lo + (hi - lo) / 2;
        CodText probed = {};
        CodUint32 valuePos = 0;
        COD_TRY(readRecord(object, keyOffsetAt(object, mid), &probed, &valuePos));
        const CodInt32 order = compareKeys(probed, key);
        *isEqual = order == 0;
        lo = order < 0 ? mid + 1 : order == 0 ? mid : lo;
        hi = order < 0 ? hi : mid;
    }
    *place = lo;
    return COD_SUCCESS;
}

constexpr CodUint32 kWord = sizeof(CodUint64);
constexpr CodUint32 kWordKeyBytes = kWord - sizeof(CodUint16);  // bytes of the key in a record's first word
constexpr CodUint32 kMostWordLength = 0xFF;                     // longer keys do not order by the swapped word
constexpr CodUint32 kLongerLength = 0xFF00;                     // the bits of a record's word that tell of one

// A key table: offsets and limit count from the count field; the table stands two bytes behind it.
struct Table {
    const CodUint8 *base;
    CodUint32 limit;
    CodUint32 count;

    const CodUint8 *entry(CodUint32 index) const {
        return base + sizeof(CodUint16) + CodUint64{kKeyEntry} * index;
    }
    CodUint32 recordAt(CodUint32 index) const {
        return loadLe<CodUint32>(entry(index));
    }
};

// The first bytes of a short key, no byte behind it read.
CodUint64 firstBytes(const CodText &key) {
    if (COD_LIKELY(key.len >= 4)) {
        const CodUint32 apart = std::min(key.len - 4, 2u);
        return loadLe<CodUint32>(key.str) | CodUint64{loadLe<CodUint32>(key.str + apart)} << (8 * apart);
    }
    CodUint64 bytes = 0;
    for (CodUint32 i = 0; i < key.len; i++) {
        bytes |= CodUint64{static_cast<CodUint8>(key.str[i])} << (8 * i);
    }
    return bytes;
}

// A key of at most kMostWordLength bytes that is looked for.
struct WordKey {
    CodText text;
    CodUint64 word;  // what a record of this key begins with ...
    CodUint64 mask;  // ... in these bits

    explicit WordKey(const CodText &key)
        : text(key),
          word(firstBytes(key) << 16 | key.len),
          mask(~CodUint64{0} >> (8 * (kWordKeyBytes - std::min(key.len, kWordKeyBytes)))) {}
    // Whether the bytes of a record whose word agrees are those of the key. Up to 14 bytes the last eight, as two halves, tell.
    bool isRestEqual(const CodUint8 *keyBytes) const {
        if (text.len <= kWordKeyBytes) {
            return true;
        }
        if (text.len <= kWordKeyBytes + 8) {
            const CodUint32 last = text.len - 4;
            const CodUint32 before = last - std::min(last, 4u);
            return ((loadLe<CodUint32>(keyBytes + last) ^ loadLe<CodUint32>(text.str + last)) |
                    (loadLe<CodUint32>(keyBytes + before) ^ loadLe<CodUint32>(text.str + before))) == 0;
        }
        return memcmp(keyBytes + kWordKeyBytes, text.str + kWordKeyBytes, text.len - kWordKeyBytes) == 0;
    }
};

bool hasWords(const Table &table, const CodText &key) {
    return COD_LIKELY(key.len <= kMostWordLength && table.limit >= kWord);
}

enum class Outcome { kOpen, kFound, kOdd };

// Halves [*lo, *hi) as the plain search does until at most kMost places are left. kFound: *lo is the equal key's place.
template <CodUint32 kMost>
inline Outcome narrow(const Table &table, const WordKey &key, CodUint32 *lo, CodUint32 *hi) {
    const CodUint64 word = __builtin_bswap64(key.word);
    const CodUint64 mask = __builtin_bswap64(key.mask);
    while (*hi - *lo > kMost) {
        const CodUint32 mid = *lo + (*hi - *lo) / 2;
        const CodUint32 at = table.recordAt(mid);
        if (COD_UNLIKELY(at > table.limit - kWord)) {
            return Outcome::kOdd;
        }
        const CodUint64 probed = loadLe<CodUint64>(table.base + at);
        const CodUint64 ordered = __builtin_bswap64(probed) & mask;
        bool isLess = ordered < word;
        if (COD_UNLIKELY((probed & kLongerLength) != 0)) {
            return Outcome::kOdd;
        }
        if (COD_UNLIKELY(ordered == word)) {
            if (COD_UNLIKELY(CodUint64{at} + sizeof(CodUint16) + key.text.len > table.limit)) {
                return Outcome::kOdd;
            }
            const int order = memcmp(table.base + at + sizeof(CodUint16), key.text.str, key.text.len);
            if (order == 0) {
                *lo = mid;
                return Outcome::kFound;
            }
            isLess = order < 0;
        }
        if (isLess) {
            *lo = mid + 1;
        } else {
            *hi = mid;
        }
    }
    return Outcome::kOpen;
}

constexpr CodUint32 kScanned = 4;       // places compared at once
constexpr CodUint32 kMostScanned = 16;  // and in all
constexpr CodUint32 kScanFault = 1 << kMostScanned;

__m128i loadTwo(const CodUint8 *low, const CodUint8 *high) {
    return _mm_castpd_si128(_mm_loadh_pd(_mm_load_sd(reinterpret_cast<const double *>(low)), reinterpret_cast<const double *>(high)));
}

// Bit i of the result: the word of the record at place first + i agrees with the key's. Tables of at least kScanned places, of which those
// from first to hi are compared; the last four overlap.
inline CodUint32 scan(const Table &table, const WordKey &key, CodUint32 first, CodUint32 hi) {
    const __m128i word = _mm_set1_epi64x(static_cast<CodInt64>(key.word));
    const __m128i mask = _mm_set1_epi64x(static_cast<CodInt64>(key.mask));
    const __m128i sign = _mm_set1_epi32(INT32_MIN);  // there is only a signed comparison
    const __m128i lastStart = _mm_xor_si128(_mm_set1_epi32(static_cast<CodInt32>(table.limit - kWord)), sign);
    CodUint32 hits = 0;
    for (CodUint32 place = first;; place = std::min(place, table.count - kScanned)) {
        const CodUint8 *entry = table.entry(place);
        const __m128i offsets = _mm_loadu_si128(reinterpret_cast<const __m128i *>(entry));
        if (COD_UNLIKELY(_mm_movemask_epi8(_mm_cmpgt_epi32(_mm_xor_si128(offsets, sign), lastStart)) != 0)) {
            return kScanFault;
        }
        const auto recordOf = [&table, entry](CodUint32 i) { return table.base + loadLe<CodUint32>(entry + CodUint64{kKeyEntry} * i); };
        const __m128i lower = _mm_cmpeq_epi32(_mm_and_si128(loadTwo(recordOf(0), recordOf(1)), mask), word);
        const __m128i upper = _mm_cmpeq_epi32(_mm_and_si128(loadTwo(recordOf(2), recordOf(3)), mask), word);
        const __m128 lowHalves = _mm_shuffle_ps(_mm_castsi128_ps(lower), _mm_castsi128_ps(upper), 0x88);
        const __m128 highHalves = _mm_shuffle_ps(_mm_castsi128_ps(lower), _mm_castsi128_ps(upper), 0xDD);
        hits |= static_cast<CodUint32>(_mm_movemask_ps(_mm_and_ps(lowHalves, highHalves))) << (place - first);
        place += kScanned;
        if (place >= hi) {
            return hits;
        }
    }
}

// kFound: *place is the equal key's; kOpen: there is none; kOdd: the plain search must decide.
inline Outcome lookUp(const Table &table, const WordKey &key, CodUint32 *place) {
    CodUint32 hi = table.count;
    *place = 0;
    if (table.count < kScanned) {
        return narrow<0>(table, key, place, &hi);
    }
    const Outcome outcome = narrow<kMostScanned>(table, key, place, &hi);
    if (COD_UNLIKELY(outcome != Outcome::kOpen)) {
        return outcome;
    }
    const CodUint32 first = std::min(*place, table.count - kScanned);
    const CodUint32 hits = scan(table, key, first, hi);
    if (hits == 0) {
        return Outcome::kOpen;
    }
    if (COD_UNLIKELY((hits & (hits - 1)) != 0 || hits >= kScanFault)) {
        return Outcome::kOdd;
    }
    *place = first + static_cast<CodUint32>(__builtin_ctz(hits));
    const CodUint64 at = table.recordAt(*place);
    if (COD_UNLIKELY(at + sizeof(CodUint16) + key.text.len > table.limit)) {
        return Outcome::kOdd;
    }
    return key.isRestEqual(table.base + at + sizeof(CodUint16)) ? Outcome::kFound : Outcome::kOpen;
}

// The number of keys in [lo, hi) that stand before the key, counted without a branch; kTie when that takes more than their words.
constexpr CodUint32 kTie = UINT32_MAX;
inline CodUint32 rank(const Table &table, const WordKey &key, CodUint32 lo, CodUint32 hi) {
    const CodUint64 word = __builtin_bswap64(key.word);
    const CodUint64 mask = __builtin_bswap64(key.mask);
    CodUint32 less = 0;
    CodUint32 lessOrEqual = 0;
    for (CodUint32 place = lo; place < hi; place++) {
        const CodUint32 at = table.recordAt(place);
        if (COD_UNLIKELY(at > table.limit - kWord)) {
            return kTie;
        }
        const CodUint64 probed = loadLe<CodUint64>(table.base + at);
        const CodUint64 ordered = __builtin_bswap64(probed) & mask;
        if (COD_UNLIKELY((probed & kLongerLength) != 0)) {
            return kTie;
        }
        less += ordered < word;
        lessOrEqual += ordered <= word;
    }
    return less == lessOrEqual ? less : kTie;
}

COD_COLD CodResult findKeyPlainly(const VelonObject &object, const CodText &key, CodUint32 *valuePos) {
    CodUint32 place = 0;
    bool isEqual = false;
    CodText found = {};
    *valuePos = 0;
    COD_TRY(searchPlainly(object, key, &place, &isEqual));
    return isEqual ? readRecord(object, keyOffsetAt(object, place), &found, valuePos) : COD_SUCCESS;
}

}  // namespace

CodResult findKey(const VelonObject &object, const CodText &key, CodUint32 *valuePos) {
    const Table table = {object.data.ptr + kCountAt, object.data.len - kCountAt, object.data.aux};
    if (COD_UNLIKELY(!hasWords(table, key))) {
        return findKeyPlainly(object, key, valuePos);
    }
    CodUint32 place = 0;
    const Outcome outcome = lookUp(table, WordKey(key), &place);
    if (COD_UNLIKELY(outcome == Outcome::kOdd)) {
        return findKeyPlainly(object, key, valuePos);
    }
    *valuePos = outcome == Outcome::kFound ? table.recordAt(place) + kTableAt + key.len : 0;
    return COD_SUCCESS;
}

CodUint32 insertionPoint(const CodUint8 *countField, CodUint32 room, CodUint32 count, const CodText &key) {
    const Table table = {countField, room, count};
    CodUint32 place = 0;
    if (hasWords(table, key)) {
        constexpr CodUint32 kMostRanked = 16;
        CodUint32 hi = count;
        const WordKey wordKey(key);
        const Outcome outcome = narrow<kMostRanked>(table, wordKey, &place, &hi);
        if (outcome == Outcome::kFound) {
            return place;
        }
        const CodUint32 before = outcome == Outcome::kOpen ? rank(table, wordKey, place, hi) : kTie;
        if (COD_LIKELY(before != kTie)) {
            return place + before;
        }
    }
    bool isEqual = false;
    (void)searchPlainly(objectOf({countField - kCountAt, room + kCountAt, count}), key, &place, &isEqual);
    return place;
}

}  // namespace cod::velon
