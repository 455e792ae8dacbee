#ifndef VEL_INFRA_MEMORY_ANI_MEMORY_H
#define VEL_INFRA_MEMORY_ANI_MEMORY_H

/* Memory pools and memory contexts.
 *
 * A pool holds blocks of one size. A context takes blocks from a pool and carves allocations out of them by moving a position; its
 * allocations are never freed one by one: the context goes back to a mark (mctxTruncate) or ends (mctxDestroy).
 *
 *   buffer   | next | startId:8 size:56 | block | block | ...           16 bytes of header, then blocks back to back
 *   block    | magic | custom | cont | type | pool | next | data ...    24 bytes of header, then blockSize bytes
 *
 * 1. A pool is shared between threads and guarded by its own spin lock, unless isLockFree is set: then one thread uses it. A context
 *    belongs to one thread at a time.
 * 2. Choose blockSize as a multiple of 8: then every allocation is 8-byte aligned. With another size the blocks behind the first
 *    start where the sizes lead, unaligned, and so do their allocations.
 * 3. A null pointer where none is allowed is ERR_CMM_POINTER_NULL; functions without a result ignore it. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/lock/ani_latch.h>
#include <vel_infra/memory/ani_allocator.h>
#include <vel_infra/memory/ani_mem_rsrc.h>

COD_BEGIN_DECLS

enum {
    MPOOL_NAME_SIZE = 68,         /* with the terminator */
    MPOOL_BLOCK_TYPE_CONTEXT = 1, /* the first block of a context, which holds the context's record */
    MPOOL_BLOCK_TYPE_PLAIN = 2,   /* in the pool, or a further block of a context */
};
#define MPOOL_BLOCK_MAGIC 0xABABABABu

typedef struct MemoryPool MemoryPool;
typedef struct MpoolBlockCtrl MpoolBlockCtrl;
typedef struct MpoolBuffer MpoolBuffer;
typedef struct MemoryContext MemoryContext;

/* The head of a memory area that holds blocks. */
struct MpoolBuffer {
    MpoolBuffer *next;     /* the buffer that came before it */
    CodUint64 startId : 8; /* continuity code of its first block */
    CodUint64 size : 56;   /* bytes, this header included */
    __extension__ CodUint8 data[];
};
COD_STATIC_ASSERT(sizeof(MpoolBuffer) == 16, "layout is fixed");

/* The head of a block. Packed, since a block size that is no multiple of 8 leaves it unaligned. */
struct __attribute__((packed)) MpoolBlockCtrl {
    CodUint32 magicNum;      /* MPOOL_BLOCK_MAGIC */
    CodUint16 customCode;    /* its context's custom code */
    CodUint8 continuityCode; /* its ordinal in the pool, modulo 256 */
    CodUint8 type;           /* MPOOL_BLOCK_TYPE_... */
    MemoryPool *pool;
    MpoolBlockCtrl *next;           /* the next block of the list that holds it */
    __extension__ CodUint8 block[]; /* blockSize bytes */
};
COD_STATIC_ASSERT(sizeof(MpoolBlockCtrl) == 24, "layout is fixed");

typedef struct MpoolBlockCtrlList {
    MpoolBlockCtrl *head;
    MpoolBlockCtrl *tail;
    CodUint32 count;
    CodUint32 reserved; /* in a pool's own list: the most blocks ever in use */
} MpoolBlockCtrlList;

typedef struct MemPoolStats {
    CodUint64 ctxCreateTimes; /* contexts whose first block was sought in a free list that seemed to have one */
    CodUint64 ctxDestroyTimes;
    CodUint64 ctxAllocTimes; /* blocks taken from the free list; the one that an extension was made for does not count */
    CodUint64 extendTimes;
    CodUint64 recycleTimes; /* calls of the recycle callback that gave blocks */
} MemPoolStats;

/* Hands in blocks of this pool that can be spared, in *blocks (empty at the call), as a chain of plain blocks with its tail and count.
 * Called without the pool's lock. */
typedef void (*MpoolRecycle)(MemoryPool *pool, MpoolBlockCtrlList *blocks);
/* Gives a further buffer, 8-byte aligned and from the system allocator, which the pool then owns, and its size in bytes. On failure returns
 * COD_ERROR with an error raised. Called under the pool's lock: neither it nor a log
 * callback that its error reaches may use the pool. A buffer that is unaligned or smaller than
 * its header is refused with ERR_CMM_INVALID_PARAMETER, and stays the callback's. */
