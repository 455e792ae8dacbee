#include <vel_infra/error/ani_error_base.h>

#include "commands.h"
#include "error_tables.h"
#include "input_file.h"
#include "log_profile.h"
#include "report.h"
#include "work_memory.h"

namespace vel {

CodResult runLog(const LogCommand &command, WorkDone *done) {
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    WorkMemory memory;
    COD_TRY(memory.init());
    LogProfile profile;
    COD_TRY(profile.init(memory.pool()));
    COD_TRY(input.readAll(&profile, "line"));
    ErrorTables tables;
    COD_TRY(tables.init());
    writeLogReport(stdout, profile, input.name());
    *done = {profile.rows(), "line"};
    return COD_SUCCESS;
}

}  // namespace vel
