#include <errno.h>
#include <unistd.h>

#include <cstdio>

#include <vel_infra/error/ani_error_base.h>

#include "commands.h"

namespace vel {

// Some file systems tell of a loss only when a descriptor of the file is closed, any one. A run log that cannot be written says so on
// standard output: from here on that is standard error, so that nothing stands behind a report.
CodResult finishOutput() {
    // Nothing since a write that failed has touched errno. What the stream still holds may be lost only here.
    const bool hadFault = ferror(stdout) != 0;
    if (fflush(stdout) != 0 || hadFault || close(dup(STDOUT_FILENO)) != 0) {
        return codRaise(ERR_CMM_FILE_OPER, "write to standard output", codSysErrDesc(static_cast<CodUint32>(errno)));
    }
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return COD_SUCCESS;
}

}  // namespace vel
