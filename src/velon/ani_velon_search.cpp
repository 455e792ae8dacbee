// The search of key tables: keys ascend by length, then by bytes. lo = 0, hi = count, mid = lo + (hi - lo) / 2; left at the first equal
// key.
//
// A key is compared as words: for keys of up to 16 bytes a length test and one or two loads. Which loads depends on the length that is
// looked for alone, so the search is made once for each class of lengths.

#include <algorithm>

#include "velon/ani_velon_base_internal.h"

namespace cod::velon {
namespace {

// A key table: offsets and limit count from the count field; the table stands two bytes behind it.
struct Table {
    const CodUint8 *base;
    CodUint64 limit;
    CodUint32 count;

    CodUint64 recordAt(CodUint32 index) const {
        return loadLe<CodUint32>(base + sizeof(CodUint16) + CodUint64{kKeyEntry} * index);
    }
};

// Bytes of a key as two words that order as they do. The loads overlap where the length is no whole number of words: a later one decides
// only when the bytes that it shares with the first are equal.
struct Words {
    CodUint64 first;
    CodUint64 second;
};

struct UpTo3 {
    static Words load(const CodUint8 *bytes, CodUint32 length) {
        if (length == 0) {
            return {0, 0};
        }
        return {CodUint64{bytes[0]} << 16 | CodUint64{bytes[length / 2]} << 8 | bytes[length - 1], 0};
    }
};
struct UpTo7 {
    static Words load(const CodUint8 *bytes, CodUint32 length) {
        const CodUint64 head = __builtin_bswap32(loadLe<CodUint32>(bytes));
        return {head << 32 | __builtin_bswap32(loadLe<CodUint32>(bytes + length - sizeof(CodUint32))), 0};
    }
};
struct UpTo16 {
    static Words load(const CodUint8 *bytes, CodUint32 length) {
        return {__builtin_bswap64(loadLe<CodUint64>(bytes)), __builtin_bswap64(loadLe<CodUint64>(bytes + length - sizeof(CodUint64)))};
    }
};
struct Longer {};

// A key that is looked for. compare: bytes of the same length with it; isLess: they stand before it.
template <class Loads>
class Target {
public:
    explicit Target(const CodText &key) : length(key.len), words_(Loads::load(reinterpret_cast<const CodUint8 *>(key.str), key.len)) {}
    void compare(const CodUint8 *bytes, bool *isLess, bool *isEqual) const {
        const Words words = Loads::load(bytes, length);
        const bool isFirstEqual = words.first == words_.first;
        *isLess = words.first < words_.first || (isFirstEqual && words.second < words_.second);
        *isEqual = isFirstEqual && words.second == words_.second;
    }

    const CodUint32 length;

private:
    Words words_;
};

template <>
class Target<Longer> {
public:
    explicit Target(const CodText &key) : length(key.len), bytes_(key.str) {}
    void compare(const CodUint8 *bytes, bool *isLess, bool *isEqual) const {
        const int order = memcmp(bytes, bytes_, length);
        *isLess = order < 0;
        *isEqual = order == 0;
    }

