#include <vel_infra/velon/ani_velon_util.h>

#include "base/cod_utf8.h"
#include "velon/ani_velon_base_internal.h"
#include "velon/ani_velon_buf_internal.h"

using namespace cod::velon;

CodResult velonVarintEncode(CodUint32 value, CodUint8 *out, CodUint32 *written) {
    if (anyNull(out, written)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *written = writeVarint(value, out);
    return COD_SUCCESS;
}

CodResult velonVarintDecode(const CodUint8 *in, CodUint32 available, CodUint32 *value, CodUint32 *consumed) {
    if (anyNull(value, consumed) || (in == nullptr && available != 0)) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return readVarint({in, available, 0}, 0, value, consumed);
}

CodInt32 velonCompareKey(const CodText *left, const CodText *right) {
    return anyNull(left, right) ? (left != nullptr) - (right != nullptr) : compareKeys(*left, *right);
}

CodResult velonCheckValidUTF8(const CodUint8 *data, CodUint32 length) {
    if (data == nullptr && length != 0) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    return cod::isValidUtf8(data, length) ? COD_SUCCESS : codRaise(ERR_CMM_VELON_INVALID_UNICODE);
}
