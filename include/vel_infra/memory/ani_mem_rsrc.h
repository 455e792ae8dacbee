#ifndef VEL_INFRA_MEMORY_ANI_MEM_RSRC_H
#define VEL_INFRA_MEMORY_ANI_MEM_RSRC_H

/* Resource accounts: how many bytes of memory of each type may be out at one time. Pools charge the blocks of contexts to them. */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

typedef enum MemRsrcType COD_ENUM_BASE {
    MEM_RSRC_OTHERS = 0,
    MEM_RSRC_VM_BUFFER = 1,
    MEM_RSRC_LARGER_POOL = 2,
    MEM_RSRC_APP_POOL = 3,
    MEM_RSRC_JOB_POOL = 4,
    MEM_RSRC_DC_POOL = 5,
    MEM_RSRC_SHARE_POOL = 6,
    MEM_RSRC_WORKER_AREA = 7,
    MEM_RSRC_PQ_POOL = 8,
    MEM_RSRC_COLUMNAR_VM_BUFFER = 9,
    _MEM_RSRC_TYPE_COUNT_ = 10
} MemRsrcType;

/* Bytes per type. Shared between threads: used is changed atomically and never exceeds limit through a reservation. */
typedef struct MemRsrc {
    CodUint64 limit[_MEM_RSRC_TYPE_COUNT_];
    CodUint64 used[_MEM_RSRC_TYPE_COUNT_];
} MemRsrc;

/* An account without use and without limits. */
COD_API void aniMemRsrcInit(MemRsrc *rsrc);
/* Limits a type; what is out already stays. An unknown type is ignored. */
COD_API void aniMemRsrcSetLimit(MemRsrc *rsrc, MemRsrcType type, CodUint64 bytes);
/* Bytes of a type that are out; 0 for an unknown type. */
COD_API CodUint64 aniMemRsrcUsed(const MemRsrc *rsrc, MemRsrcType type);

/* Reserves bytes of a type. Errors: ERR_CMM_ALLOC_MEM_QUOTA when the limit would be passed (nothing is reserved),
 * ERR_CMM_INVALID_PARAMETER for an unknown type, ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult aniMemRsrcAllocSpaQuota(MemRsrc *rsrc, MemRsrcType type, CodUint64 bytes);
/* Gives reserved bytes back. */
COD_API void aniMemRsrcFreeSpaQuota(MemRsrc *rsrc, MemRsrcType type, CodUint64 bytes);

/* A type's name for messages, such as "VM BUFFER"; "UNKNOWN" for any other value. */
COD_API const char *aniMemRsrcTypeName(MemRsrcType type);

COD_END_DECLS

#endif
