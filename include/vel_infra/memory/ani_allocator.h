#ifndef VEL_INFRA_MEMORY_ANI_ALLOCATOR_H
#define VEL_INFRA_MEMORY_ANI_ALLOCATOR_H

/* The system allocator and the allocator records that containers take their memory from.
 *
 * Threads: every function may be called from any thread. A failed allocation sets its out pointer to null and leaves an error. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

/* ---- System memory ---- */

/* size bytes, 8-byte aligned. Free with codSysFree.
 * Errors: ERR_CMM_INTERNAL_ERROR for size 0 (and the end of the process when bbxSetCoredump(true) is set); ERR_CMM_OUT_OF_MEMORY;
 * ERR_CMM_ALLOC_MEMORY where a test injected the failure; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codSysAlloc(CodUint64 size, void **out);

/* The same with the given alignment, a power of two of at least 8. Another alignment fails with ERR_CMM_OUT_OF_MEMORY too. */
COD_NODISCARD COD_API CodResult codSysAllocAligned(CodUint64 size, void **out, CodUint32 alignedSize);

/* Grows a block of codSysAlloc to newSize bytes. A size that the block holds already changes nothing; otherwise *ptr is a new block
 * (8-byte aligned), which starts with the first oldSize bytes when keepOldData is set. A null *ptr is a block of no bytes.
 * On failure the old block stands. Errors: as codSysAlloc, without the one for size 0. */
COD_NODISCARD COD_API CodResult codSysExtend(void **ptr, CodUint64 oldSize, CodUint64 newSize, CodBool keepOldData);

/* Gives a block back; null is ignored. */
COD_API void codSysFree(void *ptr);

/* codSysAlloc and codSysFree for callback slots; owner is ignored. */
COD_NODISCARD COD_API CodResult codSysAllocCb(void *owner, CodUint32 size, void **out);
COD_API void codSysFreeCb(void *owner, void *ptr);

/* size bytes aligned to alignSize, a power of two of at least 8; bufName names them in messages. Free with freeAlign.
 * Errors: as codSysAllocAligned, with bufName in the message. */
COD_NODISCARD COD_API CodResult mallocAlign(void **buffer, CodUint64 size, CodUint32 alignSize, const char *bufName);
COD_API void freeAlign(void *buffer);

/* Memory on 2 MiB boundaries that the system is asked to back with huge pages; ordinary pages where it has none.
 * Errors: as codSysAlloc, with "large page" in the message. */
COD_NODISCARD COD_API CodResult allocLargePageMem(void **buffer, CodUint32 size);
COD_API void freeLargePageMem(void *buffer);

/* For tests of failure: the n-th system allocation or extension of this thread from now on (0: the next) fails once with
 * ERR_CMM_ALLOC_MEMORY "... for injected failure"; negative: none. */
COD_API void codFailAllocAfter(CodInt32 n);

/* ---- Allocator records ---- */

typedef struct CodMemAlloc CodMemAlloc;
/* owner is the record itself, so that a larger record can begin with this one. */
struct CodMemAlloc {
    CodResult (*alloc)(CodMemAlloc *owner, CodUint32 size, void **out);
    /* May be null: codMemExtend then allocates, copies and frees. */
    CodResult (*extend)(CodMemAlloc *owner, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData);
    /* May be null: memory is released as a whole elsewhere. */
    void (*free)(CodMemAlloc *owner, void *ptr);
};

/* The process-wide record over the system allocator, made of the three functions below. */
COD_API CodMemAlloc *codMemGetSystemAlloc(void);
COD_NODISCARD COD_API CodResult systemMemAlloc(CodMemAlloc *owner, CodUint32 size, void **out);
COD_NODISCARD COD_API CodResult systemMemExtend(CodMemAlloc *owner, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData);
COD_API void systemMemFree(CodMemAlloc *owner, void *ptr);

/* Grows *ptr through the record: with its extend, else by a new block, a copy of oldSize bytes when keepOldData is set, and free of
 * the old one. On failure *ptr stands. Errors: the record's; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codMemExtend(CodMemAlloc *allocator, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData);

/* An allocator with a context of its own. */
typedef struct CodMemAllocator {
    void *ctx;
    CodResult (*pfnAlloc)(void *ctx, CodUint32 allocSize, void **buf);
    void (*pfnFree)(void *ctx, void *ptr);
} CodMemAllocator;

/* pfnAlloc(ctx, allocSize, buf). Errors: the callback's; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codAllocFromMem(const CodMemAllocator *allocator, CodUint32 allocSize, void **buf);
/* pfnFree(ctx, ptr); nothing when the record has no pfnFree. */
COD_API void codFreeToMem(const CodMemAllocator *allocator, void *ptr);

COD_END_DECLS

#endif
