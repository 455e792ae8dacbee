// UTF-8 with 256-bit vectors.

#include "base/cod_utf8_avx2.h"

namespace cod {

CodUint64 scanUtf8Simd256(const CodUint8 *data, CodUint64 length) {
    return scanUtf8Blocks<Vector256>(data, length, nullptr);
}

CodUint64 countUtf8Simd256(const CodUint8 *data, CodUint64 length, CodUint64 *characters) {
    return scanUtf8Blocks<Vector256>(data, length, characters);
}

}  // namespace cod
