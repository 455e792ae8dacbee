#include <cstdint>
#include <cstdlib>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_date_iso.h>

// The input as a date in ISO 8601. What reads is written into rooms that grow until one holds it, and reads back to the same date.

namespace {

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::vector<char> exact(data, data + size);
    CodText text = {exact.data(), static_cast<CodUint32>(size), 0};
    CodDate date = 0, again = 0;
    codCleanError();
    if (codDateFromIso(&text, &date) != COD_SUCCESS) {
        require(codGetErrorCode() == ERR_CMM_TYPECONV_ERROR || codGetErrorCode() == ERR_CMM_DATE_OVERFLOW);
        return 0;
    }
    CodUint32 room = 0;
    do {
        require(room == 0 || codGetErrorCode() == ERR_CMM_MEMORY_OVERFLOW);
        std::vector<char>(++room, '#').swap(exact);
        text = {exact.data(), 0, 0};
    } while (codDateToIso(date, &text, room) != COD_SUCCESS);
    require(room == text.len + 1 && room <= COD_DATE_ISO_SIZE && exact.back() == 0);
    require(codDateFromIso(&text, &again) == COD_SUCCESS && again == date);
    return 0;
}
