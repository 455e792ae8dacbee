#define COD_NO_INLINE
#include <vel_infra/collection/ani_hashmap.h>

#include <string.h>

#include <algorithm>
#include <bit>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/memory/ani_allocator.h>

namespace {

constexpr int kMaxEmptySkips = 10;

bool isRehashing(const CodHashMap *map) {
    return map->rehashIdx != -1;
}

bool isInitialised(const CodHashMap *map) {
    return map->hashCalc != nullptr && map->hashTable[0].size != 0;
}

// ---- Buckets ----

CodHashEntry *head(const CodHashMap *map, const CodHashTable &table, CodUint32 bucket) {
    return map->hashTableGet(table.table, bucket);
}

void setHead(const CodHashMap *map, const CodHashTable &table, CodUint32 bucket, CodHashEntry *entry) {
    map->hashTableSet(table.table, bucket, entry);
}

// Adds grow the map at a load of 1.5, as long as it is not large already.
bool wantsGrowth(const CodHashMap *map, CodUint64 used) {
    return used * 2 >= CodUint64{map->hashTable[0].size} * 3 && used * 2 <= HMAP_GROWTH_LIMIT;
}

// How many entries a map must hold before its next add is more than a link into a chain.
CodUint32 inlineLimitOf(const CodHashMap *map) {
    const bool isPlainUint64 = !isRehashing(map) && map->hashCalc == codHashCalcUint64 && map->keyCompare == codHashCompareUint64 &&
                               map->hashTableGet == arrayTableGet && map->hashTableSet == arrayTableSet;
    if (!isPlainUint64) {
        return 0;
    }
    const CodUint64 fullAt = (CodUint64{map->hashTable[0].size} * 3 + 1) / 2;
    return wantsGrowth(map, fullAt) ? static_cast<CodUint32>(fullAt) : UINT32_MAX;
}

// ---- Searching ----

// Where a key is, or would be: its entry with the one in front of it in the chain (null: it is the head), and the bucket in which
// the search ended.
struct Place {
    CodHashEntry *entry;
    CodHashEntry *previous;
    CodUint32 table;
    CodUint32 bucket;
};

bool hasKey(const CodHashMap *map, const CodHashEntry *entry, CodHashPointer key) {
    return entry->key.intValue == key.intValue || map->keyCompare(entry->key, key) == 0;
}

Place hashMapFindIdx(const CodHashMap *map, CodHashPointer key) {
    const CodUint32 hash = map->hashCalc(key);
    Place place{};
    const CodUint32 tables = isRehashing(map) ? 2 : 1;
    for (CodUint32 i = 0; i < tables; i++) {
        const CodHashTable &table = map->hashTable[i];
        place = {nullptr, nullptr, i, hash & table.sizeMask};
        for (CodHashEntry *entry = head(map, table, place.bucket); entry != nullptr; entry = entry->next) {
            if (hasKey(map, entry, key)) {
                place.entry = entry;
                return place;
            }
            place.previous = entry;
        }
    }
    return place;
}

// ---- Rehashing ----

void finishRehash(CodHashMap *map) {
    map->hashTableRelease(map, map->hashTable[0].table);
    map->hashTable[0] = map->hashTable[1];
    map->hashTable[1] = {};
    map->rehashIdx = -1;
    map->inlineLimit = inlineLimitOf(map);
}

void moveBucket(CodHashMap *map, CodUint32 bucket) {
    CodHashTable &from = map->hashTable[0];
    CodHashTable &to = map->hashTable[1];
    for (CodHashEntry *entry = head(map, from, bucket); entry != nullptr;) {
        CodHashEntry *next = entry->next;
        const CodUint32 index = map->hashCalc(entry->key) & to.sizeMask;
        entry->next = head(map, to, index);
        setHead(map, to, index, entry);
        from.used--;
        to.used++;
        entry = next;
    }
    setHead(map, from, bucket, nullptr);
}

// One step: at most ten empty buckets passed over, at most one bucket moved.
void rehashStep(CodHashMap *map) {
    CodHashTable &from = map->hashTable[0];
    if (from.used == 0) {
        return finishRehash(map);
    }
    for (int skips = 0; head(map, from, static_cast<CodUint32>(map->rehashIdx)) == nullptr;) {
        map->rehashIdx++;
        if (++skips == kMaxEmptySkips) {
            return;
        }
    }
    moveBucket(map, static_cast<CodUint32>(map->rehashIdx));
    map->rehashIdx++;
    if (from.used == 0) {
        finishRehash(map);
    }
}

COD_COLD CodResult raiseDuplicate() {
    return codRaise(ERR_CMM_DUPLICATE_OBJECT, "object");
}

COD_COLD CodResult growForAdd(CodHashMap *map) {
    return codHMapExpand(map, map->hashTable[0].used * 2);
}

}  // namespace

