#ifndef VEL_COMMANDS_H
#define VEL_COMMANDS_H

#include <vel_infra/base/cod_types.h>

namespace vel {

// Each command writes to standard output and returns COD_ERROR with the reason raised.

struct ErrorCommand {
    const char *code;  // a number, "VEL-00103" or a name
};
CodResult runError(const ErrorCommand &command);

struct ProfileCommand {
    const char *file;  // "-": standard input
    char delimiter;
    bool hasHeader;
    const char *columns;  // null: all
};
CodResult runProfile(const ProfileCommand &command);

// Flushes and closes standard output. Errors: ERR_CMM_FILE_OPER when anything written to it was lost.
CodResult closeOutput();

}  // namespace vel

#endif
