#include <vel_infra/memory/ani_mem_rsrc.h>

#include <vel_infra/error/ani_error_base.h>

namespace {

constexpr const char *kTypeNames[_MEM_RSRC_TYPE_COUNT_] = {
    "OTHERS", "VM BUFFER", "LARGER POOL", "APP POOL", "JOB POOL", "DC POOL", "SHARE POOL", "WORKER AREA", "PQ POOL", "COLUMNAR VM BUFFER",
};

bool isKnown(MemRsrcType type) {
    return static_cast<unsigned>(type) < _MEM_RSRC_TYPE_COUNT_;
}

}  // namespace

void aniMemRsrcInit(MemRsrc *rsrc) {
    if (rsrc == nullptr) {
        return;
    }
    for (int type = 0; type < _MEM_RSRC_TYPE_COUNT_; type++) {
        rsrc->limit[type] = UINT64_MAX;
        rsrc->used[type] = 0;
    }
}

void aniMemRsrcSetLimit(MemRsrc *rsrc, MemRsrcType type, CodUint64 bytes) {
    if (rsrc != nullptr && isKnown(type)) {
        __atomic_store_n(&rsrc->limit[type], bytes, __ATOMIC_RELAXED);
    }
}

CodUint64 aniMemRsrcUsed(const MemRsrc *rsrc, MemRsrcType type) {
    return rsrc != nullptr && isKnown(type) ? __atomic_load_n(&rsrc->used[type], __ATOMIC_RELAXED) : 0;
}

CodResult aniMemRsrcAllocSpaQuota(MemRsrc *rsrc, MemRsrcType type, CodUint64 bytes) {
    if (rsrc == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (!isKnown(type)) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "unknown memory resource type");
    }
    CodUint64 used = __atomic_load_n(&rsrc->used[type], __ATOMIC_RELAXED);
    do {
        const CodUint64 limit = __atomic_load_n(&rsrc->limit[type], __ATOMIC_RELAXED);
        if (used > limit || bytes > limit - used) {
            return codRaise(ERR_CMM_ALLOC_MEM_QUOTA, static_cast<long>(bytes), kTypeNames[type]);
        }
    } while (!__atomic_compare_exchange_n(&rsrc->used[type], &used, used + bytes, true, __ATOMIC_RELAXED, __ATOMIC_RELAXED));
    return COD_SUCCESS;
}

void aniMemRsrcFreeSpaQuota(MemRsrc *rsrc, MemRsrcType type, CodUint64 bytes) {
    if (rsrc != nullptr && isKnown(type)) {
        __atomic_fetch_sub(&rsrc->used[type], bytes, __ATOMIC_RELAXED);
    }
}

const char *aniMemRsrcTypeName(MemRsrcType type) {
    return isKnown(type) ? kTypeNames[type] : "UNKNOWN";
}
