#include <vel_infra/adr/ani_alert.h>
#include <vel_infra/adr/ani_log_base.h>

#include <cstdarg>
#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "support/memory_support.h"

namespace {

// What action writes to standard output, at most a pipe's buffer of it.
template <typename Action>
std::string stdoutOf(Action action) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::fflush(stdout);
    int keep = dup(1);
    dup2(ends[1], 1);
    close(ends[1]);
    action();
    std::fflush(stdout);
    dup2(keep, 1);
    close(keep);
    std::string text(65536, '\0');
    ssize_t length = 0;
    for (ssize_t got; (got = read(ends[0], text.data() + length, text.size() - static_cast<std::size_t>(length))) > 0;) {
        length += got;
    }
    close(ends[0]);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::vector<std::string> messages;
void keepMessage(CodLogLevel level, CodInt32 code, const char *, const char *, CodInt32, const char *fmt, ...) {
    char text[1024];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    messages.push_back(std::to_string(level) + "|" + std::to_string(code) + "|" + text);
}

class LoggerTest : public testing::Test {
protected:
    LoggerTest() {
        messages.clear();
    }
    ~LoggerTest() override {
        codSetLogLevel(COD_LOG_LEVEL_ERROR);
        codResetLogCallback();
        aniSetAlertCallback(nullptr);
    }
};

TEST_F(LoggerTest, IsOneForTheProcessAndStartsAtErrorOnStandardOutput) {
    EXPECT_EQ(codGetLogLevel(), COD_LOG_LEVEL_ERROR);
    EXPECT_EQ(codGetLogCallback(), log2Stdout);
    codSetLogLevel(COD_LOG_LEVEL_INFO);
    EXPECT_EQ(codGetLogger()->level, COD_LOG_LEVEL_INFO);
    codGetLogger()->level = COD_LOG_LEVEL_WARN;
    EXPECT_EQ(codGetLogLevel(), COD_LOG_LEVEL_WARN);
    for (auto reset : {+[] { codSetLogCallback(nullptr); }, +[] { codResetLogCallback(); }}) {
        codSetLogCallback(keepMessage);
        EXPECT_EQ(codGetLogger()->log, keepMessage);
        reset();
        EXPECT_EQ(codGetLogCallback(), log2Stdout);
    }
}

TEST_F(LoggerTest, LevelsHaveDescriptions) {
    const char *kNames[] = {"UNKNOWN", "TRACE", "DEBUG", "INFO", "WARN", "ERROR", "FATAL", "OFF"};
    for (int level = 0; level <= COD_LOG_OFF; level++) {
        EXPECT_STREQ(codGetLogLevelDesc(static_cast<CodLogLevel>(level)), kNames[level]);
    }
}

TEST_F(LoggerTest, StandardOutputGetsMessagesOfTheLevelAndAbove) {
    const char *kHeads[] = {"", "[TRACE]", "[DEBUG]", "[ INFO]", "[ WARN]", "[ERROR]", "[FATAL]"};
    for (int limit = COD_LOG_ALL; limit <= COD_LOG_OFF; limit++) {
        codSetLogLevel(static_cast<CodLogLevel>(limit));
        for (int level = COD_LOG_LEVEL_TRACE; level <= COD_LOG_LEVEL_FATAL; level++) {
            std::string written = stdoutOf([level] {
                log2Stdout(static_cast<CodLogLevel>(level), 0, "f.cpp", "f", 1, "plain %s\n", "%d");
                log2Stdout(static_cast<CodLogLevel>(level), 301, "f.cpp", "f", 1, "%d%%", 7);
                log2Stdout(static_cast<CodLogLevel>(level), 123456, "f.cpp", "f", 1, "|%s", std::string(9000, 'x').c_str());
            });
            std::string head = kHeads[level];
            std::string expected = head + ": plain %d\n" + head + "[errno=00301]: 7%" + head + "[errno=123456]: |" + std::string(9000, 'x');
            EXPECT_EQ(written, level < limit ? "" : expected) << limit << " " << level;
        }
    }
}

std::vector<std::string> alerts;

TEST_F(LoggerTest, AlertsGoToTheReceiverElseToTheLoggerAtWarn) {
    codSetLogCallback(keepMessage);
    codSetLogLevel(COD_LOG_LEVEL_WARN);
    aniSendAlert(ALERT_MEMORY_POOL, true, "|%s is low", "disk");
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].substr(0, 4), "4|0|");
    EXPECT_NE(messages[0].find("|disk is low"), std::string::npos) << messages[0];

    alerts.clear();
    aniSetAlertCallback(
        [](CodUint32 kind, const char *text, CodBool isRaise) { alerts.push_back(std::to_string(kind) + (isRaise ? "+" : "-") + text); });
    aniSendAlert(8, true, "%s", std::string(255, 'x').c_str());
    aniSendAlert(9, false, "%s", std::string(256, 'y').c_str());
    EXPECT_EQ(alerts, (std::vector<std::string>{"8+" + std::string(255, 'x'), "9-" + std::string(255, 'y')}));
    EXPECT_EQ(messages.size(), 1u);
}

}  // namespace
