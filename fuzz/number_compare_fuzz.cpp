#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/number/ani_number.h>

// Two stored NUMBERs: the first byte is the size of the first one. Their order is that of the values, zero for what does not decode.

namespace {

CodNumber valueOf(const CodBytes &form) {
    CodNumber n;
    return codDecodeNumber(&form, &n) == COD_SUCCESS ? n : CodNumber();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::uint8_t *second = data + 1 + std::min<std::size_t>(data[0], size - 1);
    std::vector<std::uint8_t> exact1(data + 1, second), exact2(second, data + size);
    const CodBytes form1 = {exact1.data(), static_cast<CodUint32>(exact1.size()), 0};
    const CodBytes form2 = {exact2.data(), static_cast<CodUint32>(exact2.size()), 0};
    const CodNumber n1 = valueOf(form1), n2 = valueOf(form2);
    const CodInt32 order = codNumberCompare(&n1, &n2);
    const bool isShort = form1.size < 3 || form2.size < 3;
    if (codNumberDataCompare(&form1, &form2) != order || codNumberDataCompare(&form2, &form1) != -order ||
        (isShort && cmpSimpleNumberData(&form1, &form2) != order)) {
        std::abort();
    }
    codCleanError();
    return 0;
}
