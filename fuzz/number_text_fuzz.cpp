#include <cstdint>
#include <cstdlib>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/number/ani_number.h>

// The input as the text of a NUMBER. What reads is written in both ways, and each reads back to the same value.

namespace {

using Write = CodResult (*)(const CodNumber *, CodText *, CodUint32);

void requireSame(const CodNumber &n, Write write) {
    char buffer[COD_NUMBER_TEXT_SIZE];
    CodText text = {buffer, 0, 0};
    CodNumber again;
    if (write(&n, &text, sizeof(buffer)) != COD_SUCCESS || codNumberFromText(&text, &again) != COD_SUCCESS ||
        codNumberCompare(&n, &again) != 0) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<char> exact(data, data + size);
    const CodText text = {exact.data(), static_cast<CodUint32>(size), 0};
    CodNumber n;
    codCleanError();
    if (codNumberFromText(&text, &n) == COD_SUCCESS) {
        requireSame(n, codNumber2Text);
        requireSame(n, codNumber2SciText);
    } else if (codGetErrorCode() != ERR_CMM_INVALID_NUMBER && codGetErrorCode() != ERR_CMM_NUMERIC_OVERFLOW) {
        std::abort();
    }
    return 0;
}
