#include "work_memory.h"

#include <vel_infra/error/ani_error_base.h>

namespace vel {

namespace {

constexpr CodUint32 kFirstBlocks = 16;
constexpr CodUint32 kFurtherBytes = 4 * 1024 * 1024;

// Stored values are met in random order, and with ordinary pages each of them costs a walk of the page tables too.
CodResult extendPool(void *, void **buffer, CodUint64 *size) {
    *size = kFurtherBytes;
    return allocLargePageMem(buffer, kFurtherBytes);
}

}  // namespace

WorkMemory::~WorkMemory() {
    if (isCreated_) {
        mpoolDestroy(&pool_);
    }
}

CodResult WorkMemory::init() {
    COD_TRY(mpoolCreate(kFirstBlocks, kBlockSize, MEM_RSRC_OTHERS, "vel work memory", &pool_));
    isCreated_ = true;
    pool_.isLockFree = true;
    mpoolRegisterExtend(&pool_, extendPool);
    return COD_SUCCESS;
}

CodResult initMapOfCarvedEntries(CodHashMap *map, CodHashKeyCompare keyCompare, CodHashCalc hashCalc) {
    *map = {};
    StHmapInitCallbackSet callbacks = {};
    callbacks.keyCompare = keyCompare;
    callbacks.hashCalc = hashCalc;
    callbacks.hashAlloc = hashMapMalloc;
    callbacks.hashFree = hashMapFree;
    return codHMapInit(map, &callbacks, 0);
}

void releaseMapOfCarvedEntries(CodHashMap *map) {
    for (CodHashTable &table : map->hashTable) {
        if (table.size != 0) {
            map->hashTableRelease(map, table.table);
        }
    }
    *map = {};
}

}  // namespace vel
