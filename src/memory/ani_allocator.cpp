#include <vel_infra/memory/ani_allocator.h>

#include <malloc.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>

#include <algorithm>

#include <vel_infra/adr/ani_blackbox.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

#include "adr/ani_blackbox_internal.h"
#include "base/cod_bytes.h"
#include "base/cod_thread.h"

namespace {

constexpr CodUint32 kAlignment = 8;
constexpr CodUint32 kLargePage = 2u << 20;

struct FaultState {
    CodInt32 failAfter;  // negative: none
    CodUint64 random;    // 0: not seeded
};
COD_THREAD_LOCAL(FaultState, faultState, {-1, 0});

// xorshift64* (Marsaglia; Vigna), seeded per thread.
CodUint32 nextRandom() {
    FaultState &fault = faultState();
    if (fault.random == 0) {
        fault.random = (reinterpret_cast<CodUint64>(&fault) ^ static_cast<CodUint64>(codInstantNow())) | 1;
    }
    fault.random ^= fault.random >> 12;
    fault.random ^= fault.random << 25;
    fault.random ^= fault.random >> 27;
    return static_cast<CodUint32>(fault.random * 0x2545F4914F6CDD1DULL >> 32);
}

COD_COLD CodResult raiseInjected(CodUint64 size, const char *what) {
    return codRaise(ERR_CMM_ALLOC_MEMORY, static_cast<long>(size), what);
}

COD_COLD CodResult raiseOutOfMemory(CodUint64 size, const char *what) {
    return codRaise(ERR_CMM_OUT_OF_MEMORY, what, static_cast<long>(size));
}

// The failure that codFailAllocAfter ordered, when its turn has come.
bool isFailureDue() {
    FaultState &fault = faultState();
    return fault.failAfter >= 0 && fault.failAfter-- == 0;
}

COD_COLD CodResult failZeroSize() {
    constexpr const char *kReason = "alloc size is zero";
    if (bbxInterErrorNeedCoredump()) {
        cod::dumpLine("dump info: %s\n", kReason);
        bbxPanicLine(__FILE__, __LINE__);
        abort();
    }
    if (bbxInterErrorPrepare() == 0) {
        cod::dumpLine("dump info: %s\n", kReason);
        bbxInterError(__FILE__, __LINE__, kReason);
    }
    return codRaise(ERR_CMM_INTERNAL_ERROR, kReason);
}

// The result of a caller's function, with an error behind it when it failed.
CodResult guarded(CodResult result) {
    if (COD_UNLIKELY(result != COD_SUCCESS)) {
        guardErrorCode();
    }
    return result;
}

// The one place where memory comes from. name stands in messages.
CodResult allocate(CodUint64 size, CodUint32 alignment, const char *name, void **out) {
    if (out == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *out = nullptr;
    if (size == 0) {
        return failZeroSize();
    }
    // What posix_memalign refuses too; asking it would end a program under the address sanitizer.
    if (!cod::isPowerOf2(alignment) || alignment < kAlignment) {
        return raiseOutOfMemory(size, name);
    }
    if (COD_UNLIKELY(codIsFaultPointSet(FAULT_POINT_SYS_ALLOC)) && nextRandom() % 100 == 0) {
        return raiseInjected(size, "mock system memory");
    }
    if (COD_UNLIKELY(isFailureDue())) {
        return raiseInjected(size, "injected failure");
    }
    void *block = nullptr;
    if (posix_memalign(&block, alignment, size) != 0) {
        return raiseOutOfMemory(size, name);
    }
    *out = block;
    return COD_SUCCESS;
}

}  // namespace

// ---- System memory ----

CodResult codSysAlloc(CodUint64 size, void **out) {
    return allocate(size, kAlignment, "system memory", out);
}

CodResult codSysAllocAligned(CodUint64 size, void **out, CodUint32 alignedSize) {
    return allocate(size, alignedSize, "system memory", out);
}

CodResult codSysExtend(void **ptr, CodUint64 oldSize, CodUint64 newSize, CodBool keepOldData) {
    if (ptr == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (newSize <= malloc_usable_size(*ptr)) {
        return COD_SUCCESS;
    }
    if (COD_UNLIKELY(isFailureDue())) {
        return raiseInjected(newSize, "injected failure");
    }
    // realloc keeps at least the old data, and moves large blocks by remapping their pages instead of copying them.
    void *block = keepOldData && oldSize != 0 ? realloc(*ptr, newSize) : malloc(newSize);
    if (block == nullptr) {
        return raiseOutOfMemory(newSize, "system memory");
    }
    if (!keepOldData || oldSize == 0) {
        free(*ptr);
    }
    *ptr = block;
    return COD_SUCCESS;
}

void codSysFree(void *ptr) {
    free(ptr);
}

CodResult codSysAllocCb(void *, CodUint32 size, void **out) {
    return codSysAlloc(size, out);
}

void codSysFreeCb(void *, void *ptr) {
    codSysFree(ptr);
}

CodResult mallocAlign(void **buffer, CodUint64 size, CodUint32 alignSize, const char *bufName) {
    return allocate(size, alignSize, bufName != nullptr ? bufName : "aligned memory", buffer);
}

void freeAlign(void *buffer) {
    codSysFree(buffer);
}

CodResult allocLargePageMem(void **buffer, CodUint32 size) {
    // Whole pages, so that the advice below touches nobody else's memory.
    const CodUint64 rounded = (CodUint64{size} + kLargePage - 1) / kLargePage * kLargePage;
    if (allocate(rounded, kLargePage, "large page", buffer) != COD_SUCCESS) {
        return COD_ERROR;
    }
    // Advice: where the system has no huge pages the memory serves as it is.
    (void)madvise(*buffer, rounded, MADV_HUGEPAGE);
    return COD_SUCCESS;
}

void freeLargePageMem(void *buffer) {
    codSysFree(buffer);
}

void codFailAllocAfter(CodInt32 n) {
    faultState().failAfter = std::max(n, -1);
}

// ---- Allocator records ----

CodResult systemMemAlloc(CodMemAlloc *, CodUint32 size, void **out) {
    return codSysAlloc(size, out);
}

CodResult systemMemExtend(CodMemAlloc *, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData) {
    return codSysExtend(ptr, oldSize, newSize, keepOldData);
}

void systemMemFree(CodMemAlloc *, void *ptr) {
    codSysFree(ptr);
}

CodMemAlloc *codMemGetSystemAlloc(void) {
    static constinit CodMemAlloc gSystemAlloc = {systemMemAlloc, systemMemExtend, systemMemFree};
    return &gSystemAlloc;
}

CodResult codMemExtend(CodMemAlloc *allocator, void **ptr, CodUint32 oldSize, CodUint32 newSize, CodBool keepOldData) {
    if (allocator == nullptr || ptr == nullptr || (allocator->extend == nullptr && allocator->alloc == nullptr)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (allocator->extend != nullptr) {
        return guarded(allocator->extend(allocator, ptr, oldSize, newSize, keepOldData));
    }
    void *block = nullptr;
    if (guarded(allocator->alloc(allocator, newSize, &block)) != COD_SUCCESS) {
        return COD_ERROR;
    }
    if (*ptr != nullptr) {
        if (keepOldData) {
            memcpy(block, *ptr, std::min(oldSize, newSize));
        }
        if (allocator->free != nullptr) {
            allocator->free(allocator, *ptr);
        }
    }
    *ptr = block;
    return COD_SUCCESS;
}

CodResult codAllocFromMem(const CodMemAllocator *allocator, CodUint32 allocSize, void **buf) {
    if (allocator == nullptr || allocator->pfnAlloc == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return guarded(allocator->pfnAlloc(allocator->ctx, allocSize, buf));
}

void codFreeToMem(const CodMemAllocator *allocator, void *ptr) {
    if (allocator != nullptr && allocator->pfnFree != nullptr) {
        allocator->pfnFree(allocator->ctx, ptr);
    }
}
