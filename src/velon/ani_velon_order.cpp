#include <vel_infra/velon/ani_velon_order.h>

#include <algorithm>

#include "velon/ani_velon_base_internal.h"

namespace cod::velon {
namespace {

// Up to here each offset's rank is counted, without a branch; beyond, places are sorted.
constexpr CodUint32 kMostRanked = 32;

void rankOffsets(const VelonObject &object, CodUint32 count, CodUint16 *order) {
    CodUint32 offsets[kMostRanked];
    memcpy(offsets, object.keyOffsets, sizeof(CodUint32) * count);
    for (CodUint32 i = 0; i < count; i++) {
        CodUint32 rank = 0;
        for (CodUint32 j = 0; j < count; j++) {
            rank += offsets[j] < offsets[i];
        }
        for (CodUint32 j = 0; j < i; j++) {
            rank += offsets[j] == offsets[i];
        }
        order[rank] = static_cast<CodUint16>(i);
    }
}

}  // namespace

void orderByRecord(const VelonObject &object, CodUint16 *order) {
    const CodUint32 count = object.data.aux;
    if (count <= kMostRanked) {
        rankOffsets(object, count, order);
        return;
    }
    for (CodUint32 i = 0; i < count; i++) {
        order[i] = static_cast<CodUint16>(i);
    }
    std::sort(order, order + count, [&object](CodUint16 left, CodUint16 right) {
        const CodUint32 leftOffset = keyOffsetAt(object, left);
        const CodUint32 rightOffset = keyOffsetAt(object, right);
        return leftOffset != rightOffset ? leftOffset < rightOffset : left < right;
    });
}

}  // namespace cod::velon

using namespace cod::velon;

CodResult velonOrderedIterNew(const VelonObject *object, CodUint16 *order, CodUint32 capacity, VelonOrderedIter *iter) {
    if (anyNull(object, iter) || (order == nullptr && object->data.aux != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (capacity < object->data.aux) {
        return codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "order");
    }
    orderByRecord(*object, order);
    *iter = {object, order, 0};
    return COD_SUCCESS;
}

CodBool velonOrderedIterHasNext(const VelonOrderedIter *iter) {
    return iter != nullptr && iter->object != nullptr && iter->index < iter->object->data.aux;
}

CodResult velonOrderedIterNext(VelonOrderedIter *iter, CodBool *hasEntry, CodText *key, VelonLazyValue *value) {
    if (anyNull(iter, hasEntry, key, value)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    const bool isThere = velonOrderedIterHasNext(iter);
    if (isThere) {
        CodText keyRead = {};
        CodUint32 at = 0;
        COD_TRY(readRecord(*iter->object, keyOffsetAt(*iter->object, iter->order[iter->index]), &keyRead, &at));
        COD_TRY(readLazy(iter->object->data, at, value));
        *key = keyRead;
        iter->index++;
    }
    *hasEntry = isThere;
    return COD_SUCCESS;
}