typedef CodResult (*MpoolExtend)(void *owner, void **buffer, CodUint64 *size);

struct MemoryPool {
    SpinLock lock;
    CodBool isLockFree;       /* one thread only; may be set after creation */
    CodBool alerted;          /* an exhaustion alert is outstanding */
    CodBool checkThreadOwner; /* contexts created from now on must stay on their thread: another one's use of them at a block's end,
                                 their truncation and their end are a panic */
    CodUint8 rsvdBlocks;      /* free blocks held back for contexts that may take them; may be set after creation */
    MpoolBuffer *buffer;      /* newest first */
    MemRsrcType memType;
    CodUint32 unused;
    CodChar name[MPOOL_NAME_SIZE];
    void *owner; /* argument of extend; the creator may set it */
    MpoolRecycle recycle;
    MpoolExtend extend;
    MpoolBlockCtrlList freeBlocks;
    CodUint32 blockCount; /* in all buffers */
    CodUint32 blockSize;  /* usable bytes per block */
    MemPoolStats poolStats;
    void *instance;    /* the caller's buffer of an attached pool, else null; the library's own */
    CodDate alertTime; /* when the last exhaustion alert was raised */
};
COD_STATIC_ASSERT(sizeof(MemoryPool) == 208 && offsetof(MemoryPool, alerted) == 5 && offsetof(MemoryPool, buffer) == 8 &&
                      offsetof(MemoryPool, memType) == 16 && offsetof(MemoryPool, name) == 24 && offsetof(MemoryPool, owner) == 96 &&
                      offsetof(MemoryPool, freeBlocks) == 120 && offsetof(MemoryPool, blockCount) == 144 &&
                      offsetof(MemoryPool, poolStats) == 152 && offsetof(MemoryPool, instance) == 192 &&
                      offsetof(MemoryPool, alertTime) == 200,
                  "layout is fixed");

/* The system's number of the thread that a context belongs to; 0: not checked. */
typedef CodUint32 MemThreadOwner;

/* A context's record, at the start of its first block's data. For reading only. Packed as the block's head is. */
struct __attribute__((packed)) MemoryContext {
    MemoryPool *pool;
    MemThreadOwner threadOwner;
    CodUint32 blockSize;       /* the pool's */
    MemRsrc *memRsrc;          /* the account that its blocks are charged to, or null */
    MpoolBlockCtrlList blocks; /* all blocks, first block first; spare ones are not among them */
    MpoolBlockCtrl *freeCtrl;  /* spare blocks, used before new ones are taken */
    MpoolBlockCtrl *currCtrl;  /* the block being carved */
    MpoolBlockCtrl *tail;      /* the block that received the last allocation */
    CodUint32 currPos;         /* next free byte in currCtrl */
    CodUint16 customCode;
    CodUint8 canAllocRsvd : 1; /* may take reserved blocks */
    CodUint8 flags : 7;
    CodUint8 reserved;
    CodUint8 *currData;       /* currCtrl's data */
    CodUint64 abandonedBytes; /* unused ends of blocks that the context moved on from, since its creation */
};

/* The inline allocation below reads and writes these. */
COD_STATIC_ASSERT(offsetof(MemoryContext, blockSize) == 12 && offsetof(MemoryContext, currPos) == 72 &&
                      offsetof(MemoryContext, currData) == 80,
                  "layout is fixed");

/* ---- Pools ---- */

/* A pool of blockCount free blocks of blockSize bytes in one buffer of system memory. The name, of at most 67 bytes, is copied.
 * End it with mpoolDestroy. On failure nothing is held.
 * Errors: ERR_CMM_OUT_OF_MEMORY, ERR_CMM_COPY_DATA for a longer name. */
COD_NODISCARD COD_API CodResult mpoolCreate(CodUint32 blockCount, CodUint32 blockSize, MemRsrcType memType, const char *name,
                                            MemoryPool *pool);

