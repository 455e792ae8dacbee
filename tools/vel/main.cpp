#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include <vel_infra/error/ani_error_base.h>

#include "commands.h"
#include "printable.h"
#include "run_log.h"

namespace {

enum ExitStatus { kExitSuccess = 0, kExitFailure = 1, kExitUsage = 2 };

constexpr char kProfileHelp[] = "Statistics of the columns of a CSV file.";

constexpr char kProfileDetails[] =
    "For every column: rows, empty fields, distinct values, the shortest and the longest value with their bytes, and the five most\n"
    "common values. The last line tells rows and columns: a report without it is not whole.\n"
    "\n"
    "Fields are taken as they stand, blanks included; a field may be quoted with \" and then hold delimiters, line ends and doubled\n"
    "quotes. Empty lines between rows are skipped. Rows are counted from 1, the header included. An empty field is counted as empty and\n"
    "is no value: it is not among the distinct, shortest, longest and most common ones. Of several shortest or longest values the first\n"
    "is shown. Values are cut to fit a line; control characters and bytes that are not UTF-8 are shown as \\n, \\t or \\xNN.\n"
    "\n"
    "A column of texts has four lines more: whether all values are UTF-8, and else the row of the first one that is not; the longest\n"
    "value in characters, \"-\" where not all are UTF-8; and the minimum and the maximum by the collation. Collations are UTF8_BINARY_CS,\n"
    "the order of the bytes, UTF8_PINYIN_CS, Chinese characters by pinyin behind all others, and UTF8_GENERAL_CS, letters together with\n"
    "their other case; with CI instead of CS case does not count. Of equal values the first is shown.\n"
    "\n"
    "A column whose values all are decimal numbers, with at most 38 digits, has five lines more: the smallest NUMBER(precision, scale)\n"
    "that holds them, minimum, maximum, exact sum and mean. When all are whole numbers of at most 64 bits, three lines tell the bits that\n"
    "each value takes when the column is packed: as it stands, less the smallest value, and as the step from the value before; \"-\" "
    "where\n"
    "a negative value or a falling one does not allow it.\n"
    "\n"
    "A column whose values all are dates of ISO 8601, such as 2026-11-21, 2026-11-21T09:05:07.5 or 2026-11-21 09:05+08:00, has four lines\n"
    "more: DATE, or TIMESTAMP when any of them has a time of day, the earliest and the latest one, and the span between them in days, or\n"
    "as +DAYS HOURS:MINUTES:SECONDS. A value with a zone counts as UTC.\n"
    "\n"
    "Memory does not grow with the number of rows. A column's counts are exact up to 65,536 distinct values or 8 MiB of them, about 60\n"
    "bytes added to each, less with more than 64 columns. Beyond that rare values are forgotten. The number of distinct values is then\n"
    "an estimate, marked \"~\", with a standard error of 0.8 percent. A count marked \"~\" is how often the value was met for certain,\n"
    "and the most that it can have been stands behind it; a count without mark is exact. With up to 64 columns, no value in more than a\n"
    "thousandth of the rows is forgotten.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

constexpr char kLogHelp[] = "Levels, error codes and times of a run log.";

constexpr char kLogDetails[] =
    "The first and the last time, the lines of every level and of every error code with their first and last times, and the lines that\n"
    "do not begin as those of a run log do, such as the further lines of a message with line feeds in it. The most frequent code comes\n"
    "first, equally frequent ones by number, each with its name or - when it has none. First and last are the earliest and the latest\n"
    "time, whatever the order of the lines. The last line tells how many lines there are: a report without it is not whole.\n"
    "\n"
    "Memory does not grow with the size of the file. Beyond 4096 different codes the lines of further ones are counted together.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

constexpr char kErrorHelp[] = "The name, message template and SQL state of an error code.";

constexpr char kPackHelp[] = "Pack a column of whole numbers of a CSV file.";

constexpr char kPackDetails[] =
    "Every field of the column must be a whole number from 0 to 4294967295, with digits alone and no leading zeros, so that vel unpack\n"
    "writes the same text again. One line tells the values, the bytes of the file, bits for each value, and the part of the text that the\n"
    "file takes. The file appears when it is whole, and replaces one of the same name; after a failure there is none.\n"
    "\n"
    "Memory does not grow with the number of rows.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

constexpr char kUnpackHelp[] = "Write a packed column as text.";

constexpr char kUnpackDetails[] =
    "The name of the column is the first line, quoted as CSV where need be; then every value has a line. When the file turns out not to "
    "be\n"
    "whole, the values before the fault have been written: the exit status and the message tell.\n"
    "\n"
    "Memory does not grow with the size of the file.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

constexpr char kConvertHelp[] = "Convert a text from one character set to another.";

constexpr char kConvertDetails[] =
    "Character sets: ASCII, GBK, GB18030, UTF8, ISO88591, UTF16 (little-endian), and names that they have elsewhere, such as UTF-8, latin1 "
    "and\n"
    "cp936. A character that the bytes do not make, or that the other set lacks, ends the conversion; the message tells its offset, and\n"
    "what stands before it has been written to standard output. An output file appears when it is whole; after a failure there is none.\n"
    "\n"
    "Memory does not grow with the size of the file.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

constexpr char kCodepageHelp[] = "The files of code pages.";
constexpr char kVerifyHelp[] = "Compare every code of every code page with the system's iconv.";

constexpr char kVerifyDetails[] =
    "The files are those of the folder given; else those of admin/codepage in the folder that VELDB_HOME names; else those of the install\n"
    "that the command belongs to.\n"
    "\n"
    "Every number that may be a code is converted to Unicode, and every code point from it. One line for each page tells how many\n"
    "conversions were compared and how many disagree; the first 20 of these stand before it. Sort weights have nothing to be compared\n"
    "with, and are counted. The last line is the total: a report without it is not whole.\n"
    "\n"
    "Exit status: 0 all agree, 1 failure or disagreement, 2 wrong usage.\n";

constexpr char kJsonHelp[] = "JSON text and documents of binary JSON (Velon).";

constexpr char kJsonDetails[] =
    "A document has at most 33,554,432 bytes and is validated before anything else. Faults are told with the file, those of JSON text\n"
    "with line and column in bytes, both from 1.\n"
    "\n"
    "Exit status: 0 success, 1 failure, 2 wrong usage.\n";

constexpr char kJsonPathHelp[] =
    "Where the value stands: $ is the whole, .name and .\"any name\" a member,\n"
    "[0], [last] and [last-1] an element, .* and [*] all of them";

struct CommandLine {
    CLI::App app{"Tools of the infrastructure library: look at data and errors the way the database server does.", "vel"};
    CLI::App *codepageVerify = nullptr;
    CLI::App *convert = nullptr;
    CLI::App *error = nullptr;
    CLI::App *log = nullptr;
    CLI::App *pack = nullptr;
    CLI::App *profile = nullptr;
    CLI::App *unpack = nullptr;
    CodResult (*json)(const vel::JsonCommand &command, vel::WorkDone *done) = nullptr;  // of the subcommand given
    std::string code;
    std::string file = "-";
    std::string delimiter = ",";
    std::string column;
    std::string columns;
    std::string collation;
    std::string output;
    std::string path;
    std::string logFolder;
    std::string codepageFolder;
    std::string from;
    std::string to;
    bool hasNoHeader = false;
    bool isJson = false;  // the report or the file is JSON text
    bool isIndented = false;
    bool hasTypedDoubles = false;
    CLI::Option *columnsOption = nullptr;
    CLI::Option *collationOption = nullptr;
};

// A fault is a text; none is an empty one.
std::string checkDelimiter(std::string &text) {
    if (text == "\\t" || text == "tab") {
        text = "\t";
    }
    if (text.size() != 1 || text[0] == '"' || text[0] == '\n' || text[0] == '\r') {
        return "the delimiter must be one byte, and neither a quote nor a line end";
    }
    return {};
}

std::string checkFolder(std::string &text) {
    return text.empty() ? "the folder has no name" : "";
}

// A file is written in more than one go, which standard output does not allow.
std::string checkOutput(std::string &text) {
    return text.empty() || text == "-" ? "the output must be a file" : "";
}

CLI::App *declareCommand(CommandLine *line, CLI::App *parent, const char *name, const char *help) {
    CLI::App *command = parent->add_subcommand(name, help);
    command->add_option("--log", line->logFolder, "Keep a log of the command's own work in run.log in this folder")
        ->type_name("DIR")
        ->transform(CLI::Validator(checkFolder, "", "folder"));
    return command;
}

void declareFile(CommandLine *line, CLI::App *command) {
    command->add_option("FILE", line->file, "The file to read; standard input when absent or -")->type_name("");
}

void declareCsv(CommandLine *line, CLI::App *command) {
    declareFile(line, command);
    command->add_option("-d,--delimiter", line->delimiter, "One byte between fields, \\t or tab for a tabulator; a comma when absent")
        ->type_name("C")
        ->transform(CLI::Validator(checkDelimiter, "", "delimiter"));
    command->add_flag("--no-header", line->hasNoHeader, "The first row is data; columns are called \"column 1\" and so on");
}

CLI::Option *declareOutput(CommandLine *line, CLI::App *command, const char *help) {
    return command->add_option("-o,--output", line->output, help)->type_name("OUT")->transform(CLI::Validator(checkOutput, "", "output"));
}

void declarePack(CommandLine *line) {
    line->pack = declareCommand(line, &line->app, "pack", kPackHelp);
    line->pack->footer(kPackDetails);
    declareCsv(line, line->pack);
    line->pack->add_option("-c,--column", line->column, "The column, by name or number from 1; a name goes before a number")
        ->type_name("NAME")
        ->required();
    declareOutput(line, line->pack, "The packed file to write")->required();
    line->unpack = declareCommand(line, &line->app, "unpack", kUnpackHelp);
    line->unpack->footer(kUnpackDetails);
    declareFile(line, line->unpack);
}

void declareJson(CommandLine *line) {
    CLI::App *json = line->app.add_subcommand("json", kJsonHelp);
    json->require_subcommand(1);
    const auto add = [line, json](const char *name, const char *help, auto run) {
        CLI::App *command = declareCommand(line, json, name, help);
        command->footer(kJsonDetails);
        command->callback([line, run] { line->json = run; });
        declareFile(line, command);
        return command;
    };
    add("check", "Validate a document and tell its type, values and bytes.", vel::runJsonCheck);
    CLI::App *encode = add("encode", "JSON text to a document.", vel::runJsonEncode);
    declareOutput(line, encode, "The document to write")->required();
    CLI::App *decode = add("decode", "A document to JSON text.", vel::runJsonDecode);
    declareOutput(line, decode, "The text file to write; standard output when absent");
    decode->add_flag("--indent", line->isIndented, "One member or element a line");
    decode->add_flag("--typed-doubles", line->hasTypedDoubles, "Mark binary floating point by E0, so that it is read back as such");
    CLI::App *get = add("get", "The value at a path, as JSON text.", vel::runJsonGet);
    get->get_option("FILE")->required();
    get->add_option("PATH", line->path, kJsonPathHelp)->type_name("")->required();
    CLI::App *dump = add("dump", "The bytes of a document with their meaning.", vel::runJsonDump);
    for (CLI::App *command : {get, dump}) {
        command->add_flag("--json", line->isJson, "The file is JSON text rather than a document");
    }
}

void declareConvert(CommandLine *line) {
    line->convert = declareCommand(line, &line->app, "convert", kConvertHelp);
    line->convert->footer(kConvertDetails);
    declareFile(line, line->convert);
    line->convert->add_option("--from", line->from, "The character set of the file")->type_name("CHARSET")->required();
    line->convert->add_option("--to", line->to, "The character set wanted")->type_name("CHARSET")->required();
    declareOutput(line, line->convert, "The file to write instead of standard output");
}

void declareCodepage(CommandLine *line) {
    CLI::App *codepage = line->app.add_subcommand("codepage", kCodepageHelp);
    codepage->require_subcommand(1);
    line->codepageVerify = declareCommand(line, codepage, "verify", kVerifyHelp);
    line->codepageVerify->footer(kVerifyDetails);
    line->codepageVerify->add_option("--dir", line->codepageFolder, "The folder of the files")
        ->type_name("DIR")
        ->transform(CLI::Validator(checkFolder, "", "folder"));
}

void declare(CommandLine *line) {
    line->app.require_subcommand(1);
    line->error = declareCommand(line, &line->app, "error", kErrorHelp);
    line->error->add_option("CODE", line->code, "A number, a code such as VEL-00103, or a name")->required()->type_name("");
    line->log = declareCommand(line, &line->app, "log", kLogHelp);
    line->log->footer(kLogDetails);
    declareFile(line, line->log);
    line->profile = declareCommand(line, &line->app, "profile", kProfileHelp);
    line->profile->footer(kProfileDetails);
    declareCsv(line, line->profile);
    line->columnsOption = line->profile
                              ->add_option("-c,--columns", line->columns,
                                           "Only these columns, by name or number from 1, separated by commas; a name goes before a number")
                              ->type_name("LIST");
    line->collationOption =
        line->profile
            ->add_option("--collation", line->collation, "How texts are ordered, such as UTF8_GENERAL_CI; UTF8_BINARY_CS when absent")
            ->type_name("NAME");
    line->profile->add_flag("--json", line->isJson, "Write the report as JSON");
    declareJson(line);
    declarePack(line);
    declareCodepage(line);
    declareConvert(line);
}

CodResult runCommand(const CommandLine &line, vel::WorkDone *done) {
    if (*line.error) {
        return vel::runError({line.code.c_str()}, done);
    }
    if (*line.codepageVerify) {
        return vel::runCodepageVerify({line.codepageFolder.empty() ? nullptr : line.codepageFolder.c_str()}, done);
    }
    if (*line.convert) {
        const char *output = line.output.empty() ? nullptr : line.output.c_str();
        return vel::runConvert({line.file.c_str(), line.from.c_str(), line.to.c_str(), output}, done);
    }
    if (*line.log) {
        return vel::runLog({line.file.c_str()}, done);
    }
    if (*line.unpack) {
        return vel::runUnpack({line.file.c_str()}, done);
    }
    if (*line.pack) {
        return vel::runPack({line.file.c_str(), line.delimiter[0], !line.hasNoHeader, line.column.c_str(), line.output.c_str()}, done);
    }
    if (line.json != nullptr) {
        const char *output = line.output.empty() ? nullptr : line.output.c_str();
        return line.json({line.file.c_str(), output, line.path.c_str(), line.isJson, line.isIndented, line.hasTypedDoubles}, done);
    }
    const char *columns = line.columnsOption->count() > 0 ? line.columns.c_str() : nullptr;
    const char *collation = line.collationOption->count() > 0 ? line.collation.c_str() : nullptr;
    return vel::runProfile({line.file.c_str(), line.delimiter[0], !line.hasNoHeader, columns, collation, line.isJson}, done);
}

std::string join(int argc, char **argv) {
    std::string text = "vel";
    for (int i = 1; i < argc; i++) {
        text.append(" ").append(argv[i]);
    }
    return text;
}

int reportFailure() {
    fprintf(stderr, "%s\n", codGetErrorMsg2());
    return kExitFailure;
}

int reportUsage(const std::string &fault) {
    fprintf(stderr, "vel: %s (vel --help tells more)\n", vel::PrintableName(fault.c_str()).str());
    return kExitUsage;
}

// Help is asked for through a parse error with the code 0.
int endParsing(const CommandLine &line, const CLI::ParseError &error) {
    if (error.get_exit_code() != static_cast<int>(CLI::ExitCodes::Success)) {
        return reportUsage(error.what());
    }
    fputs(line.app.help().c_str(), stdout);
    return vel::finishOutput() == COD_SUCCESS ? kExitSuccess : reportFailure();
}

int run(int argc, char **argv) {
    CommandLine line;
    declare(&line);
    try {
        line.app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return endParsing(line, error);
    }
    vel::RunLog log;
    if (!line.logFolder.empty() && log.open(line.logFolder.c_str(), join(argc, argv).c_str()) != COD_SUCCESS) {
        return reportFailure();
    }
    vel::WorkDone done;
    if (runCommand(line, &done) != COD_SUCCESS || vel::finishOutput() != COD_SUCCESS) {
        log.noteFailure();
        return reportFailure();
    }
    log.noteEnd(done);
    return kExitSuccess;
}

// A descriptor that is closed from the start would be taken by the first file that is opened, which would then be written to as standard
// output. Opened the wrong way round, it fails as before.
void occupyStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) < 0) {
            (void)open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    occupyStandardDescriptors();
    signal(SIGPIPE, SIG_IGN);  // a reader that left is reported as a failed write
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        fprintf(stderr, "vel: %s\n", vel::PrintableName(error.what()).str());
        return kExitFailure;
    }
}
