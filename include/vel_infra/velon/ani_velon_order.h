#ifndef VEL_INFRA_VELON_ANI_VELON_ORDER_H
#define VEL_INFRA_VELON_ANI_VELON_ORDER_H

/* The members of an object in the order in which they were written, which the key table does not tell: it is the order of their records
 * in the object's bytes. */

#include <vel_infra/velon/ani_velon_base.h>

COD_BEGIN_DECLS

typedef struct VelonOrderedIter {
    const VelonObject *object; /* must outlive the iterator */
    const CodUint16 *order;    /* places in key order, in the order of writing */
    CodUint16 index;           /* the next member's */
} VelonOrderedIter;

/* Sorts the places of all members into `order`, room for `capacity` of them, which must outlive the iterator.
 * Errors: ERR_CMM_BUFFER_SIZE_TOO_SMALL when the object has more members. */
COD_NODISCARD COD_API CodResult velonOrderedIterNew(const VelonObject *object, CodUint16 *order, CodUint32 capacity,
                                                    VelonOrderedIter *iter);
COD_API CodBool velonOrderedIterHasNext(const VelonOrderedIter *iter);
/* The next member; steps on. At the end the flag is false and the rest as it was. A failure does not step on. */
COD_NODISCARD COD_API CodResult velonOrderedIterNext(VelonOrderedIter *iter, CodBool *hasEntry, CodText *key, VelonLazyValue *value);

COD_END_DECLS

#endif
