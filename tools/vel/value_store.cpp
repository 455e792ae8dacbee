#include "value_store.h"

#include <sys/random.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include <vel_infra/algorithm/ani_hashfunc.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

#include "work_memory.h"

// Counting in bounded memory
//
// The method is lossy counting (G. Manku, R. Motwani, "Approximate Frequency Counts over Data Streams", 2002) with a threshold that
// follows the data. Every value is stored with a count until the store is full. Then a threshold T is chosen and every value with
// count + missedMax <= T is dropped; M = max(M, T) is remembered. A value that is stored later may be one that was dropped before,
// so it starts with missedMax = M.
//
// Why the bounds hold: let a value be dropped. Its true count was at most count + missedMax <= T <= M. It is not counted again before
// it is stored again, and then missedMax = M covers all that was forgotten. A value that was never dropped has missedMax = M of the
// time when it was first met, which is too pessimistic but never wrong, and 0 before the first eviction. Hence the true count of a
// stored value is in [count, count + missedMax], and that of any other value is at most M.
//
// The original fixes the error beforehand and lets the memory follow. Here the memory is fixed: T is the median of count + missedMax,
// raised as long as the survivors take more than half of the byte budget. At least half of the values go, so an eviction is paid for
// by at least as many insertions as there are survivors, and a column of all different values costs one copy of nothing per filling.
//
// How large M gets: let every eviction find at least h values with count + missedMax >= T. Each of them was met at least
// T - missedMax times since it was stored, once for every step of M from its missedMax to T; no meeting serves two steps. So M steps
// took at least h * M meetings: M <= N / h after N values. With a median over n values h is n / 2; when the bytes decide, h is at
// least a quarter of the byte budget divided by the size of the largest value.
//
// Values live in one context, in the order in which they came, and are also linked in a hash map under their 64-bit hash. Contexts do
// not free single allocations: survivors move to a fresh context and the old one ends as a whole. The map knows integers only, which
// spares it calls of a comparison; the rare values with equal hashes hang behind each other on the entry that the map holds.

namespace vel {

namespace {

// The values come from outside: under a known hash a file could be made of values that all hang on one chain. So the hash has a key that
// is drawn once per process.
struct HashKey {
    CodUint8 bytes[16];

