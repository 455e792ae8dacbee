#include "numeric_profile.h"

#include <algorithm>

#include <vel_infra/error/ani_error_base.h>

namespace vel {

namespace {

constexpr CodInt32 kFurtherDigitsOfMean = 6;

// A failure is an answer here: its error is taken off the stack.
bool succeeds(CodResult result) {
    if (COD_UNLIKELY(result != COD_SUCCESS)) {
        codCleanCurError();
        return false;
    }
    return true;
}

bool isZero(const CodNumber &number) {
    return (number.value.item64[0] | number.value.item64[1]) == 0;
}

// From the first digit other than zero to the last one, as the text writes them.
CodUint32 significantDigits(const CodText &text) {
    CodUint32 met = 0;
    CodUint32 significant = 0;
    for (CodUint32 i = 0; i < text.len && text.str[i] != 'e' && text.str[i] != 'E'; i++) {
        const char digit = text.str[i];
        if (digit < '0' || digit > '9') {
            continue;
        }
        met += met > 0 || digit != '0' ? 1 : 0;
        significant = digit != '0' ? met : significant;
    }
    return significant;
}

// A text with too many digits was rounded when it was read, and one that is too small became zero.
bool isReadExactly(const CodText &text, const CodNumber &number) {
    if (text.len <= COD_NUMBER_DIGITS && !isZero(number)) {
        return true;
    }
    const CodUint32 digits = significantDigits(text);
    return digits <= COD_NUMBER_DIGITS && (digits == 0) == isZero(number);
}

// The number is below 10^magnitude, and not below a tenth of it.
CodInt32 magnitudeOf(const CodNumber &number) {
    const CodLargeInt coefficient = number.value;
    return static_cast<CodInt32>(codGetLargeIntDigits(&coefficient)) + number.exp;
}

}  // namespace

void NumericProfile::addNumber(const CodText &text, bool isNew) {
    CodNumber &number = waiting_[waitingCount_];
    isText_ = !succeeds(codNumberFromText(&text, &number)) || (isNew && !isReadExactly(text, number));
    if (isText_) {
        return;
    }
    if (isNew) {
        widen(number);
    }
    if (++waitingCount_ == kMostWaiting) {
        hasSum_ = hasSum_ && addWaiting(&sum_);
        waitingCount_ = 0;
    }
}

// Many at once are added several times as fast as one by one.
bool NumericProfile::addWaiting(CodNumberSum *sum) const {
    return succeeds(codNumberSumBatch(sum, waiting_, waitingCount_));
}

void NumericProfile::widen(CodNumber number) {
    // Trailing zeros need no place; taking them away is only worth it where they would count.
    if (-number.exp > scale_) {
        (void)codNumberNormalize(&number);
        scale_ = std::max<CodInt32>(scale_, -number.exp);
    }
    if (!hasNumbers_ || codNumberCompare(&number, &minimum_) < 0) {
        minimum_ = number;
    }
    if (!hasNumbers_ || codNumberCompare(&number, &maximum_) > 0) {
        maximum_ = number;
    }
    hasNumbers_ = true;
}

// What lies between the two ends needs no more digits before the point than they do.
CodInt32 NumericProfile::precision() const {
    CodInt32 precision = 1;
    for (const CodNumber &end : {minimum_, maximum_}) {
        if (!isZero(end)) {
            precision = std::max(precision, magnitudeOf(end) + scale_);
        }
    }
    return precision;
}

bool NumericProfile::sumAll(CodNumberSum *sum) const {
    *sum = sum_;
    return hasSum_ && addWaiting(sum);
}

bool NumericProfile::sum(CodNumber *sum, bool *isExact) const {
    CodNumberSum rest;
    if (!sumAll(&rest) || !succeeds(codNumberSumResult(&rest, sum))) {
        return false;
    }
    CodNumber negative = *sum;
    negative.sign = sum->sign == 0 ? 1 : 0;
    *isExact = succeeds(codNumberSumAdd(&rest, &negative)) && (rest.item64[0] | rest.item64[1] | rest.item64[2] | rest.item64[3]) == 0;
    return true;
}

bool NumericProfile::mean(CodNumber *mean) const {
    CodNumberSum all;
    if (!sumAll(&all) || !succeeds(codNumberSumAverage(&all, mean))) {
        return false;
    }
    const CodInt32 places = std::max(scale_, -magnitudeOf(*mean)) + kFurtherDigitsOfMean;
    return succeeds(codNumberRoundMode(mean, places, COD_ROUND_HALF_UP));
}

}  // namespace vel
