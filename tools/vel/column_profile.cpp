#include "column_profile.h"

#include <algorithm>

#include <vel_infra/algorithm/ani_hyperloglog.h>
#include <vel_infra/error/ani_error_base.h>

namespace vel {

void ColumnProfile::init(MemoryPool *pool, MemoryContext *shared, const CodCollation *collation, CodUint64 firstRow) {
    shared_ = shared;
    firstRow_ = firstRow;
    values_.init(pool);
    texts_.init(shared, collation);
}

CodResult ColumnProfile::add(const CodText &field) {
    rows_++;
    if (field.len == 0) {
        empties_++;
        return COD_SUCCESS;
    }
    if (field.len < shortest_.length || shortest_.length == 0) {
        shortest_.set(field);
    }
    if (field.len > longest_.length) {
        longest_.set(field);
    }
    bool isNew = false;
    COD_TRY(values_.add(field, &isNew));
    numbers_.add(field, isNew);
    if (numbers_.isNumeric()) {
        integers_.add(numbers_.latest(), field.len);
    }
    dates_.add(field, isNew);
    if (!isNew) {
        return COD_SUCCESS;
    }
    COD_TRY(texts_.add(field, firstRow_ + rows_ - 1, numbers_.isNumeric() || dates_.isDates()));
    return addToEstimate(field);
}

CodResult ColumnProfile::addToEstimate(const CodText &value) {
    if (registers_ == nullptr) {
        void *place = nullptr;
        COD_TRY(mctxAlloc(shared_, kRegisters, &place));
        registers_ = static_cast<CodUint8 *>(place);
        codHllInit(registers_, kRegisters);
    }
    const CodBytes bytes = {reinterpret_cast<CodUint8 *>(value.str), value.len, 0};
    codHllAdd(registers_, kRegisters, &bytes);
    return COD_SUCCESS;
}

CodUint64 ColumnProfile::distinct() const {
    if (values_.isExact()) {
        return values_.size();
    }
    return std::max<CodUint64>(codHllCalculate(registers_, kRegisters), values_.size());
}

}  // namespace vel
