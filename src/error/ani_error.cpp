#include <vel_infra/error/ani_error.h>

#include <iterator>

namespace {

constexpr CodErrDef kServerDefinitions[] = {
#define ERR(code, name, fmt) {code, #name, fmt},
#include <vel_infra/error/ani_error_ans.def>
#undef ERR
};
constexpr CodUint32 kServerCount = std::size(kServerDefinitions);

}  // namespace

CodResult codRegErrModANS(void) {
    return codRegErrorDef(kServerDefinitions, kServerCount);
}

CodUint32 aniGetErrCount(void) {
    return kServerCount;
}

const CodErrDef *aniGetErrDef(CodUint32 pos) {
    return pos < kServerCount ? &kServerDefinitions[pos] : nullptr;
}

const char *aneGetSqlState(CodError code) {
    switch (code) {
        case 0:
            return "00000";
        case ERR_CMM_NOT_IMPLEMENTED:
            return "0A000";  // feature not supported
        case ERR_CMM_ALLOC_MEMORY:
        case ERR_CMM_CREATE_MEMORY_OBJECT:
        case ERR_CMM_ALLOC_MPOOL_BLOCK:
        case ERR_CMM_ALLOC_MCTX_MEM:
        case ERR_CMM_WORKSTACK_OVERFLOW:
            return "03000";  // memory exhausted
        case ERR_CMM_FILE_OPER:
        case ERR_CMM_INVALID_FILENAME:
            return "04000";  // files
        case ERR_CMM_INIT_TCP_ENV:
        case ERR_CMM_SOCKET_ERROR:
        case ERR_CMM_INVALID_IPADDR:
            return "08000";  // connection
        default:
            return "HY000";
    }
}
