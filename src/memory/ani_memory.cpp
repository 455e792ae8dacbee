#define COD_NO_INLINE
#include <vel_infra/memory/ani_memory.h>

#include <string.h>
#include <unistd.h>

#include <algorithm>

#include <vel_infra/adr/ani_alert.h>
#include <vel_infra/adr/ani_blackbox.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

#include "base/cod_asan.h"
#include "base/cod_bytes.h"
#include "memory/ani_memory_internal.h"

namespace {

using cod::PoolLock;

constexpr CodDate kAlertInterval = 300'000'000;  // microseconds between two exhaustion alerts
constexpr CodUint64 kMaxBufferSize = (CodUint64{1} << 56) - 1;

// ---- Lists of blocks ----

void appendChain(MpoolBlockCtrlList *list, const MpoolBlockCtrlList &chain) {
    if (chain.head == nullptr) {
        return;
    }
    if (list->head == nullptr) {
        list->head = chain.head;
    } else {
        list->tail->next = chain.head;
    }
    list->tail = chain.tail;
}

// The count of a pool's free list is looked at without the lock.
CodUint32 freeCount(const MemoryPool *pool) {
    return __atomic_load_n(&pool->freeBlocks.count, __ATOMIC_RELAXED);
}

void setFreeCount(MemoryPool *pool, CodUint32 count) {
    __atomic_store_n(&pool->freeBlocks.count, count, __ATOMIC_RELAXED);
}

bool isAboveReserve(const MemoryPool *pool, bool canAllocRsvd) {
    return freeCount(pool) > (canAllocRsvd ? 0u : pool->rsvdBlocks);
}

// The head of a free list that holds one; under the lock.
MpoolBlockCtrl *popFree(MemoryPool *pool) {
    MpoolBlockCtrlList &list = pool->freeBlocks;
    MpoolBlockCtrl *block = list.head;
    list.head = block->next;
    if (list.head == nullptr) {
        list.tail = nullptr;
    }
    setFreeCount(pool, list.count - 1);
    list.reserved = std::max(list.reserved, pool->blockCount - list.count);
    block->next = nullptr;
    return block;
}

// ---- Exhaustion alerts ----

void sendExhaustionAlert(const char *poolName, bool isRaise) {
    aniSendAlert(ALERT_MEMORY_POOL, isRaise, "|%s memory pool is exhausted", poolName);
}

// Under the lock; whether an outstanding alert is over, and a clearing one shall be sent once the lock is released.
bool clearAlert(MemoryPool *pool) {
    const bool isCleared = pool->alerted && pool->freeBlocks.count > pool->rsvdBlocks;
    pool->alerted = pool->alerted && !isCleared;
    return isCleared;
}

// Under the lock; whether this thread shall raise the alert. The time keeps other threads from raising it as well meanwhile.
bool isAlertDue(MemoryPool *pool) {
    const CodDate now = codNow();
    if (pool->alerted || now - pool->alertTime <= kAlertInterval) {
        return false;
    }
    pool->alertTime = now;
    return true;
}

// The receiver is called without the lock. Only then is the alert outstanding, so that no other thread clears it before it was raised;
// blocks that came back meanwhile clear it here.
void raiseAlert(MemoryPool *pool) {
    sendExhaustionAlert(pool->name, true);
    bool isCleared = false;
    {
        const PoolLock lock(pool);
        pool->alerted = true;
        isCleared = clearAlert(pool);
    }
    if (isCleared) {
        sendExhaustionAlert(pool->name, false);
    }
}

// Puts a chain back. A context's end hands in its first block, which stops being one under the lock, so that a report never reads
// the record of a context whose blocks are on their way to another.
void returnBlocks(MemoryPool *pool, const MpoolBlockCtrlList &blocks, MpoolBlockCtrl *endedContext) {
    bool isCleared = false;
    {
        const PoolLock lock(pool);
#if COD_WITH_ASAN
        for (MpoolBlockCtrl *block = blocks.head; block != nullptr; block = block->next) {
            cod::asanPoison(block->block, pool->blockSize);
        }
#endif
        if (endedContext != nullptr) {
            __atomic_store_n(&endedContext->type, CodUint8{MPOOL_BLOCK_TYPE_PLAIN}, __ATOMIC_RELAXED);
            pool->poolStats.ctxDestroyTimes++;
        }
        appendChain(&pool->freeBlocks, blocks);
        setFreeCount(pool, pool->freeBlocks.count + blocks.count);
        isCleared = clearAlert(pool);
    }
    if (COD_UNLIKELY(isCleared)) {
        sendExhaustionAlert(pool->name, false);
    }
}

// ---- Making pools ----

CodResult setName(MemoryPool *pool, const char *name) {
    const size_t length = strlen(name);
    if (length >= MPOOL_NAME_SIZE) {
        return codRaise(ERR_CMM_COPY_DATA, static_cast<CodUint32>(length), static_cast<CodUint32>(MPOOL_NAME_SIZE));
    }
    memcpy(pool->name, name, length + 1);
    return COD_SUCCESS;
}

void layOutBlocks(MemoryPool *pool, MpoolBlockCtrlList *list, CodUint32 startId, CodUint32 blockSize, void *data, CodUint64 size) {
    // A count beyond 32 bits would need buffers of more than 96 GiB of heads alone; the rest of such a buffer stays unused.
    const CodUint64 count = std::min<CodUint64>(size / cod::blockStride(blockSize), UINT32_MAX);
    *list = {};
    for (CodUint64 i = 0; i < count; i++) {
        MpoolBlockCtrl *block = cod::blockAt(data, blockSize, i);
        block->magicNum = MPOOL_BLOCK_MAGIC;
        block->customCode = 0;
        block->continuityCode = static_cast<CodUint8>(startId + i);
        block->type = MPOOL_BLOCK_TYPE_PLAIN;
        block->pool = pool;
        block->next = i + 1 < count ? cod::blockAt(data, blockSize, i + 1) : nullptr;
        cod::asanPoison(block->block, blockSize);
    }
    if (count > 0) {
        list->head = cod::blockAt(data, blockSize, 0);
        list->tail = cod::blockAt(data, blockSize, count - 1);
        list->count = static_cast<CodUint32>(count);
    }
}

// Makes the buffer of size bytes the pool's newest and its blocks free.
void addBuffer(MemoryPool *pool, void *memory, CodUint64 size) {
    auto *buffer = static_cast<MpoolBuffer *>(memory);
    buffer->next = pool->buffer;
    buffer->startId = pool->blockCount % 256;
    buffer->size = size & kMaxBufferSize;
    pool->buffer = buffer;
    MpoolBlockCtrlList blocks;
    layOutBlocks(pool, &blocks, pool->blockCount % 256, pool->blockSize, buffer->data, size - sizeof(MpoolBuffer));
    pool->blockCount += blocks.count;
    appendChain(&pool->freeBlocks, blocks);
    setFreeCount(pool, pool->freeBlocks.count + blocks.count);
}

bool isUsableBuffer(const void *buffer, CodUint64 size) {
    return buffer != nullptr && reinterpret_cast<CodUint64>(buffer) % 8 == 0 && size >= sizeof(MpoolBuffer) && size <= kMaxBufferSize;
}

// ---- Taking blocks ----

CodBool takeRecycled(MemoryPool *pool, MpoolBlockCtrl **block) {
    MpoolBlockCtrlList recycled{};
    pool->recycle(pool, &recycled);
    if (recycled.head == nullptr) {
        return false;
    }
    MpoolBlockCtrl *first = recycled.head;
    MpoolBlockCtrlList others{first->next, first->next != nullptr ? recycled.tail : nullptr, recycled.count - 1, 0};
    first->next = nullptr;
    __atomic_store_n(&first->type, CodUint8{MPOOL_BLOCK_TYPE_PLAIN}, __ATOMIC_RELAXED);
    cod::asanPoison(first->block, pool->blockSize);
    {
        const PoolLock lock(pool);
        pool->poolStats.recycleTimes++;
    }
    if (others.head != nullptr) {
        mpoolFreeBlocks(pool, &others);
    }
    *block = first;
    return true;
}

COD_COLD CodResult raiseExhausted(const MemoryPool *pool) {
    return codRaise(ERR_CMM_ALLOC_MPOOL_BLOCK, pool->name);
}

enum class Extension { kDone, kFailed, kUnusable, kTooSmall };

// Takes a block out of a new buffer. The extend callback runs under the lock, so that threads that find the pool empty at the same time
// wait for one new buffer; errors are raised without it.
Extension extendAndTake(MemoryPool *pool, MpoolBlockCtrl **block, bool canAllocRsvd) {
    const PoolLock lock(pool);
    if (isAboveReserve(pool, canAllocRsvd)) {
        pool->poolStats.ctxAllocTimes++;
        *block = popFree(pool);
        return Extension::kDone;
    }
    void *buffer = nullptr;
    CodUint64 size = 0;
    if (pool->extend(pool->owner, &buffer, &size) != COD_SUCCESS) {
        return Extension::kFailed;
    }
    if (!isUsableBuffer(buffer, size)) {
        return Extension::kUnusable;
    }
    addBuffer(pool, buffer, size);
    pool->poolStats.extendTimes++;
    if (pool->freeBlocks.count == 0) {
        return Extension::kTooSmall;
    }
    *block = popFree(pool);
    return Extension::kDone;
}

CodResult takeFromNewBuffer(MemoryPool *pool, MpoolBlockCtrl **block, bool canAllocRsvd) {
    switch (extendAndTake(pool, block, canAllocRsvd)) {
        case Extension::kDone:
            return COD_SUCCESS;
        case Extension::kUnusable:
            return codRaise(ERR_CMM_INVALID_PARAMETER, "the extend callback of a memory pool gave an unusable buffer");
        case Extension::kTooSmall:
            return raiseExhausted(pool);
        default:
            guardErrorCode();
            return COD_ERROR;
    }
}

CodResult failExhausted(MemoryPool *pool) {
    bool isDue = false;
    {
        const PoolLock lock(pool);
        isDue = isAlertDue(pool);
    }
    if (isDue) {
        raiseAlert(pool);
    }
    return raiseExhausted(pool);
}

// ---- Contexts ----

MemThreadOwner thisThread() {
    return static_cast<MemThreadOwner>(gettid());
}

void checkOwner(const MemoryContext *context) {
    if (COD_UNLIKELY(context->threadOwner != 0 && context->threadOwner != thisThread())) {
        codPanic("a memory context of pool %s is used by a thread that does not own it", context->pool->name);
    }
}

bool canHoldContext(const MemoryPool *pool) {
    return pool->blockSize >= sizeof(MemoryContext);
}

void setCurrent(MemoryContext *context, MpoolBlockCtrl *block) {
    context->currCtrl = block;
    context->currData = block->block;
}

MemoryContext *makeContext(MpoolBlockCtrl *block, MemoryPool *pool, MemRsrc *memRsrc, CodUint16 customCode, bool canAllocRsvd) {
    auto *context = reinterpret_cast<MemoryContext *>(block->block);
    cod::asanUnpoison(context, sizeof *context);
    *context = {};
    context->pool = pool;
    context->threadOwner = pool->checkThreadOwner ? thisThread() : 0;
    context->memRsrc = memRsrc;
    context->blocks = {block, block, 1, 0};
    setCurrent(context, block);
    context->tail = block;
    context->currPos = sizeof *context;
    context->blockSize = pool->blockSize;
    context->customCode = customCode;
    context->canAllocRsvd = canAllocRsvd;
    block->next = nullptr;
    cod::storeShared(cod::fieldAddress(block, offsetof(MpoolBlockCtrl, customCode)), customCode);
    // From here on a report reads the record.
    __atomic_store_n(&block->type, CodUint8{MPOOL_BLOCK_TYPE_CONTEXT}, __ATOMIC_RELEASE);
    return context;
}

bool tryReserveQuota(MemRsrc *memRsrc, const MemoryPool *pool) {
    if (memRsrc == nullptr || aniMemRsrcAllocSpaQuota(memRsrc, pool->memType, pool->blockSize) == COD_SUCCESS) {
        return true;
    }
    codCleanCurError();
    return false;
}

bool tryAllocBlockWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MpoolBlockCtrl **block, bool canAllocRsvd, bool isCreate) {
    if (!tryReserveQuota(memRsrc, pool)) {
        return false;
    }
    if (!mpoolTryAllocBlock(pool, block, canAllocRsvd, isCreate)) {
        aniMemRsrcFreeSpaQuota(memRsrc, pool->memType, pool->blockSize);
        return false;
    }
    return true;
}

