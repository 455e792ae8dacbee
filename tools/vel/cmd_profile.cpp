#include <cstring>

#include <vel_infra/error/ani_error_base.h>

#include "codepage_folder.h"
#include "commands.h"
#include "csv_reader.h"
#include "input_file.h"
#include "printable.h"
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

bool isOfUtf8(const CodCollation &collation) {
    return collation.collationId / (CodUint32{__SORT_METHOD_COUNT__} * __CASE_MODE_COUNT__) == UTF8;
}

// With the code pages that it needs: all but the order of bytes look at case or weights.
CodResult prepareCollation(const char *name, const CodCollation **collation) {
    const CodCollation *const bytewise = codGetCollation(UTF8, BINARY, CASE_SENS);
    *collation = bytewise;
    if (name == nullptr) {
        return COD_SUCCESS;
    }
    const CodText text = {const_cast<char *>(name), static_cast<CodUint32>(strlen(name)), 0};
    if (codGetCollationByName(&text, collation) != COD_SUCCESS || !isOfUtf8(**collation)) {
        codCleanError();
        return codRaise(ERR_CMM_INVALID_COLLATION_NAME, PrintableName(name).str());
    }
    return *collation == bytewise ? COD_SUCCESS : loadCodepages(nullptr);
}

}  // namespace

CodResult runProfile(const ProfileCommand &command, WorkDone *done) {
    const CodCollation *collation = nullptr;
    COD_TRY(prepareCollation(command.collation, &collation));
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    WorkMemory memory;
    COD_TRY(memory.init());
    TableProfileOptions options = {};
    options.name = input.name();
    options.hasHeader = command.hasHeader;
    options.columns = command.columns;
    options.collation = collation;
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
