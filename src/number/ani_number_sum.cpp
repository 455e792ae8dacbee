#include <vel_infra/number/ani_number_sum.h>

#include "number/ani_number_internal.h"

namespace cod {
namespace {

// A sum as magnitude and sign, in units of 10^exp.
struct Magnitude {
    U256 value;
    CodInt32 exp;
    CodUint64 negative;
};

Magnitude magnitudeOf(const CodNumberSum *sum) {
    U256 words;
    std::memcpy(words.w, sum->item64, sizeof(words.w));
    const CodUint64 negative = words.w[3] >> 63;
    return {negateIf(negative, words), sum->exp, negative};
}

bool fitsSigned(const U256 &value) {
    return value.w[3] >> 63 == 0;
}

// Brings the value to the exponent `exp`, which is not above its own; false when it would not fit.
bool lowerExp(Magnitude &m, CodInt32 exp) {
    const CodInt32 gap = m.exp - exp;
    m.exp = exp;
    return gap == 0 ||
           (gap <= static_cast<CodInt32>(kMaxPower) && !mul256(m.value, kPowers.pow10Wide[gap], m.value) && fitsSigned(m.value));
}

void stripZeros256(Magnitude &m) {
    for (;;) {
        U128 digit;
        const U256 shorter = divide256(m.value, 10, digit);
        if (digit != 0 || m.exp == INT16_MAX) {
            return;
        }
        m.value = shorter;
        m.exp++;
    }
}

// The sum of two values that are not zero, into `sum`; false, and sum is left alone, when 256 bits do not hold it.
bool addAligned(Magnitude a, Magnitude b, CodNumberSum *sum) {
    const CodInt32 exp = a.exp < b.exp ? a.exp : b.exp;
    if (!lowerExp(a, exp) || !lowerExp(b, exp)) {
        return false;
    }
    const U256 left = negateIf(a.negative, a.value);
    const U256 right = negateIf(b.negative, b.value);
    U256 total;
    add256(left, right, total);
    // Both signs alike and the result's another: it left the signed range. Its lowest value has no magnitude, and is left out.
    const bool isWrapped = (~(left.w[3] ^ right.w[3]) & (left.w[3] ^ total.w[3])) >> 63 != 0;
    const bool isLowest = !fitsSigned(total) && !fitsSigned(negateIf(1, total));
    if (isWrapped || isLowest) {
        return false;
    }
    std::memcpy(sum->item64, total.w, sizeof(total.w));
    sum->exp = static_cast<CodInt16>(exp);
    return true;
}

// Adds count values that make the summand; false, and the sum is as before, when 256 bits do not hold the exact sum.
bool tryAdd(CodNumberSum *sum, Magnitude summand, CodUint64 count) {
    if (!isZero(summand.value)) {
        Magnitude old = magnitudeOf(sum);
        const bool isFirst = isZero(old.value);
        old.exp = isFirst ? summand.exp : old.exp;
        if (!addAligned(old, summand, sum)) {
            // Trailing zeros may be what does not fit.
            stripZeros256(summand);
            if (!isFirst) {
                stripZeros256(old);
            }
            if (!addAligned(old, summand, sum)) {
                return false;
            }
        }
    }
    sum->count += count;
    return true;
}

bool tryAddOne(CodNumberSum *sum, const CodNumber *n) {
    const Operand a = loadOperand(n);
    // A word at the sum's own exponent, while the sum is so far from its limits that it cannot pass them.
    const bool isFar = (sum->item64[3] + (CodUint64{1} << 62)) >> 63 == 0;
    if (a.value >> 63 == 0 && (a.exp == sum->exp || a.value == 0) && isFar) {
        const CodUint64 word = (lowOf(a.value) ^ (0 - a.negative)) + a.negative;
        const CodUint64 sign = 0 - (word >> 63);
        CodUint8 carry = addCarry(0, sum->item64[0], word, sum->item64[0]);
        carry = addCarry(carry, sum->item64[1], sign, sum->item64[1]);
        carry = addCarry(carry, sum->item64[2], sign, sum->item64[2]);
        addCarry(carry, sum->item64[3], sign, sum->item64[3]);
        sum->count++;
        return true;
    }
    return tryAdd(sum, {widen(a.value), a.exp, a.negative}, 1);
}

// A value of the exponent `exp` and below 2^59 as a signed word. Anything else sets bits of isUncommon.
inline CodUint64 signedWord(const CodNumber *n, CodInt32 exp, CodUint64 &isUncommon) {
    const NumberWords a = loadWords(n);
    // 0 or 1, the sign, when the rest is as it should be.
    const CodUint64 negative = a.tail ^ makeTail(exp, 0);
    isUncommon |= a.high | a.low >> 59 | negative >> 1;
    return (a.low ^ (0 - negative)) + negative;
}

// Adds such values while they come, and gives how many; eight of them fit a word.
CodUint32 addRun(const CodNumber *numbers, CodUint32 count, CodInt32 exp, U128 &total) {
    constexpr CodUint32 block = 8;
    U128 sum = 0;
    CodUint32 done = 0;
    for (CodUint32 next = 0; done < count; done += next) {
        next = count - done < block ? count - done : block;
        CodUint64 part = 0;
        CodUint64 isUncommon = 0;
        if (next == block) {
            for (CodUint32 i = 0; i < block; i++) {
                part += signedWord(numbers + done + i, exp, isUncommon);
            }
        } else {
            for (CodUint32 i = 0; i < next; i++) {
                part += signedWord(numbers + done + i, exp, isUncommon);
            }
        }
        if (COD_UNLIKELY(isUncommon != 0)) {
            break;
        }
        sum += static_cast<U128>(static_cast<__int128>(static_cast<CodInt64>(part)));
    }
    total = sum;
    return done;
}

}  // namespace
}  // namespace cod

