#ifndef VEL_NUMERIC_PROFILE_H
#define VEL_NUMERIC_PROFILE_H

#include <vel_infra/number/ani_number_sum.h>

namespace vel {

// The figures of a column of numbers, fed with its values one by one. The first text that is no number, or one that NUMBER does not hold
// to the last digit, makes the column one of texts for good; it costs nothing from then on.
class NumericProfile {
public:
    // isNew: false when an equal text was added before.
    void add(const CodText &text, bool isNew) {
        if (!isText_) {
            addNumber(text, isNew);
        }
    }

    // There are values, and all are numbers. The figures below mean nothing otherwise.
    bool isNumeric() const {
        return !isText_ && hasNumbers_;
    }
    // The number added last.
    const CodNumber &latest() const {
        return waiting_[(waitingCount_ + kMostWaiting - 1) % kMostWaiting];
    }
    const CodNumber &minimum() const {
        return minimum_;
    }
    const CodNumber &maximum() const {
        return maximum_;
    }
    // The smallest NUMBER(precision, scale) that holds every value, its scale not negative. The precision may exceed what NUMBER has.
    CodInt32 precision() const;
    CodInt32 scale() const {
        return scale_;
    }
    // False: the values lie too far apart for their sum to be held, or it is beyond NUMBER. *isExact: it was not rounded to 38 digits.
    bool sum(CodNumber *sum, bool *isExact) const;
    // Rounded to six digits more than the scale, and to no less than six significant ones. False: the sum cannot be held.
    bool mean(CodNumber *mean) const;

private:
    static constexpr CodUint32 kMostWaiting = 64;

    void addNumber(const CodText &text, bool isNew);
    void widen(CodNumber number);
    bool addWaiting(CodNumberSum *sum) const;
    bool sumAll(CodNumberSum *sum) const;

    bool isText_ = false;
    bool hasNumbers_ = false;
    bool hasSum_ = true;
    CodInt32 scale_ = 0;
    CodNumber minimum_ = {};
    CodNumber maximum_ = {};
    CodNumberSum sum_ = {};
    CodUint32 waitingCount_ = 0;
    CodNumber waiting_[kMostWaiting];  // not in sum_ yet
};

}  // namespace vel

#endif