    HashKey() {
        if (getrandom(bytes, sizeof(bytes), 0) != ssize_t{sizeof(bytes)}) {
            const CodInstant now = codInstantNow();
            memset(bytes, 0, sizeof(bytes));
            memcpy(bytes, &now, sizeof(now));
        }
    }
};

CodUint64 keyedHash(const CodText &value) {
    static const HashKey key;
    return codSipHash13(key.bytes, value.str, value.len);
}

// Behind this number of entries the map grows only when it is asked to.
constexpr CodUint32 kOwnGrowth = HMAP_GROWTH_LIMIT / 2;

constexpr CodUint64 sizeOfValue(CodUint32 keptLength) {
    return (offsetof(StoredValue, text) + keptLength + 7) & ~CodUint64{7};
}

StoredValue *valueOf(CodHashEntry *entry) {
    static_assert(offsetof(StoredValue, link) == 0);
    return reinterpret_cast<StoredValue *>(entry);
}

StoredValue *nextWithSameKey(const StoredValue *value) {
    return static_cast<StoredValue *>(value->link.value.ptrValue);
}

bool isMoreCommon(const StoredValue *left, const StoredValue *right) {
    if (left->count != right->count) {
        return left->count > right->count;
    }
    const CodUint32 common = std::min(left->keptLength(), right->keptLength());
    const int order = memcmp(left->text, right->text, common);
    if (order != 0) {
        return order < 0;
    }
    if (left->length != right->length) {
        return left->length < right->length;
    }
    return left->secondHash < right->secondHash;
}

}  // namespace

ValueStore::~ValueStore() {
    if (context_ != nullptr) {
        releaseMapOfCarvedEntries(&map_);
        mctxDestroy(context_);
    }
}

CodResult ValueStore::add(const CodText &value, bool *isNew) {
    const CodUint64 hash = keyedHash(value) & limits_.hashBits;
    const CodUint64 secondHash = value.len > StoredValue::kKeptBytes ? codMurmurHash64(value.str, value.len) : 0;
    StoredValue *known = find(hash, value, secondHash);
    *isNew = known == nullptr;
    if (known != nullptr) {
        known->count++;
        return COD_SUCCESS;
    }
    return store(hash, value, secondHash);
}

StoredValue *ValueStore::find(CodUint64 hash, const CodText &value, CodUint64 secondHash) const {
    if (size_ == 0) {
        return nullptr;
    }
    StoredValue *candidate = valueOf(codHMapFind(&map_, CodHashPointer{.intValue = hash}));
    for (; candidate != nullptr; candidate = nextWithSameKey(candidate)) {
        if (candidate->length == value.len && candidate->secondHash == secondHash &&
            memcmp(candidate->text, value.str, candidate->keptLength()) == 0) {
            return candidate;
        }
    }
    return nullptr;
}

CodResult ValueStore::start() {
    MemoryContext *context = nullptr;
    COD_TRY(mctxCreate(pool_, &context));
    if (initMapOfCarvedEntries(&map_, codHashCompareUint64, codHashCalcUint64) != COD_SUCCESS) {
        mctxDestroy(context);
        return COD_ERROR;
    }
    context_ = context;
    return COD_SUCCESS;
}

// How many values the limits admit, however short they are.
CodUint64 ValueStore::mostValues() const {
    return std::min<CodUint64>(limits_.values, limits_.bytes / sizeOfValue(1));
}

// Half of the buckets stay empty: a value that is not stored then costs hardly any visit of one that is.
CodResult ValueStore::reserveBuckets() {
    return codHMapReserve(&map_, 2 * static_cast<CodUint32>(std::min<CodUint64>(mostValues(), HMAP_MAX_BUCKETS / 2)));
}

CodResult ValueStore::store(CodUint64 hash, const CodText &value, CodUint64 secondHash) {
    if (context_ == nullptr) {
        COD_TRY(start());
    }
    const CodUint32 kept = std::min(value.len, StoredValue::kKeptBytes);
    COD_TRY(makeRoom(sizeOfValue(kept)));
    void *place = nullptr;
    COD_TRY(mctxAlloc(context_, static_cast<CodUint32>(sizeOfValue(kept)), &place));
    auto *stored = static_cast<StoredValue *>(place);
    stored->link.key.intValue = hash;
    stored->count = 1;
    stored->missedMax = missedBound_;
    stored->secondHash = secondHash;
    stored->length = value.len;
    memcpy(stored->text, value.str, kept);
    return link(stored);
}

CodResult ValueStore::link(StoredValue *value) {
    value->link.value.ptrValue = nullptr;
    CodHashEntry *first = codHMapFind(&map_, value->link.key);
    if (first == nullptr) {
        COD_TRY(codHMapAdd(&map_, &value->link));
    } else {
        value->link.value = first->value;
        first->value.ptrValue = value;
    }
    values_.append(value);
    size_++;
    if (size_ == kOwnGrowth && mostValues() > kOwnGrowth) {
        COD_TRY(reserveBuckets());
    }
    bytes_ += sizeOfValue(value->keptLength());
    return COD_SUCCESS;
}

void ValueStore::List::append(StoredValue *value) {
    value->next = nullptr;
    (tail == nullptr ? head : tail->next) = value;
    tail = value;
}

CodResult ValueStore::makeRoom(CodUint64 bytes) {
    if (size_ == 0 || (size_ < limits_.values && bytes_ + bytes <= limits_.bytes)) {
        return COD_SUCCESS;
    }
    CodUint64 threshold = 0;
    COD_TRY(chooseThreshold(&threshold));
    COD_TRY(keepAbove(threshold));
    missedBound_ = std::max(missedBound_, threshold);
    return COD_SUCCESS;
}

CodResult ValueStore::chooseThreshold(CodUint64 *threshold) const {
    void *buffer = nullptr;
    COD_TRY(codSysAlloc(size_ * sizeof(Bound), &buffer));
    auto *begin = static_cast<Bound *>(buffer);
    Bound *end = begin;
    for (const StoredValue *value = values_.head; value != nullptr; value = value->next) {
        *end++ = {value->count + value->missedMax, sizeOfValue(value->keptLength())};
    }
    CodUint64 survivingBytes = 0;
    do {
        Bound *middle = begin + (end - begin) / 2;
        std::nth_element(begin, middle, end, [](const Bound &left, const Bound &right) { return left.count < right.count; });
        *threshold = middle->count;
        begin = std::partition(begin, end, [&](const Bound &bound) { return bound.count <= *threshold; });
        survivingBytes = 0;
        for (const Bound *bound = begin; bound != end; bound++) {
            survivingBytes += bound->bytes;
        }
    } while (survivingBytes > limits_.bytes / 2);
    codSysFree(buffer);
    return COD_SUCCESS;
}

// On failure the store holds what was moved so far, and is only good for being destroyed.
CodResult ValueStore::keepAbove(CodUint64 threshold) {
    MemoryContext *const oldContext = std::exchange(context_, nullptr);
    CodHashMap oldMap = map_;
    const StoredValue *const oldValues = std::exchange(values_, List{}).head;
    size_ = 0;
    bytes_ = 0;
    CodResult result = start();
    if (result == COD_SUCCESS) {
        result = reserveBuckets();
    }
    if (result == COD_SUCCESS) {
        result = copySurvivors(oldValues, threshold);
    }
    releaseMapOfCarvedEntries(&oldMap);
    mctxDestroy(oldContext);
    return result;
}

CodResult ValueStore::copySurvivors(const StoredValue *from, CodUint64 threshold) {
    for (; from != nullptr; from = from->next) {
        if (from->count + from->missedMax <= threshold) {
            continue;
        }
        void *place = nullptr;
        const CodUint64 bytes = sizeOfValue(from->keptLength());
        COD_TRY(mctxAlloc(context_, static_cast<CodUint32>(bytes), &place));
        memcpy(place, from, offsetof(StoredValue, text) + from->keptLength());
        COD_TRY(link(static_cast<StoredValue *>(place)));
    }
    return COD_SUCCESS;
}

CodUint32 ValueStore::mostCommon(const StoredValue **values, CodUint32 capacity) const {
    CodUint32 count = 0;
    for (const StoredValue *value = values_.head; value != nullptr; value = value->next) {
        CodUint32 place = count;
        while (place > 0 && isMoreCommon(value, values[place - 1])) {
            place--;
        }
        if (place == capacity) {
            continue;
        }
        count = std::min(count + 1, capacity);
        for (CodUint32 i = count - 1; i > place; i--) {
            values[i] = values[i - 1];
        }
        values[place] = value;
    }
    return count;
}

}  // namespace vel
