#include <unistd.h>

#include <cstdio>

#include <vel_infra/error/ani_error_base.h>

#include "commands.h"
#include "csv_reader.h"
#include "input_file.h"
#include "table_packer.h"

namespace vel {

namespace {

CodResult packTable(const PackCommand &command, const InputFile &input, TablePacker *table, ColumnPacker *packer) {
    CsvReader reader(input.name(), table);
    COD_TRY(reader.init(command.delimiter));
    COD_TRY(input.readAll(&reader, "row"));
    COD_TRY(table->finish());
    return packer->finish();
}

void printSummary(const OutputFile &output, CodUint64 count, CodUint64 textBytes) {
    char values[kUnitsSize];
    char bytes[kUnitsSize];
    const auto size = static_cast<double>(output.size());
    const double bits = count > 0 ? 8 * size / static_cast<double>(count) : 0;
    printf("%s, %s, %.1f bits each, %.2f of the text, %s\n", formatUnits(count, "value", values), formatUnits(output.size(), "byte", bytes),
           bits, size / static_cast<double>(textBytes), output.name());
}

}  // namespace

CodResult runPack(const PackCommand &command, WorkDone *done) {
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    OutputFile output(command.output);
    COD_TRY(output.create());
    ColumnPacker packer(&output);
    COD_TRY(packer.init());
    TablePacker table({input.name(), command.hasHeader, command.column}, &packer);
    COD_TRY(packTable(command, input, &table, &packer));
    COD_TRY(output.finish());
    printSummary(output, packer.count(), table.textBytes());
    *done = {packer.count(), "value"};
    return COD_SUCCESS;
}

CodResult runUnpack(const UnpackCommand &command, WorkDone *done) {
    InputFile input(command.file);
    COD_TRY(input.openForReading());
    ColumnUnpacker unpacker(input.name(), stdout);
    COD_TRY(unpacker.init());
    // On a terminal the values themselves show how far it is.
    COD_TRY(input.readAll(&unpacker, isatty(STDOUT_FILENO) == 1 ? nullptr : "value"));
    *done = {unpacker.rows(), "value"};
    return COD_SUCCESS;
}

}  // namespace vel
