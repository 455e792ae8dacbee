#ifndef VEL_INFRA_COLLECTION_ANI_HASHMAP_H
#define VEL_INFRA_COLLECTION_ANI_HASHMAP_H

/* A chained hash map whose entries belong to the caller: the map only links them. It grows by moving a little at every add and
 * delete, never all at once.
 *
 *   CodHashMap map = {.mctx = context};
 *   StHmapInitCallbackSet callbacks = {.keyCompare = codHashCompareUint64, .hashCalc = codHashCalcUint64, .hashAlloc = hashMapMalloc,
 *                                      .hashFree = hashMapFree};
 *   COD_TRY(codHMapInit(&map, &callbacks, 0));
 *
 * 1. One thread at a time.
 * 2. Two keys are equal when their 64 bits are, or when keyCompare gives 0. Equal keys must have equal hashes.
 * 3. An add that finds a load of 1.5 or more, and at most 16,911 entries, grows the buckets to the least power of two not below twice the
 *    entries: usually four times as many as before, 65,536 at the most. codHMapExpand and codHMapReserve go up to 1,048,576. Beyond
 *    that chains lengthen.
 * 4. While a rehash is under way (rehashIdx is not -1) table 0 is moved to table 1, at most one bucket and ten empty ones a step.
 * 5. A null map or entry is ERR_CMM_POINTER_NULL; functions without a CodResult give null or do nothing. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

enum {
    HMAP_MAX_BUCKETS = 1048576,
    HMAP_GROWTH_LIMIT = 33823, /* an add grows the map to twice its entries only up to this number */
};

/* A key or a value. */
typedef union CodHashPointer {
    void *ptrValue;
    CodUint64 intValue;
} CodHashPointer;
COD_STATIC_ASSERT(sizeof(CodHashPointer) == 8, "layout is fixed");

typedef struct CodHashEntry CodHashEntry;
struct CodHashEntry {
    CodHashEntry *next; /* the map's: the next entry of the bucket */
    CodHashPointer key;
    CodHashPointer value;
};
COD_STATIC_ASSERT(sizeof(CodHashEntry) == 24, "layout is fixed");

typedef struct CodHashTable {
    void *table;        /* the buckets: for the plain bucket array, heads of chains */
    CodUint32 size;     /* buckets, a power of two; 0: no table */
    CodUint32 sizeMask; /* size - 1 */
    CodUint32 used;     /* entries in this table */
    CodUint32 reserved;
} CodHashTable;
COD_STATIC_ASSERT(sizeof(CodHashTable) == 24, "layout is fixed");

typedef struct CodHashMap CodHashMap;

typedef CodInt32 (*CodHashKeyCompare)(CodHashPointer left, CodHashPointer right); /* 0: equal */
typedef CodUint32 (*CodHashCalc)(CodHashPointer key);
typedef void *(*CodHashAlloc)(CodUint32 size, void *mctx); /* null on failure */
typedef void (*CodHashFree)(void *ptr, void *mctx);
typedef void (*CodHashKeyFree)(CodHashPointer key, void *mctx);
typedef void (*CodHashValueFree)(CodHashPointer value, void *mctx);
typedef CodHashEntry *(*CodHashTableGet)(void *table, CodUint32 index);
typedef void (*CodHashTableSet)(void *table, CodUint32 index, CodHashEntry *entry);
typedef CodResult (*CodHashTableInit)(CodHashMap *map, void **table, CodUint32 byteSize);
typedef void (*CodHashTableRelease)(CodHashMap *map, void *table);

struct CodHashMap {
    CodHashTable hashTable[2]; /* 0 the live table, 1 the one being filled during a rehash */
    CodHashKeyCompare keyCompare;
    CodHashCalc hashCalc;
    CodHashAlloc hashAlloc;
    CodHashFree hashFree;
    CodHashKeyFree keyFree; /* may be null, as the next */
    CodHashValueFree valFree;
    CodHashTableGet hashTableGet;
    CodHashTableSet hashTableSet;
    CodHashTableInit hashTableInit;
    CodHashTableRelease hashTableRelease;
    void *mctx;         /* last argument of the alloc and free callbacks; set by the caller before initialisation */
    CodInt32 rehashIdx; /* next bucket of table 0 to move; -1: no rehash is under way */
    CodUint8 tableType; /* 0: the plain bucket array */
    CodUint8 memType;   /* the caller's, as the next */
    CodUint16 switchThreshold;
    CodUint32 inlineLimit; /* below this number of entries an add may run inline; 0: no operation may. The library's own */
};
/* The inline operations below read and write these. */
COD_STATIC_ASSERT(sizeof(CodHashMap) <= 4096 && offsetof(CodHashMap, hashTable) == 0 && offsetof(CodHashMap, inlineLimit) == 144,
                  "layout is fixed");