using namespace cod;

void codNumberSumInit(CodNumberSum *sum) {
    if (sum != nullptr) {
        *sum = {};
    }
}

CodResult codNumberSumAdd(CodNumberSum *sum, const CodNumber *n) {
    if (sum == nullptr || n == nullptr) {
        return raiseNull();
    }
    return tryAddOne(sum, n) ? COD_SUCCESS : raiseNumericOverflow();
}

CodResult codNumberSumBatch(CodNumberSum *sum, const CodNumber *numbers, CodUint32 count) {
    if (sum == nullptr || (numbers == nullptr && count > 0)) {
        return raiseNull();
    }
    for (CodUint32 i = 0; i < count;) {
        U128 total;
        const CodUint32 run = addRun(numbers + i, count - i, sum->exp, total);
        const CodUint64 negative = highOf(total) >> 63;
        const Magnitude part = {widen(negative != 0 ? 0 - total : total), sum->exp, negative};
        const bool isAdded = run == 0 || tryAdd(sum, part, run);
        // Behind the run stands a value that is not like it. A run that does not fit as a whole goes in as far as it can.
        const CodUint32 single = isAdded ? i + run : i;
        const CodUint32 last = i + run < count ? i + run : count - 1;
        for (i = single; i <= last; i++) {
            if (!tryAddOne(sum, numbers + i)) {
                return raiseNumericOverflow();
            }
        }
    }
    return COD_SUCCESS;
}

CodResult codNumberSumMerge(CodNumberSum *sum, const CodNumberSum *other) {
    if (sum == nullptr || other == nullptr) {
        return raiseNull();
    }
    return tryAdd(sum, magnitudeOf(other), other->count) ? COD_SUCCESS : raiseNumericOverflow();
}

CodResult codNumberSumResult(const CodNumberSum *sum, CodNumber *result) {
    if (sum == nullptr || result == nullptr) {
        return raiseNull();
    }
    const Magnitude m = magnitudeOf(sum);
    return storeRounded(m.value, m.exp, m.negative, result);
}

CodResult codNumberSumAverage(const CodNumberSum *sum, CodNumber *result) {
    if (sum == nullptr || result == nullptr) {
        return raiseNull();
    }
    if (sum->count == 0) {
        return codRaise(ERR_CMM_DIVISION_BY_ZERO);
    }
    // A dividend of 60 digits leaves the quotient 40 or more: rounding it to 38 sees enough, whatever the remainder.
    constexpr CodUint32 dividendDigits = 60;
    Magnitude m = magnitudeOf(sum);
    const CodUint32 digits = digits256(m.value);
    if (digits > 0 && digits < dividendDigits) {
        lowerExp(m, m.exp - static_cast<CodInt32>(dividendDigits - digits));
    }
    U128 ignored;
    const U256 quotient = divide256(m.value, sum->count, ignored);
    COD_TRY(storeRounded(quotient, m.exp, m.negative, result));
    return codNumberNormalize(result);
}