    const CodUint32 length;

private:
    const CodChar *bytes_;
};

// What a search has come to: between lo and hi at most as many places are left as it was to leave.
struct Place {
    CodUint32 lo;
    CodUint32 hi;
    CodUint64 equal;      // not 0: the record at lo, counted from the count field, has an equal key
    CodUint64 faultyEnd;  // not 0: a record reaches to here, beyond the limit
};

template <bool kIsChecked, CodUint32 kMostLeft, class Target>
inline Place search(const Table &table, const Target &target) {
    CodUint32 lo = 0;
    CodUint32 hi = table.count;
    while (hi - lo > kMostLeft) {
        const CodUint32 mid = lo + (hi - lo) / 2;
        const CodUint64 at = table.recordAt(mid);
        if (kIsChecked && COD_UNLIKELY(at + sizeof(CodUint16) > table.limit)) {
            return {lo, hi, 0, at + sizeof(CodUint16)};
        }
        const CodUint32 length = loadLe<CodUint16>(table.base + at);
        const CodUint64 end = at + sizeof(CodUint16) + length;
        if (kIsChecked && COD_UNLIKELY(end > table.limit)) {
            return {lo, hi, 0, end};
        }
        bool isLess = length < target.length;
        if (length == target.length) {
            bool isEqual = false;
            target.compare(table.base + at + sizeof(CodUint16), &isLess, &isEqual);
            if (isEqual) {
                return {mid, mid, end, 0};
            }
        }
        if (isLess) {
            lo = mid + 1;
        } else {
            hi = mid;
        }
    }
    return {lo, hi, 0, 0};
}

template <bool kIsChecked, CodUint32 kMostLeft>
inline Place searchFor(const Table &table, const CodText &key) {
    if (key.len >= 8 && key.len <= 16) {
        return search<kIsChecked, kMostLeft>(table, Target<UpTo16>(key));
    }
    if (key.len >= 4 && key.len < 8) {
        return search<kIsChecked, kMostLeft>(table, Target<UpTo7>(key));
    }
    if (key.len < 4) {
        return search<kIsChecked, kMostLeft>(table, Target<UpTo3>(key));
    }
    return search<kIsChecked, kMostLeft>(table, Target<Longer>(key));
}

// ---- Ranks ----

constexpr CodUint32 kTie = UINT32_MAX;
constexpr CodUint32 kMostRanked = 16;
constexpr CodUint32 kMostWordLength = 0xFF;

// A record's first eight bytes, a key's length and six bytes of it, as a word that orders as keys of up to 255 bytes do; what stands behind
// the key that is looked for is masked away.
inline CodUint64 wordOf(const CodUint8 *record, CodUint64 mask) {
    return __builtin_bswap64(loadLe<CodUint64>(record)) & mask;
}

// The number of keys in [lo, hi) that stand before a key of at most kMostWordLength bytes, counted without a branch on the outcome of a
// comparison, which could not be foreseen. kTie: their words do not tell.
inline CodUint32 rank(const Table &table, CodUint32 lo, CodUint32 hi, const CodText &key) {
    constexpr CodUint32 kKeyBytes = sizeof(CodUint64) - sizeof(CodUint16);
    CodUint8 record[sizeof(CodUint64)] = {static_cast<CodUint8>(key.len)};
    const CodUint32 taken = std::min(key.len, kKeyBytes);
    for (CodUint32 i = 0; i < taken; i++) {
        record[sizeof(CodUint16) + i] = static_cast<CodUint8>(key.str[i]);
    }
    const CodUint64 mask = ~CodUint64{0} << (8 * (kKeyBytes - taken));
    const CodUint64 word = wordOf(record, mask);
    CodUint32 less = 0;
    CodUint32 lessOrEqual = 0;
    for (CodUint32 place = lo; place < hi; place++) {
        const CodUint64 at = table.recordAt(place);
        if (COD_UNLIKELY(at + sizeof(CodUint64) > table.limit || table.base[at + 1] != 0)) {
            return kTie;
        }
        const CodUint64 ranked = wordOf(table.base + at, mask);
        less += ranked < word;
        lessOrEqual += ranked <= word;
    }
    return less == lessOrEqual ? less : kTie;
}

}  // namespace

CodResult findKey(const VelonObject &object, const CodText &key, CodUint32 *valuePos) {
    if (object.data.aux == 0) {
        *valuePos = 0;  // a zeroed record has no bytes
        return COD_SUCCESS;
    }
    const Place place = searchFor<true, 0>({object.data.ptr + kCountAt, object.data.len - kCountAt, object.data.aux}, key);
    if (COD_UNLIKELY(place.faultyEnd != 0)) {
        return raiseOutOfBounds(object.data.len, place.faultyEnd + kCountAt);
    }
    *valuePos = place.equal != 0 ? static_cast<CodUint32>(place.equal + kCountAt) : 0;
    return COD_SUCCESS;
}

CodUint32 insertionPoint(const CodUint8 *countField, CodUint32 length, CodUint32 count, const CodText &key) {
    const Table table = {countField, length, count};
    if (COD_LIKELY(key.len <= kMostWordLength)) {
        const Place place = searchFor<false, kMostRanked>(table, key);
        const CodUint32 before = rank(table, place.lo, place.hi, key);
        if (COD_LIKELY(before != kTie)) {
            return place.lo + before;
        }
    }
    return searchFor<false, 0>(table, key).lo;
}

}  // namespace cod::velon
