#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using testing::MatchesRegex;

struct Outcome {
    int status;  // of exit, or 128 and the signal
    std::string out;
    std::string err;
};

// Runs the command in a folder of its own, with standard input and output as files or devices in it.
class Command : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/vel_command_XXXXXX";
        ASSERT_NE(mkdtemp(name), nullptr);
        folder = name;
    }
    void TearDown() override {
        ASSERT_EQ(system(("chmod -R u+rwx " + folder + " && rm -r " + folder).c_str()), 0);
    }

    void writeFile(const std::string &name, const std::string &bytes) const {
        std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
    }
    std::string readFile(const std::string &name) const {
        std::ostringstream text;
        text << std::ifstream(folder + "/" + name, std::ios::binary).rdbuf();
        return text.str();
    }

    // output: a file or device, or a descriptor when it begins with a digit.
    Outcome run(std::vector<std::string> arguments, const std::string &input = "", const std::string &output = "out") const {
        writeFile("in", input);
        arguments.insert(arguments.begin(), VEL_COMMAND);
        const pid_t child = fork();
        if (child == 0) {
            start(arguments, output);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), readFile("out"), readFile("err")};
    }

    std::string folder;

private:
    [[noreturn]] void start(const std::vector<std::string> &arguments, const std::string &output) const {
        std::vector<char *> argv;
        for (const std::string &argument : arguments) {
            argv.push_back(const_cast<char *>(argument.c_str()));
        }
        argv.push_back(nullptr);
        if (chdir(folder.c_str()) != 0) {
            _exit(125);
        }
        dup2(open("in", O_RDONLY), STDIN_FILENO);
        dup2(isdigit(output[0]) != 0 ? atoi(output.c_str()) : open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        dup2(open("err", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        execv(VEL_COMMAND, argv.data());
        _exit(126);
    }
};

TEST_F(Command, ErrorShowsADefinition) {
    const char *expected =
        "code       VEL-00212\n"
        "name       ERR_CMM_OUT_OF_INDEX\n"
        "template   index %u is out of \\[%u, %u\\]\n"
        "SQL state  [0-9A-Z]{5}\n";
    for (const char *code : {"212", "00212", "VEL-00212", "vel-212", "ERR_CMM_OUT_OF_INDEX", "err_cmm_out_of_index"}) {
        const Outcome outcome = run({"error", code});
        EXPECT_EQ(outcome.status, 0) << code;
        EXPECT_THAT(outcome.out, MatchesRegex(expected)) << code;
        EXPECT_EQ(outcome.err, "") << code;
    }
    EXPECT_THAT(run({"error", "4412"}).out, HasSubstr("ERR_ANS_VALUE_ERROR"));
}

TEST_F(Command, ErrorRefusesWhatIsNoCode) {
    for (const char *code : {"9999999", "4294967508", "99999999999999999999", "VEL-", "VEL-ERR_CMM_OUT_OF_INDEX", "212x", "", "ERR_CMM"}) {
        const Outcome outcome = run({"error", code});
        EXPECT_EQ(outcome.status, 1) << code;
        EXPECT_EQ(outcome.out, "") << code;
        EXPECT_EQ(outcome.err, std::string("VEL-00003 invalid parameter, reason: there is no error \"") + code + "\"\n");
    }
}

TEST_F(Command, WrongUsageIsOneLineAndStatusTwo) {
    const std::vector<std::string> rows[] = {
        {},
        {"unknown"},
        {"error"},
        {"error", "1", "2"},
        {"profile", "--unknown"},
        {"profile", "a\nb", "c\nd"},
        {"profile", "--delimiter", ""},
        {"profile", "--delimiter", "ab"},
        {"profile", "--delimiter", "\""},
        {"profile", "--delimiter", "\n"},
        {"profile", "--columns", "a", "--columns", "b"},
    };
    for (const auto &arguments : rows) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 2) << testing::PrintToString(arguments);
        EXPECT_EQ(outcome.out, "");
        EXPECT_THAT(outcome.err, MatchesRegex("vel: [^\n]+\n")) << testing::PrintToString(arguments);
    }
}

TEST_F(Command, HelpGoesToStandardOutput) {
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{"--help"}, {"profile", "--help"}, {"error", "--help"}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0);
        EXPECT_THAT(outcome.out, HasSubstr("Usage: vel"));
        EXPECT_EQ(outcome.err, "");
    }
}

TEST_F(Command, ProfileReadsAFileOrStandardInput) {
    const std::string input = "a;b\n1; x\n2;\n";
    writeFile("data.csv", input);
    const Outcome file = run({"profile", "data.csv", "--delimiter", ";"});
    EXPECT_EQ(file.status, 0);
    EXPECT_EQ(file.err, "");
    EXPECT_THAT(file.out, HasSubstr("\n2 rows, 2 columns, data.csv\n"));
    EXPECT_THAT(file.out, HasSubstr("most common                   1  \" x\"\n"));
    const std::string body = file.out.substr(0, file.out.find("2 rows"));
    EXPECT_EQ(run({"profile", "-", "--delimiter=;"}, input).out, body + "2 rows, 2 columns, standard input\n");
    EXPECT_EQ(run({"profile", "-d", ";"}, input).out, body + "2 rows, 2 columns, standard input\n");
}

TEST_F(Command, ATabulatorMayBeWrittenOut) {
    for (const char *name : {"\\t", "tab", "\t"}) {
        EXPECT_THAT(run({"profile", "--delimiter", name}, "a\tb\n").out, HasSubstr("0 rows, 2 columns")) << name;
    }
}