// The next block of the context: a spare one, else one that `take` gets from the pool. Appended and stamped.
template <class Take>
MpoolBlockCtrl *nextBlock(MemoryContext *context, Take take) {
    checkOwner(context);
    MpoolBlockCtrl *block = context->freeCtrl;
    if (block != nullptr) {
        context->freeCtrl = block->next;
    } else if (!take(&block)) {
        return nullptr;
    }
    block->next = nullptr;
    cod::storeShared(cod::fieldAddress(block, offsetof(MpoolBlockCtrl, customCode)), CodUint16{context->customCode});
    context->blocks.tail->next = block;
    context->blocks.tail = block;
    context->blocks.count++;
    return block;
}

MpoolBlockCtrl *nextBlockRaising(MemoryContext *context) {
    return nextBlock(context, [context](MpoolBlockCtrl **block) {
        return mpoolAllocBlockWithRsrc(context->pool, context->memRsrc, block, context->canAllocRsvd, false) == COD_SUCCESS;
    });
}

MpoolBlockCtrl *nextBlockTrying(MemoryContext *context) {
    return nextBlock(context, [context](MpoolBlockCtrl **block) {
        return tryAllocBlockWithRsrc(context->pool, context->memRsrc, block, context->canAllocRsvd, false);
    });
}

