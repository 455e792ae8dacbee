#ifndef VEL_INFRA_MEMORY_ANI_STACK_H
#define VEL_INFRA_MEMORY_ANI_STACK_H

/* The session stack: short-lived result bytes, taken on top and released by going back to a mark. One thread at a time.
 *
 *   CodUint32 mark = codStackMark(&stack);
 *   ... codStackPush(&stack, size, &buffer) ...
 *   codStackPop(&stack, mark);                                                                                             */

#include <vel_infra/base/cod_types.h>

COD_BEGIN_DECLS

typedef struct CodStack {
    CodUint8 *buffer;   /* the caller's memory */
    CodUint32 capacity; /* bytes */
    CodUint32 top;      /* bytes in use, a multiple of 8 */
    CodUint32 peak;     /* the largest top so far */
    CodUint32 reserved;
} CodStack;

/* An empty stack over the caller's buffer, which must outlive it and be 8-byte aligned.
 * Errors: ERR_CMM_POINTER_NULL; ERR_CMM_INVALID_PARAMETER for an unaligned buffer. */
COD_NODISCARD COD_API CodResult codStackInit(CodStack *stack, void *buffer, CodUint32 capacity);

/* size bytes on top, 8-byte aligned; the size is rounded up to a multiple of 8.
 * Errors: ERR_CMM_WORKSTACK_OVERFLOW with the size when they do not fit (*out is null and nothing changes), ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codStackPush(CodStack *stack, CodUint32 size, void **out);

/* The present top, to go back to. */
COD_API CodUint32 codStackMark(const CodStack *stack);
/* Releases everything pushed since mark; a mark above the top, which no codStackMark gave, is ignored. */
COD_API void codStackPop(CodStack *stack, CodUint32 mark);

COD_END_DECLS

#endif
