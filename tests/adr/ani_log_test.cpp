#include <vel_infra/adr/ani_log.h>

#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <filesystem>
#include <set>

#include "support/memory_support.h"

namespace {
using testing::MatchesRegex;
namespace fs = std::filesystem;
const std::string kDir = (access("/dev/shm", W_OK) == 0 ? "/dev/shm/log." : "/tmp/log.") + std::to_string(getpid());
const std::string kPath = kDir + "/run.log", kHead = "[-0-9]{10} [:0-9]{8}\\.[0-9]{3} [0-9]+ \\[WARN\\] ", kFar(256, 'x');
const char kName[] = "%s/run.log", kRotated[] = "%s/run-%04u%02u%02u%02u%02u%02u.log";
const CodDate kStart = 1234567918123456;  // 2009-02-13 23:31:58.123 UTC
CodTimer timer;
const auto log = [](const std::string &text) { runLogCallback(COD_LOG_LEVEL_WARN, 0, "f.cpp", "f", 1, "%s", text.c_str()); };
const auto setNames = [](const char *name, const char *rotated) { EXPECT_EQ(aniSetRunLogNameFmt(name, rotated), COD_SUCCESS); };
const auto printed = [](auto body) { return testing::internal::CaptureStdout(), body(), testing::internal::GetCapturedStdout(); };
const auto files = [] { return std::set<fs::path>(fs::directory_iterator(kDir), fs::directory_iterator()); };
const auto read = [](const fs::path &path) { return std::string(std::istreambuf_iterator<char>(std::ifstream(path).rdbuf()), {}); };
const auto takeLines = [] { return std::pair{read(kPath), fs::remove(kPath)}.first; };

struct RunLog : memory_support::CleanState {
    RunLog() {
        fs::create_directory(kDir), timer = {kStart, 0, 0, 60, false, false, {}, nullptr};
        EXPECT_EQ(aniInitRunLog(kDir.c_str(), &timer), COD_SUCCESS);
    }
    ~RunLog() override {
        aniCloseRunLog(), fs::remove_all(kDir), setNames(kName, kRotated);
        aniSetRunLogSize(COD_RUN_LOG_SIZE), aniSetRunLogCount(COD_RUN_LOG_COUNT), aniSetRunLogDistinctNames(false);
        EXPECT_EQ(aniGetRunLogDropped(), 0u);
    }
};

TEST_F(RunLog, LinesHoldTimeThreadLevelCodeAndMessage) {
    const std::string kLong(5000, 'x'), head = "2009-02-14 00:31:58.123 " + std::to_string(gettid()) + " ";
    for (auto [level, code, text] : {std::tuple{4, 0, "text %d"}, {5, 301, "a\nb"}, {9, -7, ""}, {6, 0, kLong.c_str()}}) {
        runLogCallback(static_cast<CodLogLevel>(level), code, "f.cpp", "f", 1, "%s|%d%%\n\n", text, 7);
        aniSetLogOff(true), log("off"), aniSetLogOff(false);
    }
    std::string lines = head + "[WARN] text %d|7%\n" + head + "[ERROR][errno=00301]: a\nb|7%\n" + head + "[UNKNOWN][errno=-0007]: |7%\n";
    EXPECT_EQ(takeLines(), lines + (head + "[FATAL] " + kLong).substr(0, 1999) + "\n");
    // %hhn sets the clock on between its two readings: by 4 x 65536 microseconds, or by 4 x 256.
    for (int byte : {2, 1, 2}) {
        timer.now = kStart & ~0xFFFFFFll;
        runLogCallback(COD_LOG_LEVEL_WARN, 0, "f.cpp", "f", 1, "wait%hhn", reinterpret_cast<signed char *>(&timer.now) + byte);
        aniEnableLogBlockTime();
    }
    EXPECT_THAT(takeLines(), MatchesRegex("(" + kHead + "wait\n){2}" + kHead + "wait\\(block time: 262 ms\\)\n"));
    setenv("TZ", "AAA-05:45", 1), timer.now = 0, log("now"), unsetenv("TZ");
    std::tm fields{};
    strptime(takeLines().c_str(), "%Y-%m-%d %H:%M:%S.", &fields);
    EXPECT_NEAR(static_cast<double>(timegm(&fields) - 345 * 60), static_cast<double>(std::time(nullptr)), 2);
}

TEST_F(RunLog, WhatCannotBeUsedIsRefused) {
    const std::string kFits = kDir + "/" + std::string(231 - kDir.size(), 'x'), kLong = kFits + "x", kNone = kDir + "/none";
    EXPECT_TRUE(fs::create_directory(kLong) && fs::create_directory(kFits));
    EXPECT_EQ(printed([&] { EXPECT_EQ(aniInitRunLog(kFits.c_str(), nullptr) | aniInitRunLog((kFits + "/").c_str(), nullptr), 0); }), "");
    codResetLogCallback();
    for (const std::string &path : std::vector<std::string>{"", kLong, kLong + "/", kFar, kNone, kPath, "/proc"}) {
        std::string text = printed([&] { EXPECT_EQ(aniInitRunLog(path.c_str(), nullptr), COD_ERROR) << path; });
        EXPECT_THAT(text, MatchesRegex(path.size() - 1 > 231 ? ".+" : "create file " + path + "/run.log failed, .*\n"));
        EXPECT_TRUE(codGetLogCallback() == log2Stdout && codGetErrorStackDepth() == 0);
    }
    for (std::string name : {"1TRACE", "1all", "2dEbug", "3Info", "4WARN", "5error", "6FATAL", "7off", "0VERBOSE", "0INFO ", "0"}) {
        codSetLogLevel(COD_LOG_LEVEL_WARN);
        EXPECT_TRUE(aniIsRunLogLevelValid(&name[1]) == (name[0] > '0') && aniSetRunLogLevel(&name[1]) == (name[0] > '0' ? 0 : -1)) << name;
        EXPECT_EQ(codGetLogLevel(), name[0] > '0' ? name[0] - '0' : 4) << name;
    }
    for (const char *format : {&kFar[0], "%s/%lu", "%s/%s", "%s/%*u", "%u/%s", "%s/%n", "%s/%", "%s%u%u%u%u%u%u%u"}) {
        EXPECT_EQ(aniSetRunLogNameFmt(format, kRotated) & aniSetRunLogNameFmt(kName, format), COD_ERROR) << format;
    }
    EXPECT_EQ(aniSetRunLogLevel(nullptr) & aniSetRunLogNameFmt(nullptr, kRotated) & aniSetRunLogNameFmt(kName, nullptr), COD_ERROR);
}

TEST_F(RunLog, RotatesOnceLargerAndKeepsTheNewestFiles) {
    // Distinct names, files kept, seconds between two rotations, and how the names left end, with their content.
    for (CodDate base = kStart;
         std::string row : {"0 9 1 959=0 158=1 159=2 200=3 201=4 ", "0 5 1 158=1 159=2 200=3 201=4 ", "0 9 0 959=0 158=4 ", "0 0 1 ",
                            "1 9 0 959=0 158=1 159=2 200=3 201=4 ", "0 3 1 200=3 201=4 ", "1 3 0 200=3 201=4 ", "0 1 1 "}) {
        fs::remove_all(kDir), base += 3600000000;
        fs::create_directories(kDir + "/run-19990101000000.log");
        for (const char *foreign : {"run-20010101000000.log.bak", "run-2001.log", "run-200101010000000.log", "run-2001010100000x.log",
                                    "run- 0010101000000.log", "run-+0010101000000.log", "rerun-20010101000000.log"}) {
            std::ofstream(kDir + "/" + foreign) << "mine";
        }
        log("0");
        fs::rename(kPath, kDir + "/run-19981231235959.log"), aniCloseRunLog();
        aniSetRunLogSize(fs::file_size(kDir + "/run-19981231235959.log"));
        aniSetRunLogCount(static_cast<CodUint32>(row[2] - '0')), aniSetRunLogDistinctNames(row[0] == '1');
        for (int i = 0; i < 8; i++) {
            timer.now = base + i / 2 * (row[4] - '0') * 1000000, log(std::to_string(i / 2 + 1));
        }
        std::string left = row.substr(0, 6), others;
        for (const fs::path &path : files()) {
            std::string name = path.filename(), content = fs::is_directory(path) ? "/" : read(path);
            bool isOurs = content.ends_with("\n");
            (isOurs ? left : others) += isOurs ? name.substr(15, 3) + "=" + content.substr(content.size() - 2, 1) + " " : content;
        }
        EXPECT_EQ(left + others, row + "mineminemine/minemineminemine");
    }
}

TEST_F(RunLog, FailuresArePrintedAndDroppedMessagesToldOf) {
    rlimit limit{};
    getrlimit(RLIMIT_FSIZE, &limit), signal(SIGXFSZ, SIG_IGN);
    auto allow = [limit](rlim_t size) mutable { limit.rlim_cur = size, setrlimit(RLIMIT_FSIZE, &limit); };
    const std::tuple<std::string, std::function<void()>, std::function<void()>> kRows[] = {
        {"open file .*/run.log failed, Is a directory", [] { takeLines(), fs::create_directory(kPath); }, [] { fs::remove(kPath); }},
        {"create file .*/run.log failed, No such file or directory\n", [] { fs::remove_all(kDir); }, [] { fs::create_directory(kDir); }},
        {"failed to write log file, errno 27\n", [&] { allow(fs::file_size(kPath) + 7); }, [&] { allow(limit.rlim_cur); }}};
    for (const auto &[text, spoil, mend] : kRows) {
        log(std::string(999, 'x')), spoil();
        std::string kept = text[0] == 'f' ? read(kPath) : "", told = kHead + "[^\n]*3[^\n]*\n", after = kHead + "after\n";
        EXPECT_THAT(printed([] { log("1"), log("2"), log("3"); }), MatchesRegex("(" + text + "){3}"));
        EXPECT_EQ(aniGetRunLogDropped(), 3u);
        mend(), log("after");
        std::string now = takeLines();
        EXPECT_TRUE(now.starts_with(kept));
        EXPECT_THAT(now.substr(kept.size()), MatchesRegex(told + after + "|" + after + told));
    }
    signal(SIGXFSZ, SIG_DFL), aniSetRunLogSize(0), setNames(kName, "%s/gone/%04u-%u-%2d_%u%u%u");
    for (int round = 0; round < 2; round++) {
        std::string text = printed([] { log("a"), log("b"), fs::create_directory(kDir + "/gone"), log("c"); });
        EXPECT_EQ(text, "rename log file " + kPath + " to " + kDir + "/gone/2009-2-14_03158 failed, errno 2\n");
        EXPECT_TRUE(read(kPath) == "" && fs::remove_all(kDir + "/gone") == 2);
    }
}

TEST_F(RunLog, ThreadsAndChildrenLoseNoLine) {
    timer = {};
    EXPECT_EQ(codStartTimer(&timer), COD_SUCCESS);
    aniSetRunLogCount(1000), aniSetRunLogDistinctNames(true);
    // Each of eight writes its number with 0, 1, 2 ...; in the second round through a child now and then.
    for (CodUint32 lines : {COD_WITH_TSAN || COD_WITH_ASAN ? 5000u : 100000u, 1000u}) {
        EXPECT_EQ(aniInitRunLog(kDir.c_str(), lines == 1000 ? nullptr : &timer), COD_SUCCESS);
        aniSetRunLogSize(lines == 1000 ? COD_RUN_LOG_SIZE : 40 * lines);
        memory_support::onThreads(8, [&](CodUint32 id) {
            for (CodUint32 i = 0; i < lines; i++) {
                int child = lines == 1000 && i % 100 == 0 ? fork() : -1, status = 0;
                child == 0 ? alarm(20) : 0;
                child <= 0 ? runLogCallback(COD_LOG_LEVEL_WARN, 0, "f.cpp", "f", 1, "%u %u end", id - 1, i) : void();
                child == 0 ? _exit(0) : void();
                EXPECT_TRUE(child < 0 || (waitpid(child, &status, 0) == child && status == 0)) << status;
            }
        });
        CodUint32 next[8] = {}, id = 0, i = 0;
        for (const fs::path &path : files()) {
            EXPECT_THAT(path.filename(), MatchesRegex("run(-[0-9]{14})?\\.log"));
            std::ifstream in(path);
            for (std::string line; std::getline(in, line);) {
                int found = std::sscanf(line.c_str(), "%*[-0-9] %*[0-9:.] %*d [WARN] %u %u", &id, &i);
                ASSERT_TRUE(found == 2 && line.ends_with(" end") && i == next[id]++) << line;
            }
            fs::remove(path);
        }
        EXPECT_EQ(std::count(next, next + 8, lines), 8);
    }
    codStopTimer(&timer);
}
}  // namespace