void moveTo(MemoryContext *context, MpoolBlockCtrl *block) {
    const CodUint64 abandoned = context->abandonedBytes + (context->blockSize - context->currPos);
    cod::storeShared(cod::fieldAddress(context, offsetof(MemoryContext, abandonedBytes)), abandoned);
    setCurrent(context, block);
    context->tail = block;
    context->currPos = 0;
}

// `rounded` bytes of the current block, which has them. Of these the caller may touch the first `size`.
void *carve(MemoryContext *context, CodUint32 rounded, CodUint32 size) {
    CodUint8 *buffer = context->currData + context->currPos;
    context->currPos += rounded;
    cod::asanUnpoison(buffer, size);
    return buffer;
}

CodUint32 roomLeft(const MemoryContext *context) {
    return context->blockSize - context->currPos;
}

bool isInside(const MpoolBlockCtrl *block, CodUint32 from, CodUint32 blockSize, const void *address) {
    const auto *byte = static_cast<const CodUint8 *>(address);
    return byte >= block->block + from && byte <= block->block + blockSize;
}

}  // namespace

// ---- Pools ----

CodResult mpoolCreate(CodUint32 blockCount, CodUint32 blockSize, MemRsrcType memType, const char *name, MemoryPool *pool) {
    if (name == nullptr || pool == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    CodUint64 size = 0;
    if (__builtin_mul_overflow(cod::blockStride(blockSize), blockCount, &size) || size > kMaxBufferSize - sizeof(MpoolBuffer)) {
        size = UINT64_MAX - sizeof(MpoolBuffer);  // which no system has
    }
    size += sizeof(MpoolBuffer);
    *pool = {};
    void *buffer = nullptr;
    if (codSysAlloc(size, &buffer) != COD_SUCCESS) {
        return COD_ERROR;
    }
    pool->memType = memType;
    pool->blockSize = blockSize;
    if (setName(pool, name) != COD_SUCCESS) {
        codSysFree(buffer);
        return COD_ERROR;
    }
    addBuffer(pool, buffer, size);
    return COD_SUCCESS;
}

CodResult mpoolAttach(void *buffer, CodUint64 size, CodUint32 blockSize, MemRsrcType memType, const char *name, void *poolOwner,
                      MemoryPool *pool) {
    if (buffer == nullptr || name == nullptr || pool == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (!isUsableBuffer(buffer, size)) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the buffer of a memory pool is unaligned, or smaller than its header");
    }
    *pool = {};
    if (setName(pool, name) != COD_SUCCESS) {
        return COD_ERROR;
    }
    pool->memType = memType;
    pool->blockSize = blockSize;
    pool->owner = poolOwner;
    pool->instance = buffer;
    addBuffer(pool, buffer, size);
    return COD_SUCCESS;
}

void mpoolDestroy(MemoryPool *pool) {
    if (pool == nullptr) {
        return;
    }
    for (MpoolBuffer *buffer = pool->buffer; buffer != nullptr;) {
        MpoolBuffer *next = buffer->next;
        cod::asanUnpoison(buffer, buffer->size);
        if (buffer != pool->instance) {
            codSysFree(buffer);
        }
        buffer = next;
    }
    pool->buffer = nullptr;
    pool->freeBlocks = {};
    pool->blockCount = 0;
}

void mpoolRegisterExtend(MemoryPool *pool, MpoolExtend extend) {
    if (pool != nullptr) {
        pool->extend = extend;
    }
}

void mpoolRegisterRecycle(MemoryPool *pool, MpoolRecycle recycle) {
    if (pool != nullptr) {
        pool->recycle = recycle;
    }
}

CodBool mpoolTryAllocBlock(MemoryPool *pool, MpoolBlockCtrl **block, CodBool canAllocRsvd, CodBool isCreate) {
    if (pool == nullptr || block == nullptr || !isAboveReserve(pool, canAllocRsvd)) {
        return false;
    }
    const PoolLock lock(pool);
    if (isCreate) {
        pool->poolStats.ctxCreateTimes++;
    }
    if (!isAboveReserve(pool, canAllocRsvd)) {
        return false;
    }
    *block = popFree(pool);
    pool->poolStats.ctxAllocTimes++;
    return true;
}

CodResult mpoolAllocBlock(MemoryPool *pool, MpoolBlockCtrl **block, CodBool canAllocRsvd, CodBool isCreate) {
    if (pool == nullptr || block == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (mpoolTryAllocBlock(pool, block, canAllocRsvd, isCreate) || (pool->recycle != nullptr && takeRecycled(pool, block)) ||
        mpoolTryAllocBlock(pool, block, canAllocRsvd, false)) {
        return COD_SUCCESS;
    }
    return pool->extend != nullptr ? takeFromNewBuffer(pool, block, canAllocRsvd) : failExhausted(pool);
}

CodResult mpoolAllocBlockWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MpoolBlockCtrl **block, CodBool canAllocRsvd, CodBool isCreate) {
    if (pool == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (memRsrc != nullptr && aniMemRsrcAllocSpaQuota(memRsrc, pool->memType, pool->blockSize) != COD_SUCCESS) {
        return COD_ERROR;
    }
    if (mpoolAllocBlock(pool, block, canAllocRsvd, isCreate) != COD_SUCCESS) {
        aniMemRsrcFreeSpaQuota(memRsrc, pool->memType, pool->blockSize);
        return COD_ERROR;
    }
    return COD_SUCCESS;
}

void mpoolFreeBlocks(MemoryPool *pool, MpoolBlockCtrlList *blocks) {
    if (pool != nullptr && blocks != nullptr) {
        returnBlocks(pool, *blocks, nullptr);
        *blocks = {};
    }
}

// ---- Contexts: creating ----

CodResult mctxCreate(MemoryPool *pool, MemoryContext **context) {
    return mctxCustomCreate(pool, nullptr, 0, false, context);
}

CodResult mctxCreateWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MemoryContext **context) {
    return mctxCustomCreate(pool, memRsrc, 0, false, context);
}

CodResult mctxCustomCreate(MemoryPool *pool, MemRsrc *memRsrc, CodUint16 customCode, CodBool canAllocRsvd, MemoryContext **context) {
    if (pool == nullptr || context == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *context = nullptr;
    if (!canHoldContext(pool)) {
        return codRaise(ERR_CMM_BLOCK_SIZE_ILLEGAL, pool->blockSize, "a block cannot hold the record of a context");
    }
    MpoolBlockCtrl *block = nullptr;
    if (mpoolAllocBlockWithRsrc(pool, memRsrc, &block, canAllocRsvd, true) != COD_SUCCESS) {
        return COD_ERROR;
    }
    *context = makeContext(block, pool, memRsrc, customCode, canAllocRsvd);
    return COD_SUCCESS;
}

CodBool mctxTryCreate(MemoryPool *pool, MemoryContext **context) {
    return mctxTryCustomCreate(pool, nullptr, 0, false, context);
}

CodBool mctxTryCreateWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MemoryContext **context) {
    return mctxTryCustomCreate(pool, memRsrc, 0, false, context);
}

CodBool mctxTryCustomCreate(MemoryPool *pool, MemRsrc *memRsrc, CodUint16 customCode, CodBool canAllocRsvd, MemoryContext **context) {
    if (context == nullptr) {
        return false;
    }
    *context = nullptr;
    MpoolBlockCtrl *block = nullptr;
    if (pool == nullptr || !canHoldContext(pool) || !tryAllocBlockWithRsrc(pool, memRsrc, &block, canAllocRsvd, true)) {
        return false;
    }
    *context = makeContext(block, pool, memRsrc, customCode, canAllocRsvd);
    return true;
}

// ---- Contexts: allocating ----

CodResult mctxAlloc(MemoryContext *context, CodUint32 size, void **buffer) {
    if (context == nullptr || buffer == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const CodUint64 rounded = cod::roundUp8(size);
    const CodUint32 blockSize = context->blockSize;
    if (COD_LIKELY(rounded < blockSize && rounded <= roomLeft(context))) {
        *buffer = carve(context, static_cast<CodUint32>(rounded), size);
        return COD_SUCCESS;
    }
    *buffer = nullptr;
    if (rounded > blockSize) {
        return codRaise(ERR_CMM_ALLOC_MCTX_MEM, aniMemRsrcTypeName(context->pool->memType));
    }
    if (rounded == blockSize) {
        MpoolBlockCtrl *block = nextBlockRaising(context);
        if (block == nullptr) {
            return COD_ERROR;
        }
        context->tail = block;
        cod::asanUnpoison(block->block, size);
        *buffer = block->block;
        return COD_SUCCESS;
    }
    if (mctxExtend(context) != COD_SUCCESS) {
        return COD_ERROR;
    }
    *buffer = carve(context, static_cast<CodUint32>(rounded), size);
    return COD_SUCCESS;
}
CodResult mctxAllocExported(MemoryContext *context, CodUint32 size, void **buffer) COD_SECOND_NAME(mctxAlloc);

CodBool mctxTryAlloc(MemoryContext *context, CodUint32 size, void **buffer) {
    if (context == nullptr || buffer == nullptr) {
        return false;
    }
    *buffer = nullptr;
    const CodUint64 rounded = cod::roundUp8(size);
    if (rounded > context->blockSize) {
        return false;
    }
    if (rounded > roomLeft(context)) {
        MpoolBlockCtrl *block = nextBlockTrying(context);
        if (block == nullptr) {
            return false;
        }
        moveTo(context, block);
    }
    *buffer = carve(context, static_cast<CodUint32>(rounded), size);
    return true;
}

CodResult mctxAllocMax(MemoryContext *context, CodUint32 expectedSize, CodUint32 *size, void **buffer) {
    if (context == nullptr || size == nullptr || buffer == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *buffer = nullptr;
    *size = 0;
    if (roomLeft(context) == 0 && mctxExtend(context) != COD_SUCCESS) {
        return COD_ERROR;
    }
    *size = static_cast<CodUint32>(std::min<CodUint64>(roomLeft(context), cod::roundUp8(expectedSize)));
    *buffer = carve(context, *size, *size);
    return COD_SUCCESS;
}

CodResult mctxExtend(MemoryContext *context) {
    if (context == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    MpoolBlockCtrl *block = nextBlockRaising(context);
    if (block == nullptr) {
        return COD_ERROR;
    }
    moveTo(context, block);
    return COD_SUCCESS;
}

CodResult mctxReserveBlocks(MemoryContext *context, CodUint32 count) {
    if (context == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    checkOwner(context);
    CodUint32 spare = 0;
    for (MpoolBlockCtrl *block = context->freeCtrl; block != nullptr; block = block->next) {
        spare++;
    }
    for (; spare < count; spare++) {
        MpoolBlockCtrl *block = nullptr;
        if (mpoolAllocBlockWithRsrc(context->pool, context->memRsrc, &block, context->canAllocRsvd, false) != COD_SUCCESS) {
            return COD_ERROR;
        }
        block->next = context->freeCtrl;
        context->freeCtrl = block;
    }
    return COD_SUCCESS;
}

CodResult mctxCopyText(MemoryContext *context, const CodText *src, CodText *dst) {
    if (src == nullptr || dst == nullptr || (src->str == nullptr && src->len != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    void *copy = nullptr;
    if (mctxAlloc(context, src->len, &copy) != COD_SUCCESS) {
        return COD_ERROR;
    }
    if (src->len != 0) {
        memcpy(copy, src->str, src->len);
    }
    dst->len = src->len;
    dst->str = static_cast<CodChar *>(copy);
    return COD_SUCCESS;
}

// ---- Contexts: going back and ending ----

void mctxTruncate(MemoryContext *context, const void *buffer) {
    if (context == nullptr || buffer == nullptr) {
        return;
    }
    checkOwner(context);
    MemoryPool *pool = context->pool;
    // In the first block the record stands in front of everything that was given out.
    CodUint32 from = sizeof(MemoryContext);
    MpoolBlockCtrl *block = context->blocks.head;
    CodUint32 kept = 1;
    while (!isInside(block, from, pool->blockSize, buffer)) {
        block = block->next;
        if (block == nullptr) {
            return;
        }
        from = 0;
        kept++;
    }
    const MpoolBlockCtrlList returned{block->next, context->blocks.tail, context->blocks.count - kept, 0};
    context->blocks.tail = block;
    context->blocks.count = kept;
    block->next = nullptr;
    setCurrent(context, block);
    context->tail = block;
    const auto position = static_cast<CodUint32>(static_cast<const CodUint8 *>(buffer) - block->block);
    context->currPos = static_cast<CodUint32>(std::min<CodUint64>(cod::roundUp8(position), pool->blockSize));
    cod::asanPoison(block->block + context->currPos, roomLeft(context));
    if (returned.head != nullptr) {
        returnBlocks(pool, returned, nullptr);
        aniMemRsrcFreeSpaQuota(context->memRsrc, pool->memType, CodUint64{pool->blockSize} * returned.count);
    }
}

void mctxDestroy(MemoryContext *context) {
    if (context == nullptr) {
        return;
    }
    checkOwner(context);
    // The record dies with its block as soon as that is free.
    MemoryPool *pool = context->pool;
    MemRsrc *memRsrc = context->memRsrc;
    MpoolBlockCtrlList blocks = context->blocks;
    MpoolBlockCtrlList spare{context->freeCtrl, nullptr, 0, 0};
    for (MpoolBlockCtrl *block = spare.head; block != nullptr; block = block->next) {
        spare.tail = block;
        spare.count++;
    }
    appendChain(&blocks, spare);
    blocks.count += spare.count;
    returnBlocks(pool, blocks, blocks.head);
    aniMemRsrcFreeSpaQuota(memRsrc, pool->memType, CodUint64{pool->blockSize} * blocks.count);
}
