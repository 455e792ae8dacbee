#ifndef VEL_ERROR_TABLES_H
#define VEL_ERROR_TABLES_H

#include <vel_infra/error/ani_error.h>
#include <vel_infra/error/ani_error_base.h>

namespace vel {

// The definitions of all errors stand in the registry while this lives.
class ErrorTables {
public:
    ErrorTables() = default;
    ~ErrorTables() {
        codUnRegErrorDef();
    }
    ErrorTables(const ErrorTables &) = delete;
    ErrorTables &operator=(const ErrorTables &) = delete;

    // Errors: those of codRegErrorDef.
    CodResult init() {
        COD_TRY(codRegErrModCMM());
        return codRegErrModANS();
    }
};

}  // namespace vel

#endif