/* What a map is made of. keyCompare, hashCalc and hashAlloc must be given. */
typedef struct StHmapInitCallbackSet {
    CodHashKeyCompare keyCompare;
    CodHashCalc hashCalc;
    CodHashAlloc hashAlloc;
    CodHashFree hashFree;
    CodHashKeyFree keyFree;
    CodHashValueFree valueFree;
    CodHashTableGet get;
    CodHashTableSet set;
    CodHashTableInit init;
    CodHashTableRelease release;
} StHmapInitCallbackSet;
COD_STATIC_ASSERT(sizeof(StHmapInitCallbackSet) == 80, "layout is fixed");

typedef struct CodHashMapIterator {
    CodHashMap *hashMap;
    CodHashEntry *entry;     /* returned last */
    CodHashEntry *nextEntry; /* its successor, taken before it was returned */
    CodInt32 tableIdx;
    CodInt32 hashIdx;
} CodHashMapIterator;

/* A map over the plain bucket array with buckets for `size` entries, rounded up to a power of two. Sets get, set, init and release of
 * the callback set. map->mctx, memType and switchThreshold are left alone; what the map held before is not released.
 * Errors: ERR_CMM_POINTER_NULL, also for a missing callback; those of codHMapExpand. */
COD_NODISCARD COD_API CodResult codHMapInit(CodHashMap *map, StHmapInitCallbackSet *callbacks, CodUint32 size);
/* The same with the caller's own bucket callbacks; tableType is left alone. */
COD_NODISCARD COD_API CodResult codHmapInitWithCallback(CodHashMap *map, const StHmapInitCallbackSet *callbacks, CodUint32 size);

/* Makes the buckets the least power of two not below size (at most 1,048,576); entries move over with later adds and deletes.
 * Errors: ERR_CMM_NOT_IMPLEMENTED while a rehash is under way; ERR_CMM_INVALID_PARAMETER for a size below the number of entries;
 * ERR_CMM_OUT_OF_MEMORY. On failure the map is as before. */
COD_NODISCARD COD_API CodResult codHMapExpand(CodHashMap *map, CodUint32 size);

/* Links an entry whose key the map does not hold. The entry stays the caller's, and must stay where it is while linked.
 * Errors: ERR_CMM_DUPLICATE_OBJECT; ERR_CMM_OUT_OF_MEMORY when the map should grow and could not (the entry is not added);
 * ERR_CMM_INVALID_PARAMETER for a map that is not initialised, or released. */
COD_NODISCARD COD_API CodResult codHMapAdd(CodHashMap *map, CodHashEntry *entry);
/* The entry with this key, or null. */
COD_API CodHashEntry *codHMapFind(const CodHashMap *map, CodHashPointer key);
/* Unlinks and returns the entry with this key, for the caller to free; null when there is none. */
COD_API CodHashEntry *codHMapDelete(CodHashMap *map, CodHashPointer key);

/* Walks all entries in bucket order. The entry just returned may be deleted. Adding ends the walk's promise to meet each entry once.
 * So does deleting while a rehash is under way, since deleting moves buckets: no deleted entry comes back and the map stays whole,
 * but an entry may be met twice or passed over. codHMapRehashStep(map, UINT32_MAX) ends the rehash beforehand. */
COD_API void codHMapInitIterator(CodHashMap *map, CodHashMapIterator *iterator);
COD_API CodHashEntry *codHMapGetNext(CodHashMap *map, CodHashMapIterator *iterator);

/* Frees keys, values and entries with the callbacks that are set, and the buckets. The map must be initialised again. hashFree gets
 * entries as well as buckets: a map whose entries are not its to free gives back the buckets alone, with hashTableRelease for each
 * table that has a size, and zeroes the map. */
COD_API void codHMapRelease(CodHashMap *map);

/* ---- Beside the plain operations ---- */

/* Buckets for `entries` entries, or for those that the map holds if they are more, at once: ends a rehash under way, and moves all entries
 * over before it returns. Never shrinks. Errors: ERR_CMM_OUT_OF_MEMORY, ERR_CMM_INVALID_PARAMETER for a map that is not initialised; the
 * map then has its entries and buckets as before, but no rehash under way. */
COD_NODISCARD COD_API CodResult codHMapReserve(CodHashMap *map, CodUint32 entries);
/* Runs up to `steps` steps of a rehash under way, in idle time say. True while it is still under way. */
COD_API CodBool codHMapRehashStep(CodHashMap *map, CodUint32 steps);

enum { HMAP_STATS_CHAINS = 16 };
typedef struct CodHMapStats {
    CodUint32 entries;
    CodUint32 buckets; /* of the live table, or of both during a rehash */
    CodDouble load;    /* entries / buckets */
    CodUint32 longestChain;
    CodUint32 chains[HMAP_STATS_CHAINS]; /* buckets by chain length 0, 1, ...; the last row counts all longer ones */
} CodHMapStats;
/* Walks the map. */
COD_API void codHMapStats(const CodHashMap *map, CodHMapStats *stats);

