#include "run_log.h"

#include <errno.h>
#include <limits.h>
#include <unistd.h>

#include <cstdio>

#include <vel_infra/adr/ani_log.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_clock.h>

#include "printable.h"

namespace vel {

namespace {

// With the point behind it the path of a file is refused too.
int checkFolder(const char *folder) {
    char path[PATH_MAX];
    if (snprintf(path, sizeof(path), "%s/.", folder) >= static_cast<int>(sizeof(path))) {
        return ENAMETOOLONG;
    }
    return access(path, W_OK | X_OK) == 0 ? 0 : errno;
}

}  // namespace

RunLog::~RunLog() {
    if (isOpen_) {
        codResetLogCallback();
        aniCloseRunLog();
    }
}

CodResult RunLog::open(const char *folder, const char *commandLine) {
    const int fault = checkFolder(folder);
    if (fault != 0) {
        return codRaise(ERR_CMM_OPEN_DIRECTORY, PrintableName(folder).str(), codSysErrDesc(static_cast<CodUint32>(fault)));
    }
    if (aniInitRunLog(folder, nullptr) != COD_SUCCESS) {
        return codRaise(ERR_CMM_INVALID_PATH_ERROR, PrintableName(folder).str(), "no run log can be opened in it");
    }
    isOpen_ = true;
    startTime_ = codGetMonotonicTime();
    codSetLogLevel(COD_LOG_LEVEL_INFO);
    COD_LOG_INFO("start: %s", PrintableName(commandLine).str());
    return COD_SUCCESS;
}

void RunLog::noteEnd(const WorkDone &done) const {
    if (isOpen_) {
        char units[kUnitsSize];
        COD_LOG_INFO("end: %s, %ld ms", formatUnits(done.count, done.unit, units), (codGetMonotonicTime() - startTime_) / 1000);
    }
}

// One line, however many errors are stacked.
void RunLog::noteFailure() const {
    if (isOpen_) {
        COD_LOG(COD_LOG_LEVEL_ERROR, codGetErrorCode(), "%s", codGetErrorMsg3(false, "; "));
    }
}

}  // namespace vel
