#define COD_NO_INLINE
#include <vel_infra/collection/ani_darray.h>

#include <stdlib.h>
#include <string.h>

#include <vel_infra/adr/ani_blackbox.h>
#include <vel_infra/error/ani_error_base.h>

namespace {

CodUint8 *itemAt(const CodDArray *array, CodUint32 index) {
    return static_cast<CodUint8 *>(array->ptr) + size_t{index} * array->elementSize;
}

// Takes the first items, or doubles them. The array is as before on failure.
COD_COLD CodResult grow(CodDArray *array) {
    if (array->elementSize == 0 || array->owner == nullptr || array->initCapacity == 0) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "the array is not initialised");
    }
    const CodUint64 capacity = array->capacity == 0 ? array->initCapacity : CodUint64{array->capacity} * 2;
    // Neither factor passes 2^33, so that the product cannot wrap.
    const CodUint64 size = capacity * array->elementSize;
    if (size > UINT32_MAX) {
        return codRaise(ERR_CMM_OUT_OF_MEMORY, "array", static_cast<long>(size));
    }
    void *items = array->ptr;
    const CodResult result =
        array->capacity == 0 ? array->owner->alloc(array->owner, static_cast<CodUint32>(size), &items)
                             : codMemExtend(array->owner, &items, array->capacity * array->elementSize, static_cast<CodUint32>(size), true);
    if (result != COD_SUCCESS) {
        guardErrorCode();
        return COD_ERROR;
    }
    array->ptr = items;
    array->capacity = static_cast<CodUint32>(capacity);
    return COD_SUCCESS;
}

COD_COLD CodResult raiseIndex(CodUint32 index, CodUint32 last) {
    return codRaise(ERR_CMM_OUT_OF_INDEX, index, 0u, last);
}

// An item of the array itself, by the offset that survives a growth; otherwise the address alone.
class ItemSource {
public:
    ItemSource(const CodDArray *array, const void *item) : item_(static_cast<const CodUint8 *>(item)) {
        const auto start = reinterpret_cast<CodUint64>(array->ptr);
        const auto address = reinterpret_cast<CodUint64>(item);
        isInside_ = array->ptr != nullptr && address >= start && address < start + CodUint64{array->count} * array->elementSize;
        offset_ = isInside_ ? address - start : 0;
    }

    const CodUint8 *in(const CodDArray *array) const {
        return isInside_ ? static_cast<const CodUint8 *>(array->ptr) + offset_ : item_;
    }
    bool isInside() const {
        return isInside_;
    }
    CodUint64 offset() const {
        return offset_;
    }

private:
    const CodUint8 *item_;
    CodUint64 offset_;
    bool isInside_;
};

}  // namespace

void codDArrayInit(CodDArray *array, CodUint32 elementSize, CodMemAlloc *owner, CodUint32 initCapacity) {
    if (array != nullptr) {
        *array = {.owner = owner, .ptr = nullptr, .elementSize = elementSize, .initCapacity = 0, .capacity = 0, .count = 0};
        codDArraySetInitCapacity(array, initCapacity);
    }
}

void codDArraySetInitCapacity(CodDArray *array, CodUint32 initCapacity) {
    if (array != nullptr) {
        array->initCapacity = initCapacity != 0 ? initCapacity : CodUint32{DARRAY_DEFAULT_CAPACITY};
    }
}

// ---- Appending, inserting, removing ----

