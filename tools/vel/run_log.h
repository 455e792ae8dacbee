#ifndef VEL_RUN_LOG_H
#define VEL_RUN_LOG_H

#include "commands.h"

namespace vel {

// The run log that a command keeps of its own work.
class RunLog {
public:
    RunLog() = default;
    ~RunLog();
    RunLog(const RunLog &) = delete;
    RunLog &operator=(const RunLog &) = delete;

    // Opens run.log in a folder that exists, and notes the command line. Without it the other functions do nothing.
    // Errors: ERR_CMM_OPEN_DIRECTORY; ERR_CMM_INVALID_PATH_ERROR when the library printed on standard output what is wrong.
    CodResult open(const char *folder, const char *commandLine);
    void noteEnd(const WorkDone &done) const;
    // The raised error.
    void noteFailure() const;

private:
    bool isOpen_ = false;
    CodInt64 startTime_ = 0;
};

}  // namespace vel

#endif