/* ---- Ready callbacks ---- */

/* Memory from the system allocator; mctx is ignored. hashMapMalloc gives null and raises on failure. */
COD_API void *hashMapMalloc(CodUint32 size, void *mctx);
COD_API void hashMapFree(void *ptr, void *mctx);

/* Keys that are 64-bit integers (intValue). Over the plain bucket array with both of them, outside a rehash, the operations run inline
 * and without indirect calls. */
COD_API CodUint32 codHashCalcUint64(CodHashPointer key);
COD_API CodInt32 codHashCompareUint64(CodHashPointer left, CodHashPointer right);

/* The plain bucket array. arrayTableInit gets zeroed memory through the map's hashAlloc. */
COD_API CodHashEntry *arrayTableGet(void *table, CodUint32 index);
COD_API void arrayTableSet(void *table, CodUint32 index, CodHashEntry *entry);
COD_NODISCARD COD_API CodResult arrayTableInit(CodHashMap *map, void **table, CodUint32 byteSize);
COD_API void arrayTableRelease(CodHashMap *map, void *table);

/* ---- The hot paths, inline ----
 *
 * A map of 64-bit keys outside a rehash. Everything else goes through the exported functions. */

/* A multiplicative hash (Knuth, volume 3, 6.4; multiplier from Steele and Vigna, Computationally easy, spectrally good multipliers, 2021)
 * with the product's best mixed byte, its highest, turned to the bottom, where buckets are chosen. Compiled into callers:
 * never changes. Chains of evenly spaced keys, up to
 * 2^51 apart, are about as short as those of random ones. */
COD_INLINE CodUint32 codHMapHashUint64(CodUint64 key) {
    return (CodUint32)__builtin_bswap64(key * 0xF1357AEA2E62A9C5ULL);
}

/* A map of 64-bit keys outside a rehash. */
COD_INLINE CodBool codHMapIsPlainUint64(const CodHashMap *map) {
    return map->inlineLimit != 0;
}

/* The link that leads to the entry with the key: the bucket's head or a predecessor's next; a null link when there is none. */
COD_INLINE CodHashEntry **codHMapLinkUint64(const CodHashMap *map, CodUint64 key) {
    const CodHashTable *table = &map->hashTable[0];
    CodHashEntry **link = (CodHashEntry **)table->table + (codHMapHashUint64(key) & table->sizeMask);
    while (*link != NULL && (*link)->key.intValue != key) {
        link = &(*link)->next;
    }
    return link;
}

COD_INLINE CodHashEntry *codHMapDeleteUint64(CodHashMap *map, CodUint64 key) {
    CodHashEntry **link = codHMapLinkUint64(map, key);
    CodHashEntry *entry = *link;
    if (entry != NULL) {
        *link = entry->next;
        map->hashTable[0].used--;
    }
    return entry;
}

/* False when the key is there. */
COD_INLINE CodBool codHMapAddUint64(CodHashMap *map, CodHashEntry *entry) {
    CodHashTable *table = &map->hashTable[0];
    CodHashEntry **head = (CodHashEntry **)table->table + (codHMapHashUint64(entry->key.intValue) & table->sizeMask);
    CodHashEntry *first = *head;
    for (const CodHashEntry *other = first; other != NULL; other = other->next) {
        if (COD_UNLIKELY(other->key.intValue == entry->key.intValue)) {
            return false;
        }
    }
    entry->next = first;
    *head = entry;
    table->used++;
    return true;
}

/* The library's own bodies under their second names. */
COD_NODISCARD COD_API CodResult codHMapAddExported(CodHashMap *map, CodHashEntry *entry);
COD_API CodHashEntry *codHMapFindExported(const CodHashMap *map, CodHashPointer key);
COD_API CodHashEntry *codHMapDeleteExported(CodHashMap *map, CodHashPointer key);

#if !defined(COD_NO_INLINE)
COD_API_INLINE CodResult codHMapAdd(CodHashMap *map, CodHashEntry *entry) {
    if (COD_LIKELY(map != NULL && entry != NULL && map->hashTable[0].used < map->inlineLimit) && codHMapAddUint64(map, entry)) {
        return COD_SUCCESS;
    }
    return codHMapAddExported(map, entry);
}

COD_API_INLINE CodHashEntry *codHMapFind(const CodHashMap *map, CodHashPointer key) {
    return COD_LIKELY(map != NULL && codHMapIsPlainUint64(map)) ? *codHMapLinkUint64(map, key.intValue) : codHMapFindExported(map, key);
}

COD_API_INLINE CodHashEntry *codHMapDelete(CodHashMap *map, CodHashPointer key) {
    return COD_LIKELY(map != NULL && codHMapIsPlainUint64(map)) ? codHMapDeleteUint64(map, key.intValue) : codHMapDeleteExported(map, key);
}
#endif

COD_END_DECLS

#endif
