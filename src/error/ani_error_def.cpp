#include <vel_infra/error/ani_error_def.h>

#include <iterator>

#include <vel_infra/adr/ani_blackbox.h>
#include <vel_infra/collection/ani_darray.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/memory/ani_allocator.h>

namespace {

constexpr CodErrDef kOwnDefinitions[] = {
#define ERR(code, name, fmt) {code, #name, fmt},
#include <vel_infra/error/ani_error_cmm.def>
#undef ERR
};
constexpr CodUint32 kOwnCount = std::size(kOwnDefinitions);
static_assert(kOwnCount == 239, "a row was lost or added: clients know the number");

// Sorted by code after every registration. Zeroed until the first one, which reads as empty.
constinit CodDArray gErrorDefinitions{};

void initDefinitions() {
    codDArrayInit(&gErrorDefinitions, sizeof(CodErrDef), codMemGetSystemAlloc(), 0);
}

}  // namespace

CodResult codRegErrorDef(const CodErrDef *defs, CodUint32 count) {
    if (defs == nullptr && count != 0) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    if (gErrorDefinitions.owner == nullptr) {
        initDefinitions();
    }
    CodResult result = COD_SUCCESS;
    for (CodUint32 i = 0; i < count && result == COD_SUCCESS; i++) {
        result = codDArrayPushBackItem(&gErrorDefinitions, &defs[i]);
    }
    // After a failure too: what was added stays, and must be found.
    codDArrayQuickSort(&gErrorDefinitions, codErrDefCmp);
    if (result != COD_SUCCESS) {
        guardErrorCode();
    }
    return result;
}

void codUnRegErrorDef(void) {
    codDArrayRelease(&gErrorDefinitions);
    initDefinitions();
}

CodResult codGetErrorDefList(const CodErrDef **defs, CodUint32 *count) {
    if (defs == nullptr || count == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    *defs = static_cast<const CodErrDef *>(gErrorDefinitions.ptr);
    *count = codDArrayCount(&gErrorDefinitions);
    return COD_SUCCESS;
}

const CodErrDef *codFindErrorDef(CodError code) {
    const CodErrDef key{code, nullptr, nullptr};
    return static_cast<const CodErrDef *>(codDArraySearchItem(&gErrorDefinitions, &key, codErrDefCmp));
}

CodInt32 codErrDefCmp(const void *left, const void *right) {
    return static_cast<CodInt32>(static_cast<const CodErrDef *>(left)->code - static_cast<const CodErrDef *>(right)->code);
}

CodResult codRegErrModCMM(void) {
    return codRegErrorDef(kOwnDefinitions, kOwnCount);
}

CodUint32 codGetErrCount(void) {
    return kOwnCount;
}

const CodErrDef *codGetErrDef(CodUint32 pos) {
    return pos < kOwnCount ? &kOwnDefinitions[pos] : nullptr;
}
