#ifndef VEL_INFRA_ERROR_ANI_ERROR_DEF_H
#define VEL_INFRA_ERROR_ANI_ERROR_DEF_H

/* The registry of error definitions: names and templates by code, for clients and tools. Raisers pass their template themselves.
 *
 * Threads: the registry is filled at start-up, before other threads read it, and has no lock. */

#include <vel_infra/base/cod_types.h>
#include <vel_infra/error/ani_error_code.h>

COD_BEGIN_DECLS

typedef struct CodErrDef {
    CodUint32 code;
    const char *name; /* "ERR_CMM_NO_DATA_FOUND" */
    const char *fmt;  /* the printf-style template */
} CodErrDef;
COD_STATIC_ASSERT(sizeof(CodErrDef) == 24, "layout is fixed");

/* Adds copies of count definitions and sorts the registry by code. The texts are shared with defs and must outlive the registry.
 * Equal codes all stay. A failure may leave a part of them added.
 * Errors: ERR_CMM_OUT_OF_MEMORY; ERR_CMM_POINTER_NULL for null defs with a count. */
COD_NODISCARD COD_API CodResult codRegErrorDef(const CodErrDef *defs, CodUint32 count);
/* Empties the registry and frees its memory. */
COD_API void codUnRegErrorDef(void);
/* All registered definitions in code order, valid until the registry changes. Errors: ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codGetErrorDefList(const CodErrDef **defs, CodUint32 *count);
/* The definition of a code by binary search, or null when none is registered. Any of several equal ones. */
COD_API const CodErrDef *codFindErrorDef(CodError code);
/* Compares two CodErrDef by code: the difference in 32 bits, read as signed. */
COD_API CodInt32 codErrDefCmp(const void *left, const void *right);

/* This library's own table: 239 definitions, codes 0 to 724. */
COD_NODISCARD COD_API CodResult codRegErrModCMM(void);
COD_API CodUint32 codGetErrCount(void);
/* The definition at a position of the table; null behind its end. */
COD_API const CodErrDef *codGetErrDef(CodUint32 pos);

COD_END_DECLS

#endif
