#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/number/ani_number_key.h>

// The input as a stored NUMBER and as a sort key. What decodes has one canonical form, which decodes to the same value; a key is the
// only one of its value.

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

void readStored(const CodBytes &form) {
    CodNumber first, second, again;
    if (codDecodeNumber(&form, &first) != COD_SUCCESS) {
        return;
    }
    CodUint8 buffer1[COD_NUMBER_STORED_SIZE], buffer2[COD_NUMBER_STORED_SIZE];
    CodBytes form1 = {buffer1, 0, 0}, form2 = {buffer2, 0, 0};
    again = first;
    if (codNumberEncode(&again, &form1) != COD_SUCCESS) {
        // Trailing zeros may have raised the exponent beyond what a form holds.
        require((form.size == COD_NUMBER_STORED_SIZE || first.exp > 255 - 38) && codGetErrorCode() == ERR_CMM_NUMERIC_OVERFLOW);
        return;
    }
    require(codDecodeNumber(&form1, &second) == COD_SUCCESS && codNumberCompare(&first, &second) == 0);
    require(codNumberEncode(&second, &form2) == COD_SUCCESS);
    require(form1.size == form2.size && std::memcmp(buffer1, buffer2, form1.size) == 0);
}

void readKey(const CodBytes &key) {
    CodNumber n;
    const CodUint32 size = codNumberSortKeySize(&key);
    if (codNumberFromSortKey(&key, &n) != COD_SUCCESS) {
        return;
    }
    CodUint8 buffer[COD_NUMBER_KEY_SIZE];
    CodBytes again = {buffer, 0, 0};
    require(size == key.size && codNumberToSortKey(&n, &again) == COD_SUCCESS);
    require(again.size == size && std::memcmp(buffer, key.data, size) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<std::uint8_t> exact(data, data + size);
    const CodBytes bytes = {exact.data(), static_cast<CodUint32>(size), 0};
    readStored(bytes);
    readKey(bytes);
    codCleanError();
    return 0;
}
