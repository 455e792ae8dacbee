#include <vel_infra/adr/ani_alert.h>
#include <vel_infra/adr/ani_blackbox.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <csignal>
#include <cstdlib>

#include <vel_infra/memory/ani_allocator.h>

#include "support/memory_support.h"

namespace {

using namespace memory_support;

std::vector<std::string> alerts;
int traceCalls;
CodInt32 traceResult;

class Adr : public CleanState {
protected:
    Adr() {
        restore();
    }
    ~Adr() override {
        restore();
    }
    bool written(const std::string &part) const {
        return dump_.content().find(part) != std::string::npos;
    }

    TempFile dump_{"blackbox_dump"};
    const char *path_ = dump_.path.c_str();

private:
    static void restore() {
        EXPECT_EQ(bbxSetDumpFile(nullptr), COD_SUCCESS);
        bbxSetCoredump(false);
        bbxSetSqlContextDump(nullptr);
        codSetFaultPoint(FAULT_POINT_SYS_ALLOC, false);
        aniSetAlertCallback(nullptr);
        alerts.clear();
    }
};
using AdrDeathTest = Adr;

TEST_F(Adr, DumpFileIsMadeOnFirstUseAndAppendedTo) {
    ASSERT_EQ(bbxSetDumpFile(path_), COD_SUCCESS);
    EXPECT_NE(access(path_, F_OK), 0) << "nothing was written yet";
    mode_t mask = umask(0);
    CodInt32 fd = bbxGetDumpFile();
    umask(mask);
    struct stat info {};
    ASSERT_EQ(fstat(fd, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    codSetErrorCode(4);
    codSetError("f.cpp", 1, "f", 301, "disk %d%%", 7);
    panicDumpErrorcode();
    codCleanError();
    expectRefusals({{[] { return bbxSetDumpFile(""); }, ERR_CMM_INVALID_FILENAME},
                    {[] { return bbxSetDumpFile(std::string(4096, 'x').c_str()); }, ERR_CMM_INVALID_FILENAME}});
    EXPECT_EQ(bbxGetDumpFile(), fd);
    ASSERT_EQ(bbxSetDumpFile(path_), COD_SUCCESS);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the descriptor belongs to the black box";
    EXPECT_EQ(write(bbxGetDumpFile(), "again", 5), 5);
    EXPECT_EQ(dump_.content(), "error msg VEL-00301 disk 7%; VEL-00004 \nagain");
    for (const std::string &unusable : {std::string("/no/such/folder/dump"), std::string(4095, 'x')}) {
        EXPECT_EQ(bbxSetDumpFile(unusable.c_str()), COD_SUCCESS);
        EXPECT_EQ(bbxGetDumpFile(), 2);
    }
}

TEST_F(AdrDeathTest, PanicTellsTimePlaceMessageAndErrors) {
    auto panic = [] {
        codSetError("f.cpp", 1, "f", 301, "the cause");
        codPanicAt("dir/place.cpp", 4321, "someFunction", "state %d %s", 7, std::string(20000, 'x').c_str());
    };
    std::string day(32, '\0');
    std::time_t now = std::time(nullptr);
    day.resize(std::strftime(day.data(), day.size(), "%Y-%m-%d", std::gmtime(&now)));
    EXPECT_EXIT(panic(), testing::KilledBySignal(SIGABRT), day + "(.|\n)*state 7 x(.|\n)*place.cpp(.|\n)*4321(.|\n)*VEL-00301 the cause\n");
    GTEST_FLAG_SET(death_test_style, "fast");  // the child of a fork has this process's file name
    ASSERT_EQ(bbxSetDumpFile(path_), COD_SUCCESS);
    EXPECT_EXIT(panic(), testing::KilledBySignal(SIGABRT), "^$");
    EXPECT_TRUE(written(day) && written("state 7 x") && written("4321") && written("error msg VEL-00301 the cause\n")) << dump_.content();
}

TEST_F(Adr, GuardRaisesWhereTheCodeIsUnset) {
    codSetErrorCode(12);
    guardErrorCode();
    EXPECT_EQ(codGetErrorStackDepth(), 1u);
    for (int round = 0; round < 8; round++) {
        SCOPED_TRACE(round);
        bool withFile = round % 2 == 1, withTrace = round >= 2;
        TempFile file("blackbox_guard");
        ASSERT_EQ(bbxSetDumpFile(withFile ? file.path.c_str() : nullptr), COD_SUCCESS);
        bbxSetSqlContextDump(withTrace ? +[] { return traceCalls++, traceResult; } : nullptr);
        traceResult = round / 2 - 2;
        traceCalls = 0;
        codCleanError();
        codSetErrorCode(0);
        codSetPos({1, 2, 3});
        guardErrorCode();
        EXPECT_EQ(traceCalls, withTrace);
        EXPECT_EQ(codGetErrorCode(), 2u);
        EXPECT_STREQ(codGetLastErrorMsg(), "internal error: error code unset");
        bool cleared = withTrace && traceResult != 0;
        EXPECT_EQ(codGetErrorStackDepth(), cleared ? 1u : 2u) << "a trace that reports clears what was there";
        EXPECT_EQ(codGetErrorPos().offset, cleared ? 0u : 3u);
        EXPECT_EQ(file.content().empty(), !withFile);
    }
    ASSERT_EQ(bbxSetDumpFile(path_), COD_SUCCESS);
    onThreads(2, [](CodUint32) {
        ASSERT_EQ(bbxInterErrorPrepare(), 0) << "every thread records its own";
        EXPECT_NE(bbxInterErrorPrepare(), 0) << "one at a time";
        codSetError("f.cpp", 1, "f", 301, "the cause");
        bbxInterError("dir/place.cpp", 43, "what went wrong");
    });
    EXPECT_TRUE(written("process " + std::to_string(getpid())) && written("place.cpp:43: what went wrong") &&
                written("VEL-00301 the cause"));
}

TEST_F(AdrDeathTest, CoreDumpSettingEndsTheProcessOnInternalErrors) {
    EXPECT_FALSE(bbxInterErrorNeedCoredump());
    bbxSetCoredump(true);
    void *out = nullptr;
    EXPECT_DEATH(guardErrorCode(), "660");
    EXPECT_DEATH(std::exit(codSysAlloc(0, &out)), "dump info: alloc size is zero\n");
    codSetErrorCode(5);
    guardErrorCode();
}

TEST_F(Adr, FaultPointsAreSetOneByOneAndFailOneAllocationInAHundred) {
    for (CodUint32 type : {0u, 1u, 64u, 66u, 255u, 256u, 257u, 0xFFFFFFFFu}) {
        codSetFaultPoint(type, true);
        for (CodUint32 other : {0u, 1u, 2u, 64u, 66u, 128u, 192u, 255u, 256u, 257u, 0xFFFFFFFFu}) {
            EXPECT_EQ(codIsFaultPointSet(other), other == type && type < 256) << type << " " << other;
        }
        codSetFaultPoint(type, false);
        EXPECT_FALSE(codIsFaultPointSet(type));
    }
    int failed = 0;
    for (int i = 0; i < 41000; i++) {
        void *out = &failed;
        codSetFaultPoint(FAULT_POINT_SYS_ALLOC, i < 40000);
        if (codSysAlloc(64, &out) != COD_SUCCESS) {
            EXPECT_TRUE(++failed && out == nullptr && i < 40000);
            expectRaised(ERR_CMM_ALLOC_MEMORY, "cannot allocate 64 bytes for mock system memory");
        }
        codSysFree(out);
    }
    EXPECT_NEAR(failed, 400, 140) << "seven standard deviations";
}

TEST_F(Adr, StandardOutputGetsMessagesOfTheLevelAndAbove) {
    const char *kHeads[] = {"UNKNOWN", "[TRACE]", "[DEBUG]", "[ INFO]", "[ WARN]", "[ERROR]", "[FATAL]"};
    const std::string kLong(9000, 'x');
    EXPECT_EQ(codGetLogLevel(), COD_LOG_LEVEL_ERROR);
    codSetLogCallback(keepLogged);
    codSetLogCallback(nullptr);
    for (int limit = COD_LOG_ALL; limit <= COD_LOG_OFF; limit++) {
        codSetLogLevel(static_cast<CodLogLevel>(limit));
        for (int level = COD_LOG_LEVEL_TRACE; level <= COD_LOG_LEVEL_FATAL; level++) {
            testing::internal::CaptureStdout();
            for (auto [code, fmt, text] : {std::tuple{0, "plain %s\n", "%d"}, {301, "%s", "7%"}, {123456, "|%s", kLong.c_str()}}) {
                codGetLogCallback()(static_cast<CodLogLevel>(level), code, "f.cpp", "f", 1, fmt, text);
            }
            std::string head = kHeads[level], all = head + ": plain %d\n" + head + "[errno=00301]: 7%" + head + "[errno=123456]: |" + kLong;
            EXPECT_EQ(testing::internal::GetCapturedStdout(), level < limit ? "" : all) << limit << " " << level;
        }
    }
}

TEST_F(Adr, AlertsGoToTheReceiverElseToTheLoggerAtWarn) {
    codSetLogCallback(keepLogged);
    for (CodLogLevel level : {COD_LOG_LEVEL_ERROR, COD_LOG_LEVEL_WARN}) {
        codSetLogLevel(level);
        aniSendAlert(ALERT_MEMORY_POOL, true, "|%s is low", "disk");
        ASSERT_EQ(logged.size(), level == COD_LOG_LEVEL_WARN ? 1u : 0u);
    }
    EXPECT_TRUE(logged[0].starts_with("4|0|") && logged[0].find("|disk is low") != std::string::npos) << logged[0];
    aniSetAlertCallback([](CodUint32 kind, const char *text, CodBool isRaise) { alerts.push_back(std::to_string(kind + isRaise) + text); });
    aniSendAlert(8, true, "%s", std::string(255, 'x').c_str());
    aniSendAlert(8, false, "%s", std::string(256, 'y').c_str());
    EXPECT_EQ(alerts, (std::vector<std::string>{"9" + std::string(255, 'x'), "8" + std::string(255, 'y')}));
    EXPECT_EQ(logged.size(), 1u);
}

}  // namespace
