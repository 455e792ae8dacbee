#include "integer_profile.h"

#include <algorithm>
#include <bit>

#include <vel_infra/error/ani_error_base.h>

namespace vel {

namespace {

CodInt32 bitsOf(CodUint64 value) {
    return static_cast<CodInt32>(std::bit_width(value));
}

// Also where the difference is more than a signed integer holds.
CodUint64 distance(CodInt64 from, CodInt64 to) {
    return static_cast<CodUint64>(to) - static_cast<CodUint64>(from);
}

bool toInteger(const CodNumber &number, CodInt64 *value) {
    if (!codNumberIsInteger(&number)) {
        return false;
    }
    if (codNumberToInt64(&number, value) != COD_SUCCESS) {
        codCleanCurError();
        return false;
    }
    return true;
}

}  // namespace

void IntegerProfile::addNumber(const CodNumber &number, CodUint32 textBytes) {
    CodInt64 value = 0;
    isOther_ = !toInteger(number, &value);
    if (isOther_) {
        return;
    }
    if (count_ > 0) {
        isFalling_ |= value < latest_;
        largestStep_ = std::max(largestStep_, distance(latest_, value));
    }
    latest_ = value;
    minimum_ = std::min(minimum_, value);
    maximum_ = std::max(maximum_, value);
    textBytes_ += textBytes + CodUint64{1};
    count_++;
}

CodInt32 IntegerProfile::bits() const {
    return minimum_ < 0 ? kNotPackable : bitsOf(static_cast<CodUint64>(maximum_));
}

CodInt32 IntegerProfile::bitsFromMinimum() const {
    return bitsOf(distance(minimum_, maximum_));
}

CodInt32 IntegerProfile::bitsOfSteps() const {
    return isFalling_ ? kNotPackable : bitsOf(largestStep_);
}

double IntegerProfile::ratioOfText(CodInt32 bits) const {
    return 8 * static_cast<double>(textBytes_) / (static_cast<double>(count_) * bits);
}

}  // namespace vel
