#ifndef VEL_VALUE_STORE_H
#define VEL_VALUE_STORE_H

#include <vel_infra/collection/ani_hashmap.h>
#include <vel_infra/memory/ani_memory.h>

namespace vel {

// A distinct value with its count. Values longer than kKeptBytes keep their beginning, and are told apart by length and two hashes.
struct StoredValue {
    static constexpr CodUint32 kKeptBytes = 1024;

    CodHashEntry link;     // key: a hash of the whole value; value: the next stored value with the same key
    StoredValue *next;     // stored after this one
    CodUint64 count;       // met since it was stored
    CodUint64 missedMax;   // may have been met so often before, at most: the true count is in [count, count + missedMax]
    CodUint64 secondHash;  // of the whole value, when it is longer than kKeptBytes
    CodUint32 length;      // bytes of the whole value
    char text[];           // the first keptLength() bytes

    CodUint32 keptLength() const {
        return length < kKeptBytes ? length : kKeptBytes;
    }
};

// Counts values in bounded memory.
//
// 1. Until the first eviction (isExact) every value is stored and every count is true.
// 2. Afterwards a stored value's true count is in [count, count + missedMax], and a value that is not stored was met at most
//    missedBound times. So every value that was met more often than that is stored.
class ValueStore {
public:
    struct Limits {
        CodUint32 values = 65536;           // at least 1
        CodUint64 bytes = 8 * 1024 * 1024;  // of stored values, headers included
        CodUint64 hashBits = UINT64_MAX;    // that tell values apart at first; with few of them many values share a place
    };

    ValueStore() = default;
    ~ValueStore();
    ValueStore(const ValueStore &) = delete;
    ValueStore &operator=(const ValueStore &) = delete;

    // The pool must outlive the store. Memory is taken at the first value.
    void init(MemoryPool *pool) {
        pool_ = pool;
    }
    void setLimits(const Limits &limits) {
        limits_ = limits;
    }

    // Counts one value. *isNew: it was not stored before the call; the first time that a value is met it always is.
    // Errors: those of the pool and of the system allocator.
    CodResult add(const CodText &value, bool *isNew);

    bool isExact() const {
        return missedBound_ == 0;
    }
    CodUint64 missedBound() const {
        return missedBound_;
    }
    CodUint32 size() const {
        return size_;
    }
    // The stored values in the order in which they were stored, by StoredValue::next.
    const StoredValue *first() const {
        return values_.head;
    }

    // The values with the highest counts, at most `capacity`, highest first; equal counts in the order of the values' bytes.
    // Returns how many.
    CodUint32 mostCommon(const StoredValue **values, CodUint32 capacity) const;

private:
    struct List {
        StoredValue *head = nullptr;
        StoredValue *tail = nullptr;
        void append(StoredValue *value);
    };
    struct Bound {
        CodUint64 count;
        CodUint64 bytes;
    };

    CodResult start();
    CodUint64 mostValues() const;
    CodResult reserveBuckets();
    StoredValue *find(CodUint64 hash, const CodText &value, CodUint64 secondHash) const;
    CodResult store(CodUint64 hash, const CodText &value, CodUint64 secondHash);
    CodResult link(StoredValue *value);
    CodResult makeRoom(CodUint64 bytes);
    CodResult chooseThreshold(CodUint64 *threshold) const;
    CodResult keepAbove(CodUint64 threshold);
    CodResult copySurvivors(const StoredValue *from, CodUint64 threshold);

    MemoryPool *pool_ = nullptr;
    MemoryContext *context_ = nullptr;
    CodHashMap map_ = {};
    List values_;
    Limits limits_;
    CodUint32 size_ = 0;
    CodUint64 bytes_ = 0;
    CodUint64 missedBound_ = 0;
};

}  // namespace vel

#endif
