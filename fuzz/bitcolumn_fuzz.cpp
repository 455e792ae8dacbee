#include <algorithm>
#include <cstdlib>
#include <vector>

#include <vel_infra/bitops/ani_bitcolumn.h>
#include <vel_infra/bitops/ani_bitpack.h>
#include <vel_infra/error/ani_error_base.h>

// The input as a column of each form, and as width, count and packed values. What decodes is encoded again and decodes to the same.

namespace {

using Bytes = std::vector<CodUint8>;

void readColumn(const Bytes &in, decltype(&codForEncode32) encode, decltype(&codForDecode32) decode) {
    CodUint32 count = 0, again = 0, size = 0;
    std::vector<CodUint32> first(4096);
    if (decode(in.data(), static_cast<CodUint32>(in.size()), first.data(), 4096, &count) == COD_SUCCESS) {
        std::vector<CodUint32> second(count);
        Bytes out(COD_BITCOLUMN_HEADER_SIZE + 4 * count);
        if (encode(first.data(), count, out.data(), static_cast<CodUint32>(out.size()), &size) != COD_SUCCESS ||
            decode(out.data(), size, second.data(), count, &again) != COD_SUCCESS || again != count ||
            !std::equal(second.begin(), second.end(), first.begin())) {
            std::abort();
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const CodUint8 *data, std::size_t size) {
    const Bytes column(data, data + size), packed(data + std::min<std::size_t>(size, 2), data + size);
    const CodUint32 width = size < 2 ? 0 : data[0], count = size < 2 ? 0 : data[1], bytes = static_cast<CodUint32>(packed.size());
    std::vector<CodUint32> values(count);
    codBitPackSetSimdType(codBitPackDetectSimdType());
    readColumn(column, codForEncode32, codForDecode32);
    readColumn(column, codDeltaEncode32, codDeltaDecode32);
    if (codUnpack32Checked(packed.data(), bytes, width, values.data(), count) == COD_SUCCESS) {
        Bytes out(count / 32 * 4 * width);
        codPack32(values.data(), count, width, out.data());
        std::equal(out.begin(), out.end(), packed.begin()) ? void() : std::abort();
    }
    codCleanError();
    return 0;
}
