// What numbers of JSON text become.

#include <errno.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <limits>

#include "number/ani_number_internal.h"
#include "velon/ani_velon_json_number_internal.h"

namespace cod::velon {
namespace {

// Digits of any number as 38 significant ones and a power of ten, as far as they are that.
struct Significant {
    U128 value = 0;
    CodInt64 exp = 0;  // of the value's last digit, which is not 0
    bool isExact = true;
};

// Zeros at the end are counted, not taken in, until another digit follows.
Significant readSignificant(const NumberText &text) {
    Significant result;
    CodUint64 zeros = 0;
    CodUint64 kept = 0;
    for (const CodUint8 *in = text.digits; in != text.mantissa; in++) {
        if (*in == '.' || (*in == '0' && kept == 0)) {
            continue;
        }
        if (*in == '0') {
            zeros++;
            continue;
        }
        kept += zeros + 1;
        if (kept > COD_NUMBER_DIGITS) {
            result.isExact = false;
            return result;
        }
        result.value = result.value * pow10(static_cast<CodUint32>(zeros + 1)) + (*in - CodUint32{'0'});
        zeros = 0;
    }
    result.exp = text.exp + static_cast<CodInt64>(zeros);
    return result;
}

Significant significantOf(const NumberText &text) {
    constexpr CodUint64 kWordDigits = 19;
    if (COD_UNLIKELY(text.count > kWordDigits)) {
        return readSignificant(text);
    }
    Significant result = {text.value, text.exp, true};
    if (text.value != 0) {
        result.exp += stripZeros(result.value, kMaxPower128);
    }
    return result;
}

// The digits as strtod takes them in any locale, without a point. So many decide every case but for whether something follows.
constexpr CodUint32 kMostDigits = 800;
// Decimal magnitudes beyond which every value is infinite, or zero.
constexpr CodInt64 kFarMagnitude = 400;

// The nearest double, infinite when it is beyond the type.
double readNearest(const NumberText &text) {
    char room[kMostDigits + 16];
    char *out = room;
    CodUint64 left = 0;  // digits that were left out
    bool isMore = false;
    for (const CodUint8 *in = text.digits; in != text.mantissa; in++) {
        if (*in == '.' || (*in == '0' && out == room)) {
            continue;
        }
        if (out - room < kMostDigits) {
            *out++ = static_cast<char>(*in);
        } else {
            left++;
            isMore |= *in != '0';
        }
    }
    CodInt64 exp = text.exp + static_cast<CodInt64>(left);
    const CodInt64 magnitude = exp + (out - room);
    if (out == room || magnitude < -kFarMagnitude) {
        return 0;
    }
    if (magnitude > kFarMagnitude) {
        return std::numeric_limits<double>::infinity();
    }
    if (isMore) {
        *out++ = '1';
        exp--;
    }
    *out++ = 'e';
    *std::to_chars(out, out + 8, exp).ptr = '\0';
    const int saved = errno;
    const double value = strtod(room, nullptr);
    errno = saved;
    return value;
}

// Whether it is an integer of 64 bits.
bool isBigint(const Significant &number, bool isNegative, CodInt64 *value) {
    constexpr U128 most = U128{1} << 63;
    if (number.exp < 0 || number.exp > 18 || number.value > most) {
        return false;
    }
    const U128 whole = number.value * pow10(static_cast<CodUint32>(number.exp));
    if (whole >= most + isNegative) {
        return false;
    }
    *value = static_cast<CodInt64>(isNegative ? 0 - lowOf(whole) : lowOf(whole));
    return true;
}

bool isHeldByNumber(const Significant &number) {
    const CodInt64 magnitude = number.exp + static_cast<CodInt64>(digits128(number.value));
    return magnitude >= COD_NUMBER_MIN_MAGNITUDE && magnitude <= COD_NUMBER_MAX_MAGNITUDE;
}

}  // namespace

JsonNumber numberOf(const NumberText &text) {
    JsonNumber result = {NumberKind::kDouble, 0, {}, 0};
    Significant number = significantOf(text);
    if (number.isExact && number.value == 0) {
        number.exp = 0;
    }
    if (number.isExact && !text.isDouble) {
        if (isBigint(number, text.isNegative, &result.integer)) {
            result.kind = NumberKind::kInteger;
            return result;
        }
        if (isHeldByNumber(number)) {
            result.kind = NumberKind::kNumber;
            storeNumber(&result.number, number.value, static_cast<CodInt32>(number.exp), text.isNegative);
            return result;
        }
    }
    const bool isNear = number.isExact && number.exp >= -kFarMagnitude && number.exp <= kFarMagnitude;
    const double value = isNear ? nearestDouble(number.value, static_cast<CodInt32>(number.exp)) : readNearest(text);
    result.binary = text.isNegative ? -value : value;
    return result;
}

}  // namespace cod::velon
