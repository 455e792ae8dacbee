#include <cstring>

#include <vel_infra/error/ani_error_base.h>

#include "commands.h"
#include "csv_reader.h"
#include "input_file.h"
#include "report.h"
#include "table_profile.h"
#include "work_memory.h"

namespace vel {

namespace {

CodResult readTable(const InputFile &input, char delimiter, TableProfile *table) {
    CsvReader reader(input.name(), table);
    COD_TRY(reader.init(delimiter));
    COD_TRY(input.readAll(&reader, "row"));
    return table->finish();
}

}  // namespace

CodResult runProfile(const ProfileCommand &command, WorkDone *done) {
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    WorkMemory memory;
    COD_TRY(memory.init());
    TableProfileOptions options = {};
    options.name = input.name();
    options.hasHeader = command.hasHeader;
    options.columns = command.columns;
    TableProfile table(options);
    COD_TRY(table.init(memory.pool()));
    COD_TRY(readTable(input, command.delimiter, &table));
    if (command.isJson) {
        COD_TRY(writeJsonReport(stdout, table, strcmp(command.file, "-") == 0 ? input.name() : command.file));
    } else {
        writeReport(stdout, table, input.name());
    }
    *done = {table.rows(), "row"};
    return COD_SUCCESS;
}

}  // namespace vel
