// A key is a class byte, the magnitude exp + digits, and the digits two by two; docs/number.md draws it. A negative value has the
// complement of the positive one's bytes, which turns the order around.

#include <vel_infra/number/ani_number_key.h>

#include "number/ani_decimal_text_internal.h"
#include "number/ani_number_internal.h"

namespace cod {
namespace {

constexpr CodUint8 kZero = 0x80;
constexpr CodUint8 kPositive = 0x81;
constexpr CodUint8 kNegative = 0x7E;
static_assert((kPositive ^ kNegative) == 0xFF);

constexpr CodUint32 kHeaderSize = 2;
constexpr CodUint32 kMaxPairs = COD_NUMBER_DIGITS / 2;
static_assert(kHeaderSize + kMaxPairs == COD_NUMBER_KEY_SIZE);

// A pair of digits takes the upper seven bits of its byte; the lowest one says that another pair follows. So a key that ends is smaller
// than one that goes on, and no key begins another.
constexpr CodUint8 kMore = 1;
constexpr CodUint8 kMaxPairByte = 99 << 1 | kMore;

CodResult raiseBadKey() {
    return codRaise(ERR_CMM_BYTES_ERROR, "not a sort key of a number");
}

}  // namespace
}  // namespace cod

using namespace cod;

CodResult codNumberToSortKey(const CodNumber *n, CodBytes *key) {
    if (n == nullptr || key == nullptr || key->data == nullptr) {
        return raiseNull();
    }
    const Operand a = loadOperand(n);
    CodUint8 *out = key->data;
    if (a.value == 0) {
        *out = kZero;
        key->size = 1;
        return COD_SUCCESS;
    }
    char text[kDigitsRoom + 1] = {};
    writeDigits(a.value, text);
    const CodUint32 digits = digits128(a.value);
    const CodInt32 magnitude = a.exp + static_cast<CodInt32>(digits);
    const char *const first = text + kDigitsRoom - digits;
    const char *end = text + kDigitsRoom;
    while (end[-1] == '0') {
        end--;
    }
    if (end - first > COD_NUMBER_DIGITS || !isMagnitudeHeld(magnitude)) {
        return raiseNumericOverflow();
    }
    text[end - text] = '0';
    const CodUint8 mask = a.negative != 0 ? 0xFF : 0;
    *out++ = kPositive ^ mask;
    *out++ = static_cast<CodUint8>(magnitude - COD_NUMBER_MIN_MAGNITUDE) ^ mask;
    for (const char *pair = first; pair < end; pair += 2) {
        const int number = (pair[0] - '0') * 10 + (pair[1] - '0');
        *out++ = static_cast<CodUint8>(number << 1 | kMore) ^ mask;
    }
    out[-1] ^= kMore;
    key->size = static_cast<CodUint32>(out - key->data);
    return COD_SUCCESS;
}

CodResult codNumberFromSortKey(const CodBytes *key, CodNumber *n) {
    if (key == nullptr || n == nullptr || (key->data == nullptr && key->size > 0)) {
        return raiseNull();
    }
    const CodUint32 size = codNumberSortKeySize(key);
    if (size == 0 || size != key->size) {
        return raiseBadKey();
    }
    if (key->data[0] == kZero) {
        storeZero(n);
        return COD_SUCCESS;
    }
    const bool isNegative = key->data[0] == kNegative;
    const CodUint8 mask = isNegative ? 0xFF : 0;
    U128 value = 0;
    for (CodUint32 i = kHeaderSize; i < size; i++) {
        value = value * 100 + ((key->data[i] ^ mask) >> 1);
    }
    CodUint32 digits = 2 * (size - kHeaderSize);
    if (value % 10 == 0) {
        value /= 10;
        digits--;
    }
    const CodInt32 magnitude = (key->data[1] ^ mask) + COD_NUMBER_MIN_MAGNITUDE;
    storeNumber(n, value, magnitude - static_cast<CodInt32>(digits), isNegative);
    return COD_SUCCESS;
}

CodUint32 codNumberSortKeySize(const CodBytes *bytes) {
    if (bytes == nullptr || bytes->data == nullptr || bytes->size == 0) {
        return 0;
    }
    const CodUint8 *data = bytes->data;
    if (data[0] == kZero) {
        return 1;
    }
    if (data[0] != kPositive && data[0] != kNegative) {
        return 0;
    }
    const CodUint8 mask = data[0] == kNegative ? 0xFF : 0;
    for (CodUint32 i = kHeaderSize; i < bytes->size && i < COD_NUMBER_KEY_SIZE; i++) {
        const CodUint8 pair = data[i] ^ mask;
        // The first digit and the last pair are not zero.
        if (pair > kMaxPairByte || (i == kHeaderSize && pair < 10 << 1)) {
            return 0;
        }
        if ((pair & kMore) == 0) {
            return pair == 0 ? 0 : i + 1;
        }
    }
    return 0;
}