TEST_F(Command, AHeaderAloneIsATableWithoutRows) {
    const Outcome outcome = run({"profile"}, "a\n");
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out,
              "column 1 \"a\"\n"
              "  rows                          0\n"
              "  empty                         0\n"
              "  distinct                      0\n"
              "  shortest bytes                -\n"
              "  longest bytes                 -\n"
              "\n"
              "0 rows, 1 column, standard input\n");
}

TEST_F(Command, BadInputIsOneLineAndNoReport) {
    const std::string good = "a,b,c,d\n1,2,3,4\n";
    const struct {
        const char *name;
        std::string input;
        std::vector<std::string> options;
        std::string error;
    } rows[] = {
        {"empty", "", {}, "VEL-00207 failed to parse standard input, row 1: the input is empty"},
        {"empty lines", "\n\n", {}, "VEL-00207 failed to parse standard input, row 1: the input is empty"},
        {"empty, no header", "", {"--no-header"}, "VEL-00207 failed to parse standard input, row 1: the input is empty"},
        {"too few", good + "1,2,3\n", {}, "VEL-00207 failed to parse standard input, row 3: expected 4 fields, found 3"},
        {"too many", good + "1,2,3,4,5,6\n", {}, "VEL-00207 failed to parse standard input, row 3: expected 4 fields, found 6"},
        {"too few at the end", good + "1", {}, "VEL-00207 failed to parse standard input, row 3: expected 4 fields, found 1"},
        {"one column", "a\n1,2\n", {}, "VEL-00207 failed to parse standard input, row 2: expected 1 field, found 2"},
        {"unclosed quote",
         good + "1,\"2,3,4\n1,2,3,4\n",
         {},
         "VEL-00207 failed to parse standard input, row 3: field 2 has no closing quote"},
        {"stray quote",
         good + "1,2\",3,4\n",
         {},
         "VEL-00207 failed to parse standard input, row 3: field 2 has a quote in the wrong place"},
        {"zero byte",
         good + std::string("1,2,\0,4\n", 8),
         {},
         "VEL-00207 failed to parse standard input, row 3: field 3 holds a zero byte"},
        {"column selected twice",
         good,
         {"--columns", "a,a"},
         "VEL-00003 invalid parameter, reason: --columns names a column twice: \"a\" in standard input"},
        {"column named twice", "a,b,a\n", {}, "VEL-00207 failed to parse standard input, row 1: column \"a\" is named twice"},
        {"control characters in a name",
         "\"a\n\",\"a\n\"\n",
         {},
         "VEL-00207 failed to parse standard input, row 1: column \"a\\n\" is named twice"},
        {"unknown column",
         good,
         {"--columns", "a,e\n"},
         "VEL-00003 invalid parameter, reason: there is no column \"e\\n\" in standard input"},
        {"huge field",
         good + "1," + std::string(100'000'000, 'x') + ",3,4\n",
         {},
         "VEL-00207 failed to parse standard input, row 3: field 2 is longer than 1,048,576 bytes"},
    };
    for (const auto &row : rows) {
        std::vector<std::string> arguments = {"profile"};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        const Outcome outcome = run(arguments, row.input);
        EXPECT_EQ(outcome.status, 1) << row.name;
        EXPECT_EQ(outcome.out, "") << row.name;
        EXPECT_EQ(outcome.err, row.error + "\n") << row.name;
    }
}

TEST_F(Command, FilesThatCannotBeReadAreNamed) {
    mkdir((folder + "/dir").c_str(), 0700);
    const struct {
        const char *file;
        const char *error;
    } rows[] = {
        {"missing.csv", "VEL-00313 failed to open file missing.csv, errno 2, [^\n]*\n"},
        {"bad\nname\x1b", "VEL-00313 failed to open file bad\\\\nname\\\\x1B, errno 2, [^\n]*\n"},
        {"dir", "VEL-00313 failed to open file dir, errno 21, [^\n]*\n"},
        // Opens, and fails at the first byte.
        {"/proc/self/mem", "VEL-00207 failed to parse /proc/self/mem, row 1: errno 5, [^\n]*; VEL-00328 read file failed\n"},
    };
    for (const auto &row : rows) {
        const Outcome outcome = run({"profile", row.file});
        EXPECT_EQ(outcome.status, 1) << row.file;
        EXPECT_EQ(outcome.out, "") << row.file;
        EXPECT_THAT(outcome.err, MatchesRegex(row.error));
    }
    if (geteuid() != 0) {
        writeFile("secret.csv", "a\n");
        chmod((folder + "/secret.csv").c_str(), 0);
        EXPECT_THAT(run({"profile", "secret.csv"}).err, MatchesRegex("VEL-00313 failed to open file secret.csv, errno 13, [^\n]*\n"));
    }
}

TEST_F(Command, LostOutputIsAFailure) {
    int pipe_[2];
    ASSERT_EQ(pipe(pipe_), 0);
    close(pipe_[0]);
    const std::string closed = std::to_string(pipe_[1]);
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"profile", "--no-header"}, {"error", "1"}, {"--help"}, {"profile", "--help"}}) {
        const struct {
            std::string output;
            const char *error;
        } rows[] = {
            {closed, "VEL-00301 file operation \"write to standard output\" failed, errno 32, [^\n]*\n"},
            {"/dev/full", "VEL-00301 file operation \"write to standard output\" failed, errno 28, [^\n]*\n"},
        };
        for (const auto &row : rows) {
            // Enough for a report that is written in several pieces.
            const Outcome outcome = run(arguments, std::string(100, ',') + "\n", row.output);
            EXPECT_EQ(outcome.status, 1) << row.output;
            EXPECT_THAT(outcome.err, MatchesRegex(row.error));
        }
    }
    close(pipe_[1]);
}

}  // namespace
