#ifndef VEL_INFRA_COLLECTION_ANI_DARRAY_H
#define VEL_INFRA_COLLECTION_ANI_DARRAY_H

/* A growable array of items of one size, copied by value, back to back in memory from the owner's allocator record.
 *
 * 1. One thread at a time. Item addresses are valid until the array grows, shrinks by removal, or ends.
 * 2. The first append takes initCapacity items, each later growth doubles. A failed growth leaves the array as it was.
 * 3. Errors of every function that can grow: the allocator's own; ERR_CMM_OUT_OF_MEMORY when the items would take 2^32 bytes or more;
 *    ERR_CMM_POINTER_NULL; ERR_CMM_INVALID_PARAMETER for an array without items' size or owner (never initialised, or released). */

#include <string.h>

#include <vel_infra/base/cod_types.h>
#include <vel_infra/memory/ani_allocator.h>

COD_BEGIN_DECLS

enum { DARRAY_DEFAULT_CAPACITY = 8 };

typedef struct CodDArray {
    CodMemAlloc *owner;
    void *ptr;              /* the items; null before the first append */
    CodUint32 elementSize;  /* bytes per item */
    CodUint32 initCapacity; /* items of the first allocation */
    CodUint32 capacity;     /* items allocated */
    CodUint32 count;        /* items in use, at most capacity */
} CodDArray;
COD_STATIC_ASSERT(sizeof(CodDArray) == 32, "layout is fixed");

typedef CodInt32 (*CodCompare)(const void *left, const void *right);

/* An empty array that holds no memory yet. initCapacity 0 means 8. The owner must outlive the array. */
COD_API void codDArrayInit(CodDArray *array, CodUint32 elementSize, CodMemAlloc *owner, CodUint32 initCapacity);
/* Changes the size of the first allocation; 0 means 8. */
COD_API void codDArraySetInitCapacity(CodDArray *array, CodUint32 initCapacity);

/* Appends an item that is not initialised and gives its address; null on failure. */
COD_NODISCARD COD_API CodResult codDArrayNewItem(CodDArray *array, void **item);
/* Appends a copy of elementSize bytes. item may be an item of this array. */
COD_NODISCARD COD_API CodResult codDArrayPushBackItem(CodDArray *array, const void *item);
/* Inserts a copy at index (0 to count), moving later items up. item may be an item of this array.
 * Also: ERR_CMM_OUT_OF_INDEX for an index above count. */
COD_NODISCARD COD_API CodResult codDArrayPutItem(CodDArray *array, const void *item, CodUint32 index);
/* Removes the item at index, moving later items down. Errors: ERR_CMM_OUT_OF_INDEX, ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codDArrayRemove(CodDArray *array, CodUint32 index);

/* The item at index, or null when there is none. */
COD_API void *codDArrayAt(const CodDArray *array, CodUint32 index);
COD_API CodUint32 codDArrayCount(const CodDArray *array);
/* count - 1; 4294967295 for an empty array. */
COD_API CodUint32 codDArrayLastItemId(const CodDArray *array);
/* The index of the item at an address from the first item's to the last one's start; an address inside an item before the last gives
 * that item. Errors: ERR_CMM_OUT_OF_INDEX for any other address, which reports byte offsets, not indexes; ERR_CMM_POINTER_NULL. */
COD_NODISCARD COD_API CodResult codDArrayItemIndex(const CodDArray *array, const void *item, CodUint32 *index);

/* Sorts all items; equal items keep no order. */
COD_API void codDArrayQuickSort(CodDArray *array, CodCompare compare);
/* An item equal to key in an array sorted by compare, or null. compare gets the key first. */
COD_API void *codDArraySearchItem(const CodDArray *array, const void *key, CodCompare compare);

/* No items; the memory is kept. */
COD_API void codDArrayTruncate(CodDArray *array);
/* dst takes over all of src, which is zeroed; what dst held before is not released. Nothing when both are the same. */
COD_API void codDArrayMove(CodDArray *dst, CodDArray *src);

/* Frees the items, through the owner's free where it has one. The array must be initialised again before it is used. */
COD_API void codDArrayRelease(CodDArray *array);
/* Calls release on every item in index order first. */
COD_API void codDArrayReleaseWithAllItems(CodDArray *array, void (*release)(void *item));
COD_API void codDArrayReleaseWithAllItemsAndCtx(CodDArray *array, void (*release)(void *item, void *ctx), void *ctx);

COD_API CodMemAlloc *codDArrayGetOwner(const CodDArray *array);

/* ---- The hot paths, inline ---- */

/* The library's own bodies under their second names. */
COD_NODISCARD COD_API CodResult codDArrayNewItemExported(CodDArray *array, void **item);
COD_NODISCARD COD_API CodResult codDArrayPushBackItemExported(CodDArray *array, const void *item);

#if !defined(COD_NO_INLINE)
COD_API_INLINE CodResult codDArrayNewItem(CodDArray *array, void **item) {
    if (COD_LIKELY(array != NULL && item != NULL && array->count < array->capacity)) {
        *item = (CodUint8 *)array->ptr + (size_t)array->count * array->elementSize;
        array->count++;
        return COD_SUCCESS;
    }
    return codDArrayNewItemExported(array, item);
}

COD_API_INLINE CodResult codDArrayPushBackItem(CodDArray *array, const void *item) {
    if (COD_LIKELY(array != NULL && item != NULL && array->count < array->capacity)) {
        if (array->elementSize == 8) {
            /* Where the compiler sees a smaller item it would warn of this branch, which such an array never takes. */
            const void *source = item;
            __asm__("" : "+r"(source));
            memcpy((CodUint8 *)array->ptr + (size_t)array->count * 8, source, 8);
        } else {
            memcpy((CodUint8 *)array->ptr + (size_t)array->count * array->elementSize, item, array->elementSize);
        }
        array->count++;
        return COD_SUCCESS;
    }
    return codDArrayPushBackItemExported(array, item);
}
#endif

COD_END_DECLS

#endif
