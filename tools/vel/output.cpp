#include <unistd.h>

#include <cstdio>

#include "commands.h"
#include "output_file.h"

namespace vel {

// Some file systems tell of a loss only when a descriptor of the file is closed, any one. A run log that cannot be written says so on
// standard output: from here on that is standard error, so that nothing stands behind a report.
CodResult finishOutput() {
    // Nothing since a write that failed has touched errno. What the stream still holds may be lost only here.
    const bool hadFault = ferror(stdout) != 0;
    if (fflush(stdout) != 0 || hadFault || close(dup(STDOUT_FILENO)) != 0) {
        return raiseWriteError("standard output");
    }
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return COD_SUCCESS;
}

}  // namespace vel