// ---- Making ----

CodResult codHMapInit(CodHashMap *map, StHmapInitCallbackSet *callbacks, CodUint32 size) {
    if (map == nullptr || callbacks == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    map->tableType = 0;
    callbacks->get = arrayTableGet;
    callbacks->set = arrayTableSet;
    callbacks->init = arrayTableInit;
    callbacks->release = arrayTableRelease;
    return codHmapInitWithCallback(map, callbacks, size);
}

CodResult codHmapInitWithCallback(CodHashMap *map, const StHmapInitCallbackSet *callbacks, CodUint32 size) {
    if (map == nullptr || callbacks == nullptr || callbacks->keyCompare == nullptr || callbacks->hashCalc == nullptr ||
        callbacks->hashAlloc == nullptr || callbacks->get == nullptr || callbacks->set == nullptr || callbacks->init == nullptr ||
        callbacks->release == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    map->keyCompare = callbacks->keyCompare;
    map->hashCalc = callbacks->hashCalc;
    map->hashAlloc = callbacks->hashAlloc;
    map->hashFree = callbacks->hashFree;
    map->keyFree = callbacks->keyFree;
    map->valFree = callbacks->valueFree;
    map->hashTableGet = callbacks->get;
    map->hashTableSet = callbacks->set;
    map->hashTableInit = callbacks->init;
    map->hashTableRelease = callbacks->release;
    map->hashTable[0] = {};
    map->hashTable[1] = {};
    map->rehashIdx = -1;
    map->inlineLimit = 0;
    return codHMapExpand(map, size);
}

CodResult codHMapExpand(CodHashMap *map, CodUint32 size) {
    if (map == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (map->hashAlloc == nullptr) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the hash map is not initialised");
    }
    if (isRehashing(map)) {
        return codRaise(ERR_CMM_NOT_IMPLEMENTED, "the last expand operation");
    }
    if (size < map->hashTable[0].used) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "input size is not enough to hold the entries in the hash map");
    }
    const CodUint32 buckets = std::bit_ceil(std::clamp<CodUint32>(size, 1, HMAP_MAX_BUCKETS));
    if (buckets == map->hashTable[0].size) {
        return COD_SUCCESS;
    }
    const auto byteSize = static_cast<CodUint32>(buckets * sizeof(CodHashEntry *));
    void *table = nullptr;
    if (map->hashTableInit(map, &table, byteSize) != COD_SUCCESS) {
        return codRaise(ERR_CMM_OUT_OF_MEMORY, "hash table", static_cast<long>(byteSize));
    }
    const bool isFirst = map->hashTable[0].size == 0;
    map->hashTable[isFirst ? 0 : 1] = {.table = table, .size = buckets, .sizeMask = buckets - 1, .used = 0, .reserved = 0};
    map->rehashIdx = isFirst ? -1 : 0;
    map->inlineLimit = inlineLimitOf(map);
    return COD_SUCCESS;
}

// ---- Adding, finding, deleting ----