CodResult codDArrayNewItem(CodDArray *array, void **item) {
    if (array == nullptr || item == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (COD_UNLIKELY(array->count >= array->capacity) && grow(array) != COD_SUCCESS) {
        *item = nullptr;
        return COD_ERROR;
    }
    *item = itemAt(array, array->count);
    array->count++;
    return COD_SUCCESS;
}
CodResult codDArrayNewItemExported(CodDArray *array, void **item) COD_SECOND_NAME(codDArrayNewItem);

CodResult codDArrayPushBackItem(CodDArray *array, const void *item) {
    if (array == nullptr || item == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const ItemSource source(array, item);
    void *place = nullptr;
    if (codDArrayNewItem(array, &place) != COD_SUCCESS) {
        return COD_ERROR;
    }
    memcpy(place, source.in(array), array->elementSize);
    return COD_SUCCESS;
}
CodResult codDArrayPushBackItemExported(CodDArray *array, const void *item) COD_SECOND_NAME(codDArrayPushBackItem);

CodResult codDArrayPutItem(CodDArray *array, const void *item, CodUint32 index) {
    if (array == nullptr || item == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (index > array->count) {
        return raiseIndex(index, array->count);
    }
    if (index == array->count) {
        return codDArrayPushBackItem(array, item);
    }
    const ItemSource source(array, item);
    void *last = nullptr;
    if (codDArrayNewItem(array, &last) != COD_SUCCESS) {
        return COD_ERROR;
    }
    const CodUint32 elementSize = array->elementSize;
    CodUint8 *place = itemAt(array, index);
    memmove(place + elementSize, place, size_t{array->count - 1 - index} * elementSize);
    // An item of the array at or behind the place has just moved up with the others.
    const bool hasMoved = source.isInside() && source.offset() >= CodUint64{index} * elementSize;
    memmove(place, source.in(array) + (hasMoved ? elementSize : 0), elementSize);
    return COD_SUCCESS;
}

CodResult codDArrayRemove(CodDArray *array, CodUint32 index) {
    if (array == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (index >= array->count) {
        return raiseIndex(index, array->count);
    }
    array->count--;
    if (index < array->count) {
        memmove(itemAt(array, index), itemAt(array, index + 1), size_t{array->count - index} * array->elementSize);
    }
    return COD_SUCCESS;
}

// ---- Reading ----

void *codDArrayAt(const CodDArray *array, CodUint32 index) {
    return array != nullptr && index < array->count ? itemAt(array, index) : nullptr;
}

CodUint32 codDArrayCount(const CodDArray *array) {
    return array != nullptr ? array->count : 0;
}

CodUint32 codDArrayLastItemId(const CodDArray *array) {
    return codDArrayCount(array) - 1;
}

CodResult codDArrayItemIndex(const CodDArray *array, const void *item, CodUint32 *index) {
    if (array == nullptr || item == nullptr || index == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const CodUint64 distance = reinterpret_cast<CodUint64>(item) - reinterpret_cast<CodUint64>(array->ptr);
    const CodUint64 lastOffset = (CodUint64{array->count} - 1) * array->elementSize;
    if (array->count == 0 || distance > lastOffset) {
        return raiseIndex(static_cast<CodUint32>(distance), static_cast<CodUint32>(lastOffset));
    }
    *index = static_cast<CodUint32>(distance / array->elementSize);
    return COD_SUCCESS;
}

void codDArrayQuickSort(CodDArray *array, CodCompare compare) {
    if (array != nullptr && compare != nullptr && array->count > 1) {
        qsort(array->ptr, array->count, array->elementSize, compare);
    }
}

void *codDArraySearchItem(const CodDArray *array, const void *key, CodCompare compare) {
    if (array == nullptr || compare == nullptr || array->count == 0) {
        return nullptr;
    }
    return bsearch(key, array->ptr, array->count, array->elementSize, compare);
}

CodMemAlloc *codDArrayGetOwner(const CodDArray *array) {
    return array != nullptr ? array->owner : nullptr;
}

// ---- Emptying and ending ----

void codDArrayTruncate(CodDArray *array) {
    if (array != nullptr) {
        array->count = 0;
    }
}

void codDArrayMove(CodDArray *dst, CodDArray *src) {
    if (dst != nullptr && src != nullptr && dst != src) {
        *dst = *src;
        *src = {};
    }
}

void codDArrayRelease(CodDArray *array) {
    if (array == nullptr) {
        return;
    }
    if (array->ptr != nullptr && array->owner != nullptr && array->owner->free != nullptr) {
        array->owner->free(array->owner, array->ptr);
    }
    array->ptr = nullptr;
    array->capacity = 0;
    array->count = 0;
    array->elementSize = 0;
}

void codDArrayReleaseWithAllItems(CodDArray *array, void (*release)(void *item)) {
    for (CodUint32 i = 0; release != nullptr && i < codDArrayCount(array); i++) {
        release(itemAt(array, i));
    }
    codDArrayRelease(array);
}

void codDArrayReleaseWithAllItemsAndCtx(CodDArray *array, void (*release)(void *item, void *ctx), void *ctx) {
    for (CodUint32 i = 0; release != nullptr && i < codDArrayCount(array); i++) {
        release(itemAt(array, i), ctx);
    }
    codDArrayRelease(array);
}
