#ifndef VEL_COLUMN_PROFILE_H
#define VEL_COLUMN_PROFILE_H

#include "date_profile.h"
#include "extreme_value.h"
#include "integer_profile.h"
#include "numeric_profile.h"
#include "text_profile.h"
#include "value_store.h"

namespace vel {

// The statistics of one column, fed with its fields one by one. An empty field is counted as such and is no value.
class ColumnProfile {
public:
    // Pool and context must outlive the profile. Memory is taken at the first value. collation: as of TextProfile. firstRow: of the
    // first field.
    void init(MemoryPool *pool, MemoryContext *shared, const CodCollation *collation = nullptr, CodUint64 firstRow = 1);
    void setLimits(const ValueStore::Limits &limits) {
        values_.setLimits(limits);
    }

    // Errors: those of ValueStore::add.
    CodResult add(const CodText &field);

    CodUint64 rows() const {
        return rows_;
    }
    CodUint64 empties() const {
        return empties_;
    }
    bool hasValues() const {
        return rows_ != empties_;
    }
    // In bytes; of several the first one met.
    const ExtremeValue &shortest() const {
        return shortest_;
    }
    const ExtremeValue &longest() const {
        return longest_;
    }
    const ValueStore &values() const {
        return values_;
    }
    const NumericProfile &numbers() const {
        return numbers_;
    }
    // While numbers() are numeric.
    const IntegerProfile &integers() const {
        return integers_;
    }
    const DateProfile &dates() const {
        return dates_;
    }
    // While hasValues().
    const TextProfile &texts() const {
        return texts_;
    }
    // Exact while the store is; then an estimate within about one percent.
    CodUint64 distinct() const;

private:
    // Relative error 0.8 %.
    static constexpr CodUint32 kRegisters = 16384;

    CodResult addToEstimate(const CodText &value);

    MemoryContext *shared_ = nullptr;
    CodUint64 firstRow_ = 1;
    CodUint64 rows_ = 0;
    CodUint64 empties_ = 0;
    ExtremeValue shortest_;
    ExtremeValue longest_;
    ValueStore values_;
    NumericProfile numbers_;
    IntegerProfile integers_;
    DateProfile dates_;
    TextProfile texts_;
    CodUint8 *registers_ = nullptr;
};

}  // namespace vel

#endif