CodResult codHMapAdd(CodHashMap *map, CodHashEntry *entry) {
    if (map == nullptr || entry == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (COD_UNLIKELY(!isInitialised(map))) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the hash map is not initialised");
    }
    if (COD_UNLIKELY(isRehashing(map))) {
        rehashStep(map);
    } else if (COD_UNLIKELY(wantsGrowth(map, map->hashTable[0].used)) && growForAdd(map) != COD_SUCCESS) {
        return COD_ERROR;
    }
    if (codHMapIsPlainUint64(map)) {
        return codHMapAddUint64(map, entry) ? COD_SUCCESS : raiseDuplicate();
    }
    const Place place = hashMapFindIdx(map, entry->key);
    if (COD_UNLIKELY(place.entry != nullptr)) {
        return raiseDuplicate();
    }
    CodHashTable &table = map->hashTable[place.table];
    entry->next = head(map, table, place.bucket);
    setHead(map, table, place.bucket, entry);
    table.used++;
    return COD_SUCCESS;
}
CodResult codHMapAddExported(CodHashMap *map, CodHashEntry *entry) COD_SECOND_NAME(codHMapAdd);

CodHashEntry *codHMapFind(const CodHashMap *map, CodHashPointer key) {
    if (map == nullptr || COD_UNLIKELY(!isInitialised(map))) {
        return nullptr;
    }
    return codHMapIsPlainUint64(map) ? *codHMapLinkUint64(map, key.intValue) : hashMapFindIdx(map, key).entry;
}
CodHashEntry *codHMapFindExported(const CodHashMap *map, CodHashPointer key) COD_SECOND_NAME(codHMapFind);

CodHashEntry *codHMapDelete(CodHashMap *map, CodHashPointer key) {
    if (map == nullptr || (map->hashTable[0].used == 0 && map->hashTable[1].used == 0)) {
        return nullptr;
    }
    if (COD_UNLIKELY(isRehashing(map))) {
        rehashStep(map);
    }
    if (codHMapIsPlainUint64(map)) {
        return codHMapDeleteUint64(map, key.intValue);
    }
    const Place place = hashMapFindIdx(map, key);
    if (place.entry == nullptr) {
        return nullptr;
    }
    CodHashTable &table = map->hashTable[place.table];
    if (place.previous != nullptr) {
        place.previous->next = place.entry->next;
    } else {
        setHead(map, table, place.bucket, place.entry->next);
    }
    table.used--;
    return place.entry;
}
CodHashEntry *codHMapDeleteExported(CodHashMap *map, CodHashPointer key) COD_SECOND_NAME(codHMapDelete);

// ---- Walking ----

void codHMapInitIterator(CodHashMap *map, CodHashMapIterator *iterator) {
    if (iterator != nullptr) {
        *iterator = {.hashMap = map, .entry = nullptr, .nextEntry = nullptr, .tableIdx = 0, .hashIdx = -1};
    }
}

CodHashEntry *codHMapGetNext(CodHashMap *map, CodHashMapIterator *iterator) {
    if (map == nullptr || iterator == nullptr || iterator->tableIdx < 0 || iterator->tableIdx > 1) {
        return nullptr;
    }
    CodHashEntry *entry = iterator->entry != nullptr ? iterator->nextEntry : nullptr;
    while (entry == nullptr) {
        iterator->hashIdx++;
        const CodHashTable &table = map->hashTable[iterator->tableIdx];
        if (static_cast<CodUint32>(iterator->hashIdx) < table.size) {
            entry = map->hashTableGet(table.table, static_cast<CodUint32>(iterator->hashIdx));
        } else if (iterator->tableIdx == 0 && isRehashing(map)) {
            iterator->tableIdx = 1;
            iterator->hashIdx = -1;
        } else {
            iterator->entry = nullptr;
            iterator->nextEntry = nullptr;
            // Stays at the end, however often it is asked.
            iterator->hashIdx--;
            return nullptr;
        }
    }
    iterator->entry = entry;
    iterator->nextEntry = entry->next;
    return entry;
}

// ---- Ending ----

