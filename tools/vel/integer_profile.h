#ifndef VEL_INTEGER_PROFILE_H
#define VEL_INTEGER_PROFILE_H

#include <vel_infra/number/ani_number.h>

namespace vel {

// How many bits each value of a column of integers takes when it is packed, fed with its values one by one, in order. The first value
// that is no whole number, or does not fit 64 bits with a sign, ends that for good; it costs nothing from then on.
class IntegerProfile {
public:
    static constexpr CodInt32 kNotPackable = -1;

    // textBytes: what the value takes as text, without a delimiter.
    void add(const CodNumber &number, CodUint32 textBytes) {
        if (!isOther_) {
            addNumber(number, textBytes);
        }
    }

    // There are values, and all are integers. The figures below mean nothing otherwise.
    bool isIntegers() const {
        return !isOther_ && count_ > 0;
    }
    // Of the largest value; kNotPackable when one is negative.
    CodInt32 bits() const;
    // Of the largest value less the smallest one.
    CodInt32 bitsFromMinimum() const;
    // Of the largest step from a value to the next one; kNotPackable when one falls.
    CodInt32 bitsOfSteps() const;
    // How many times as many bytes the values take as text, a delimiter behind each, as they do with that many bits, more than none.
    double ratioOfText(CodInt32 bits) const;

private:
    void addNumber(const CodNumber &number, CodUint32 textBytes);

    bool isOther_ = false;
    bool isFalling_ = false;
    CodUint64 count_ = 0;
    CodUint64 textBytes_ = 0;
    CodInt64 minimum_ = INT64_MAX;
    CodInt64 maximum_ = INT64_MIN;
    CodInt64 latest_ = 0;
    CodUint64 largestStep_ = 0;
};

}  // namespace vel

#endif