/* A pool in the caller's buffer of size bytes, 8-byte aligned, which must outlive it. poolOwner is the argument of a later extend.
 * Errors: ERR_CMM_COPY_DATA as above; ERR_CMM_INVALID_PARAMETER for an unaligned buffer or one smaller than its header. */
COD_NODISCARD COD_API CodResult mpoolAttach(void *buffer, CodUint64 size, CodUint32 blockSize, MemRsrcType memType, const char *name,
                                            void *poolOwner, MemoryPool *pool);

/* Frees the buffers that the pool owns (not the one it was attached to). Its contexts end with it. */
COD_API void mpoolDestroy(MemoryPool *pool);

/* Install a callback, at start-up; null removes it. */
COD_API void mpoolRegisterExtend(MemoryPool *pool, MpoolExtend extend);
COD_API void mpoolRegisterRecycle(MemoryPool *pool, MpoolRecycle recycle);

/* Blocks singly, for callers that manage their own. mpoolAllocBlock takes one from the free list, else from the recycle callback, else
 * from a new buffer of the extend callback. canAllocRsvd: the reserve may be used. isCreate counts a context's creation.
 * Errors: ERR_CMM_ALLOC_MPOOL_BLOCK; the extend callback's. mpoolTryAllocBlock looks at the free list alone and raises nothing. */
COD_NODISCARD COD_API CodResult mpoolAllocBlock(MemoryPool *pool, MpoolBlockCtrl **block, CodBool canAllocRsvd, CodBool isCreate);
COD_NODISCARD COD_API CodBool mpoolTryAllocBlock(MemoryPool *pool, MpoolBlockCtrl **block, CodBool canAllocRsvd, CodBool isCreate);
/* The same, charged to memRsrc (null: to none). Also: the account's errors. */
COD_NODISCARD COD_API CodResult mpoolAllocBlockWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MpoolBlockCtrl **block, CodBool canAllocRsvd,
                                                        CodBool isCreate);
/* Gives a chain of blocks with its tail and count back to the pool; *blocks is empty afterwards. Quota is the caller's business. */
COD_API void mpoolFreeBlocks(MemoryPool *pool, MpoolBlockCtrlList *blocks);

/* ---- Contexts ---- */

/* A context over the pool, charged to no account. Ends with mctxDestroy.
 * Errors: ERR_CMM_ALLOC_MPOOL_BLOCK; ERR_CMM_BLOCK_SIZE_ILLEGAL when a block cannot hold the context's record; those of extend. */
COD_NODISCARD COD_API CodResult mctxCreate(MemoryPool *pool, MemoryContext **context);
/* Charged to memRsrc (null: to none). Also: ERR_CMM_ALLOC_MEM_QUOTA. */
COD_NODISCARD COD_API CodResult mctxCreateWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MemoryContext **context);
/* With the custom code that is stamped on its blocks, and the permission to take the pool's reserve. */
COD_NODISCARD COD_API CodResult mctxCustomCreate(MemoryPool *pool, MemRsrc *memRsrc, CodUint16 customCode, CodBool canAllocRsvd,
                                                 MemoryContext **context);
/* The same from the free list alone, raising nothing: false, and a null *context, when there is no block, no quota, or a null argument. A
 * refusal of quota passes over the error stack and is dropped again: the fourth entry of a full one goes with it. */
COD_NODISCARD COD_API CodBool mctxTryCreate(MemoryPool *pool, MemoryContext **context);
COD_NODISCARD COD_API CodBool mctxTryCreateWithRsrc(MemoryPool *pool, MemRsrc *memRsrc, MemoryContext **context);
COD_NODISCARD COD_API CodBool mctxTryCustomCreate(MemoryPool *pool, MemRsrc *memRsrc, CodUint16 customCode, CodBool canAllocRsvd,
                                                  MemoryContext **context);

/* size bytes, rounded up to a multiple of 8, not zeroed. A request of exactly blockSize gets a whole block and leaves the carving
 * position where it is. A request that the current block cannot hold moves on to the next one; the rest of the old is abandoned.
 * Errors: ERR_CMM_ALLOC_MCTX_MEM for more than blockSize; those of mpoolAllocBlockWithRsrc. *buffer is then null. */
