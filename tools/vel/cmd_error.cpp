#include <strings.h>

#include <charconv>
#include <cstdio>
#include <cstring>

#include <vel_infra/error/ani_error.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/error/ani_error_def.h>

#include "commands.h"
#include "error_tables.h"
#include "printable.h"

namespace vel {

namespace {

constexpr char kPrefix[] = "VEL-";

const CodErrDef *findByNumber(const char *text) {
    const size_t prefix = strncasecmp(text, kPrefix, sizeof(kPrefix) - 1) == 0 ? sizeof(kPrefix) - 1 : 0;
    const char *end = text + strlen(text);
    CodUint32 code = 0;
    const auto [rest, fault] = std::from_chars(text + prefix, end, code);
    return fault == std::errc() && rest == end ? codFindErrorDef(code) : nullptr;
}

const CodErrDef *findByName(const char *name) {
    const CodErrDef *defs = nullptr;
    CodUint32 count = 0;
    if (codGetErrorDefList(&defs, &count) != COD_SUCCESS) {
        return nullptr;
    }
    for (CodUint32 i = 0; i < count; i++) {
        if (strcasecmp(defs[i].name, name) == 0) {
            return &defs[i];
        }
    }
    return nullptr;
}

CodResult printDefinition(const char *code) {
    const CodErrDef *def = findByNumber(code);
    if (def == nullptr) {
        def = findByName(code);
    }
    if (def == nullptr) {
        char reason[PrintableName::kNameLimit + 64];
        snprintf(reason, sizeof(reason), "there is no error \"%s\"", PrintableName(code).str());
        return codRaise(ERR_CMM_INVALID_PARAMETER, reason);
    }
    printf("code       VEL-%05u\n", def->code);
    printf("name       %s\n", def->name);
    printf("template   %s\n", def->fmt);
    printf("SQL state  %s\n", aneGetSqlState(def->code));
    return COD_SUCCESS;
}

}  // namespace

CodResult runError(const ErrorCommand &command, WorkDone *done) {
    ErrorTables tables;
    COD_TRY(tables.init());
    COD_TRY(printDefinition(command.code));
    *done = {1, "code"};
    return COD_SUCCESS;
}

}  // namespace vel
