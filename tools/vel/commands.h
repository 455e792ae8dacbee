#ifndef VEL_COMMANDS_H
#define VEL_COMMANDS_H

#include <vel_infra/base/cod_types.h>

namespace vel {

// What a command has been through, for its run log.
struct WorkDone {
    CodUint64 count = 0;
    const char *unit = "row";
};

// Each command writes to standard output, and fills *done or returns COD_ERROR with the reason raised.

struct ErrorCommand {
    const char *code;  // a number, "VEL-00103" or a name
};
CodResult runError(const ErrorCommand &command, WorkDone *done);

struct LogCommand {
    const char *file;  // "-": standard input
};
CodResult runLog(const LogCommand &command, WorkDone *done);

struct ProfileCommand {
    const char *file;  // "-": standard input
    char delimiter;
    bool hasHeader;
    const char *columns;    // null: all
    const char *collation;  // its name; null: UTF8_BINARY_CS
    bool isJson;            // how the report is written
};
CodResult runProfile(const ProfileCommand &command, WorkDone *done);

struct PackCommand {
    const char *file;  // "-": standard input
    char delimiter;
    bool hasHeader;
    const char *column;  // its name, or its number from 1
    const char *output;
};
CodResult runPack(const PackCommand &command, WorkDone *done);

struct UnpackCommand {
    const char *file;  // "-": standard input
};
CodResult runUnpack(const UnpackCommand &command, WorkDone *done);

struct JsonCommand {
    const char *file;    // "-": standard input
    const char *output;  // null: standard output
    const char *path;    // of get
    bool isText;         // the file is JSON text
    bool isIndented;
    bool hasTypedDoubles;
};
CodResult runJsonCheck(const JsonCommand &command, WorkDone *done);
CodResult runJsonEncode(const JsonCommand &command, WorkDone *done);
CodResult runJsonDecode(const JsonCommand &command, WorkDone *done);
CodResult runJsonGet(const JsonCommand &command, WorkDone *done);
CodResult runJsonDump(const JsonCommand &command, WorkDone *done);

struct ConvertCommand {
    const char *file;  // "-": standard input
    const char *from;  // names of charsets, aliases too
    const char *to;
    const char *output;  // null: standard output
};
CodResult runConvert(const ConvertCommand &command, WorkDone *done);

struct CodepageCommand {
    const char *folder;  // null: by VELDB_HOME, else that of the install
};
// Errors: ERR_CMM_INVALID_CODEPAGE too, behind the whole report, when a code disagrees.
CodResult runCodepageVerify(const CodepageCommand &command, WorkDone *done);

// Flushes standard output, which is standard error from then on. Errors: ERR_CMM_FILE_OPER when anything written to it was lost.
CodResult finishOutput();

}  // namespace vel

#endif
