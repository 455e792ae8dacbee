// UTF-8 with 512-bit vectors.

#include "base/cod_utf8_avx512.h"

namespace cod {

CodUint64 scanUtf8Simd512(const CodUint8 *data, CodUint64 length) {
    return scanUtf8Blocks<Vector512>(data, length, nullptr);
}

CodUint64 countUtf8Simd512(const CodUint8 *data, CodUint64 length, CodUint64 *characters) {
    return scanUtf8Blocks<Vector512>(data, length, characters);
}

}  // namespace cod
