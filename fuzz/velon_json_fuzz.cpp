#include <cstdlib>
#include <cstring>
#include <vector>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/velon/ani_velon.h>
#include <vel_infra/velon/ani_velon_json.h>

// The input as JSON text: a document that is read is valid and, written and read again, has the same bytes. Then the input as a document:
// a valid one that is refused is refused for its NaNs or infinities, or keys that are no UTF-8.

namespace {

void require(bool condition) {
    condition ? void() : std::abort();
}

void requireSameAgain(const Velon &velon, CodUint32 flags) {
    CodMemAlloc *owner = codMemGetSystemAlloc();
    CodText text = {};
    Velon again = {};
    require(velonToJson(owner, &velon, flags | VELON_JSON_TYPED_DOUBLES, &text) == COD_SUCCESS);
    require(velonFromJson(owner, &text, &again) == COD_SUCCESS);
    require(again.data.len == velon.data.len && std::memcmp(again.data.ptr, velon.data.ptr, velon.data.len) == 0);
    codSysFree(text.str);
    velonFree(&again);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const CodUint8 *data, std::size_t size) {
    std::vector<CodUint8> exact(data, data + size);
    const CodText json = {reinterpret_cast<CodChar *>(exact.data()), static_cast<CodUint32>(size), 0};
    CodMemAlloc *owner = codMemGetSystemAlloc();
    Velon velon = {};
    codCleanError();
    if (velonFromJson(owner, &json, &velon) == COD_SUCCESS) {
        require(velonCheckData(&velon) == COD_SUCCESS);
        requireSameAgain(velon, VELON_JSON_COMPACT);
        requireSameAgain(velon, VELON_JSON_INDENTED);
        velonFree(&velon);
    } else {
        require(codGetErrorPos().offset <= size && velon.data.ptr == nullptr);
    }
    const VelonData bytes = {exact.data(), static_cast<CodUint32>(size), 0};
    const Velon document = velonNew(nullptr, &bytes);
    CodText text = {};
    const bool isValid = velonCheckData(&document) == COD_SUCCESS;
    codCleanError();
    if (velonToJson(owner, &document, VELON_JSON_COMPACT, &text) != COD_SUCCESS) {
        const CodError code = codGetErrorCode();
        require(!isValid || code == ERR_CMM_TYPECONV_ERROR || code == ERR_CMM_VELON_INVALID_UNICODE);
        require(text.str == nullptr);
    }
    codSysFree(text.str);
    codCleanError();
    return 0;
}
