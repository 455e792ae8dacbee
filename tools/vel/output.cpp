#include <errno.h>

#include <cstdio>

#include <vel_infra/error/ani_error_base.h>

#include "commands.h"

namespace vel {

CodResult closeOutput() {
    // Nothing since a write that failed has touched errno. Closing flushes: what the stream still holds may be lost only here.
    const bool hadFault = ferror(stdout) != 0;
    if (fclose(stdout) != 0 || hadFault) {
        return codRaise(ERR_CMM_FILE_OPER, "write to standard output", codSysErrDesc(static_cast<CodUint32>(errno)));
    }
    return COD_SUCCESS;
}

}  // namespace vel