COD_NODISCARD COD_API CodResult mctxAlloc(MemoryContext *context, CodUint32 size, void **buffer);
/* The same, raising nothing and from the free list alone; a request of blockSize is carved from a fresh block. False: *buffer is null. */
COD_NODISCARD COD_API CodBool mctxTryAlloc(MemoryContext *context, CodUint32 size, void **buffer);
/* As much as the current block still holds (a full one is left first), at most expectedSize rounded up to 8; *size tells how much. */
COD_NODISCARD COD_API CodResult mctxAllocMax(MemoryContext *context, CodUint32 expectedSize, CodUint32 *size, void **buffer);
/* Moves on to a fresh block. Errors: those of mpoolAllocBlockWithRsrc. */
COD_NODISCARD COD_API CodResult mctxExtend(MemoryContext *context);
/* Makes sure that `count` blocks are spare, so that the next moves to a fresh block cannot fail. What was taken before a failure
 * stays with the context. Errors: those of mpoolAllocBlockWithRsrc. */
COD_NODISCARD COD_API CodResult mctxReserveBlocks(MemoryContext *context, CodUint32 count);

/* Gives back everything behind buffer, an address that the context gave out or may give out next: blocks taken after the one that
 * holds it go back to the pool (a whole block taken meanwhile too, even when it came before the mark), and carving goes on at
 * buffer, rounded up to 8. Spare blocks stay. An address that no block of the context holds is ignored. */
COD_API void mctxTruncate(MemoryContext *context, const void *buffer);

/* Ends the context: all blocks return to the pool. Null is ignored. */
COD_API void mctxDestroy(MemoryContext *context);

/* Copies src's bytes into the context and makes dst refer to them; dst->aux is left alone. src may be dst.
 * Errors: those of mctxAlloc; *dst is then unchanged. */
COD_NODISCARD COD_API CodResult mctxCopyText(MemoryContext *context, const CodText *src, CodText *dst);

/* ---- Looking inside ---- */

/* Walks the whole pool: magic numbers, owners, continuity codes and counts of all blocks, and the free list.
 * Errors: ERR_CMM_INTERNAL_ERROR with what is wrong and in which block. Takes the lock for the time of the walk. */
COD_NODISCARD COD_API CodResult mpoolVerify(MemoryPool *pool);

enum { MPOOL_REPORT_CODES = 16 };

typedef struct MpoolReport {
    CodUint64 bytes;     /* of all buffers, headers included */
    CodUint32 blockSize; /* bytes */
    CodUint32 blockCount;
    CodUint32 freeBlocks;
    CodUint32 usedBlocks;     /* in contexts, spare ones included, or taken singly */
    CodUint32 peakUsedBlocks; /* the most at any time since creation */
    CodUint32 contexts;
    CodUint64 abandonedBytes; /* sum over the living contexts */
    MemPoolStats stats;
    CodUint32 otherContexts; /* contexts whose code found no row below */
    CodUint32 codeCount;     /* rows in use below */
    struct {
        CodUint16 customCode;
        CodUint32 contexts;
    } codes[MPOOL_REPORT_CODES]; /* contexts by custom code, in the order in which the walk met them */
} MpoolReport;

/* Fills *report from a walk over the pool, under its lock. The figures of contexts are a snapshot: their threads may be at work. */
COD_NODISCARD COD_API CodResult mpoolReport(MemoryPool *pool, MpoolReport *report);

/* ---- The hot path, inline ---- */

/* The library's own bodies under their second names. */
COD_NODISCARD COD_API CodResult mctxAllocExported(MemoryContext *context, CodUint32 size, void **buffer);

#if !COD_WITH_ASAN && !defined(COD_NO_INLINE)
COD_API_INLINE CodResult mctxAlloc(MemoryContext *context, CodUint32 size, void **buffer) {
    if (COD_LIKELY(context != NULL && buffer != NULL)) {
        CodUint32 position = context->currPos;
        CodUint64 end = (((CodUint64)size + 7) & ~(CodUint64)7) + position;
        /* A request that just fits goes the long way too: a whole block is among these. */
        if (COD_LIKELY(end < context->blockSize)) {
            *buffer = context->currData + position;
            context->currPos = (CodUint32)end;
            return COD_SUCCESS;
        }
    }
    return mctxAllocExported(context, size, buffer);
}
#endif

COD_END_DECLS

#endif