static void releaseEntry(CodHashMap *map, CodHashEntry *entry) {
    if (map->keyFree != nullptr) {
        map->keyFree(entry->key, map->mctx);
    }
    if (map->valFree != nullptr) {
        map->valFree(entry->value, map->mctx);
    }
    if (map->hashFree != nullptr) {
        map->hashFree(entry, map->mctx);
    }
}

void codHMapRelease(CodHashMap *map) {
    if (map == nullptr) {
        return;
    }
    for (CodHashTable &table : map->hashTable) {
        for (CodUint32 i = 0; i < table.size; i++) {
            for (CodHashEntry *entry = map->hashTableGet(table.table, i); entry != nullptr;) {
                CodHashEntry *next = entry->next;
                releaseEntry(map, entry);
                entry = next;
            }
        }
        if (table.size != 0) {
            map->hashTableRelease(map, table.table);
        }
        table = {};
    }
    map->keyCompare = nullptr;
    map->hashCalc = nullptr;
    map->hashAlloc = nullptr;
    map->inlineLimit = 0;
    map->rehashIdx = -1;
}

// ---- Beside the plain operations ----

CodBool codHMapRehashStep(CodHashMap *map, CodUint32 steps) {
    if (map == nullptr || !isInitialised(map)) {
        return false;
    }
    for (CodUint32 i = 0; i < steps && isRehashing(map); i++) {
        rehashStep(map);
    }
    return isRehashing(map);
}

CodResult codHMapReserve(CodHashMap *map, CodUint32 entries) {
    if (map == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    codHMapRehashStep(map, UINT32_MAX);
    if (codHMapExpand(map, std::max({entries, map->hashTable[0].size, map->hashTable[0].used})) != COD_SUCCESS) {
        return COD_ERROR;
    }
    codHMapRehashStep(map, UINT32_MAX);
    return COD_SUCCESS;
}

void codHMapStats(const CodHashMap *map, CodHMapStats *stats) {
    if (stats == nullptr) {
        return;
    }
    *stats = {};
    if (map == nullptr) {
        return;
    }
    for (const CodHashTable &table : map->hashTable) {
        stats->entries += table.used;
        stats->buckets += table.size;
        for (CodUint32 i = 0; i < table.size; i++) {
            CodUint32 length = 0;
            for (const CodHashEntry *entry = map->hashTableGet(table.table, i); entry != nullptr; entry = entry->next) {
                length++;
            }
            stats->longestChain = std::max(stats->longestChain, length);
            stats->chains[std::min<CodUint32>(length, HMAP_STATS_CHAINS - 1)]++;
        }
    }
    stats->load = stats->buckets != 0 ? static_cast<CodDouble>(stats->entries) / stats->buckets : 0;
}

// ---- Ready callbacks ----

void *hashMapMalloc(CodUint32 size, void *) {
    void *memory = nullptr;
    return codSysAlloc(size, &memory) == COD_SUCCESS ? memory : nullptr;
}

void hashMapFree(void *ptr, void *) {
    codSysFree(ptr);
}

CodUint32 codHashCalcUint64(CodHashPointer key) {
    return codHMapHashUint64(key.intValue);
}

CodInt32 codHashCompareUint64(CodHashPointer left, CodHashPointer right) {
    return left.intValue == right.intValue ? 0 : left.intValue < right.intValue ? -1 : 1;
}

CodHashEntry *arrayTableGet(void *table, CodUint32 index) {
    return static_cast<CodHashEntry **>(table)[index];
}

void arrayTableSet(void *table, CodUint32 index, CodHashEntry *entry) {
    static_cast<CodHashEntry **>(table)[index] = entry;
}

CodResult arrayTableInit(CodHashMap *map, void **table, CodUint32 byteSize) {
    *table = map->hashAlloc(byteSize, map->mctx);
    if (*table == nullptr) {
        return COD_ERROR;
    }
    memset(*table, 0, byteSize);
    return COD_SUCCESS;
}

void arrayTableRelease(CodHashMap *map, void *table) {
    if (map->hashFree != nullptr) {
        map->hashFree(table, map->mctx);
    }
}
