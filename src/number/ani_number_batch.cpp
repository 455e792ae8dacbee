#include <vel_infra/number/ani_number_batch.h>

#include "number/ani_number_internal.h"

namespace cod {
namespace {

// operation(n1, n2, result) for each, until one fails.
template <class Operation>
inline CodResult forEach(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done,
                         Operation operation) {
    if (done != nullptr) {
        *done = 0;
    }
    if ((n1 == nullptr || n2 == nullptr || result == nullptr) && count > 0) {
        return raiseNull();
    }
    CodResult status = COD_SUCCESS;
    CodUint32 i = 0;
    for (; i < count; i++) {
        status = operation(n1 + i, n2 + i, result + i);
        if (COD_UNLIKELY(status != COD_SUCCESS)) {
            break;
        }
    }
    if (done != nullptr) {
        *done = i;
    }
    return status;
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codNumberAddBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done) {
    return forEach(n1, n2, count, result, done,
                   [](const CodNumber *a, const CodNumber *b, CodNumber *sum) { return addNumbers(a, b, 0, sum); });
}

CodResult codNumberSubBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done) {
    return forEach(n1, n2, count, result, done,
                   [](const CodNumber *a, const CodNumber *b, CodNumber *difference) { return addNumbers(a, b, 1, difference); });
}

CodResult codNumberMulBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done) {
    return forEach(n1, n2, count, result, done,
                   [](const CodNumber *a, const CodNumber *b, CodNumber *product) { return mulNumbers(a, b, product); });
}

CodResult codNumberDivBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodNumber *result, CodUint32 *done) {
    return forEach(n1, n2, count, result, done, divNumbers);
}

CodResult codNumberCompareBatch(const CodNumber *n1, const CodNumber *n2, CodUint32 count, CodInt8 *result) {
    if ((n1 == nullptr || n2 == nullptr || result == nullptr) && count > 0) {
        return raiseNull();
    }
    for (CodUint32 i = 0; i < count; i++) {
        result[i] = static_cast<CodInt8>(codNumberCompare(n1 + i, n2 + i));
    }
    return COD_SUCCESS;
}
