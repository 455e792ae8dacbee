#include <vel_infra/adr/ani_blackbox.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <vel_infra/memory/ani_allocator.h>

#include "support/memory_support.h"

namespace {

using memory_support::expectRaised;
using memory_support::TempFile;

class BlackBox : public memory_support::CleanErrors {
protected:
    BlackBox() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        restore();
    }
    ~BlackBox() override {
        restore();
    }

    static void expectContains(const std::string &text, std::initializer_list<const char *> parts) {
        std::size_t at = 0;
        for (const char *part : parts) {
            std::size_t found = text.find(part, at);
            EXPECT_NE(found, std::string::npos) << part << " missing, or not in order, in:\n" << text;
            at = found == std::string::npos ? at : found;
        }
    }

    TempFile dump_{"blackbox_dump"};

private:
    static void restore() {
        EXPECT_EQ(bbxSetDumpFile(nullptr), COD_SUCCESS);
        bbxSetCoredump(false);
        bbxSetSqlContextDump(nullptr);
        codSetFaultPoint(FAULT_POINT_SYS_ALLOC, false);
    }
};

using BlackBoxDeathTest = BlackBox;

TEST_F(BlackBox, DumpFileIsMadeOnFirstUseAndAppendedTo) {
    EXPECT_EQ(bbxGetDumpFile(), 2);
    ASSERT_EQ(bbxSetDumpFile(dump_.path.c_str()), COD_SUCCESS);
    EXPECT_NE(access(dump_.path.c_str(), F_OK), 0) << "nothing was written yet";
    mode_t mask = umask(0);
    CodInt32 fd = bbxGetDumpFile();
    umask(mask);
    ASSERT_GT(fd, 2);
    EXPECT_EQ(bbxGetDumpFile(), fd);
    struct stat info {};
    ASSERT_EQ(fstat(fd, &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    EXPECT_EQ(write(fd, "first\n", 6), 6);
    codSetErrorCode(4);
    codSetError("f.cpp", 1, "f", 301, "disk %d%%", 7);
    panicDumpErrorcode();
    EXPECT_EQ(dump_.content(), "first\nerror msg VEL-00301 disk 7%; VEL-00004 \n");
    ASSERT_EQ(bbxSetDumpFile(nullptr), COD_SUCCESS);
    EXPECT_EQ(fcntl(fd, F_GETFD), -1) << "the descriptor belongs to the black box";
    ASSERT_EQ(bbxSetDumpFile(dump_.path.c_str()), COD_SUCCESS);
    EXPECT_EQ(write(bbxGetDumpFile(), "again\n", 6), 6);
    expectContains(dump_.content(), {"first\n", "error msg", "again\n"});
}

TEST_F(BlackBox, OpeningLineTellsTimeAndProcess) {
    ASSERT_EQ(bbxSetDumpFile(dump_.path.c_str()), COD_SUCCESS);
    std::time_t before = std::time(nullptr);
    bbxPrepare();
    std::string text = dump_.content();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    EXPECT_EQ(text.back(), '\n');
    expectContains(text, {std::to_string(getpid()).c_str()});
    std::string digits = std::to_string(before).substr(0, 6), year = std::to_string(1970 + before / 31556952);
    EXPECT_TRUE(text.find(digits) != std::string::npos || text.find(year) != std::string::npos) << text;
    bbxPanicLine("dir/place.cpp", 4321);
    expectContains(dump_.content(), {text.c_str(), "place.cpp", "4321"});
}

TEST_F(BlackBox, RefusedDumpFileNamesLeaveTheSetting) {
    ASSERT_EQ(bbxSetDumpFile(dump_.path.c_str()), COD_SUCCESS);
    for (const std::string &path : {std::string(), std::string(4096, 'x'), std::string(10000, 'x')}) {
        EXPECT_EQ(bbxSetDumpFile(path.c_str()), COD_ERROR) << path.size();
        EXPECT_EQ(codGetErrorCode(), static_cast<CodError>(ERR_CMM_INVALID_FILENAME));
        codCleanError();
    }
    EXPECT_EQ(write(bbxGetDumpFile(), "here", 4), 4);
    EXPECT_EQ(dump_.content(), "here");
    EXPECT_EQ(bbxSetDumpFile("/no/such/folder/dump"), COD_SUCCESS);
    EXPECT_EQ(bbxGetDumpFile(), 2);
    EXPECT_EQ(bbxSetDumpFile(std::string(4095, 'x').c_str()), COD_SUCCESS);
    EXPECT_EQ(bbxGetDumpFile(), 2);
}

TEST_F(BlackBoxDeathTest, PanicTellsMessagePlaceAndErrors) {
    auto panic = [] {
        codSetError("f.cpp", 1, "f", 301, "the cause");
        codSetError("f.cpp", 2, "f", 2, "the consequence");
        codPanic("state %d is %s", 7, "impossible");
    };
    EXPECT_EXIT(panic(), testing::KilledBySignal(SIGABRT), "state 7 is impossible");
    EXPECT_EXIT(panic(), testing::KilledBySignal(SIGABRT), "ani_blackbox_test.cpp");
    EXPECT_EXIT(panic(), testing::KilledBySignal(SIGABRT), "VEL-00002 the consequence; VEL-00301 the cause");
    EXPECT_EXIT(codPanicAt("dir/place.cpp", 4321, "someFunction", "%s", std::string(20000, 'x').c_str()), testing::KilledBySignal(SIGABRT),
                "4321");

    GTEST_FLAG_SET(death_test_style, "fast");  // the child of a fork has this process's file name
    ASSERT_EQ(bbxSetDumpFile(dump_.path.c_str()), COD_SUCCESS);
    EXPECT_EXIT(panic(), testing::KilledBySignal(SIGABRT), "^$");
    for (const char *part :
         {"state 7 is impossible", "ani_blackbox_test.cpp", "error msg VEL-00002 the consequence; VEL-00301 the cause\n"}) {
        expectContains(dump_.content(), {part});
    }
}

TEST_F(BlackBox, InternalErrorsAreRecordedOneAtATimePerThread) {
    EXPECT_NE(bbxInterErrorPrepare(), 0) << "there is no dump file";
    ASSERT_EQ(bbxSetDumpFile(dump_.path.c_str()), COD_SUCCESS);
    codSetError("f.cpp", 1, "f", 301, "the cause");
    for (int round = 0; round < 2; round++) {
        ASSERT_EQ(bbxInterErrorPrepare(), 0);
        EXPECT_NE(bbxInterErrorPrepare(), 0) << "this thread is recording one";
        std::thread([] {
            ASSERT_EQ(bbxInterErrorPrepare(), 0);
            bbxInterError("other.cpp", 99, "other thread");
        }).join();
        bbxInterError("dir/place.cpp", 4321, "what went wrong");
    }
    std::string text = dump_.content();
    for (const char *part : {"place.cpp", "4321", "what went wrong", "VEL-00301 the cause", "other.cpp", "other thread"}) {
        expectContains(text, {part, part});
    }
    EXPECT_STREQ(codGetErrorMsg2(), "VEL-00301 the cause");
}

int traceCalls;
CodInt32 traceResult;

TEST_F(BlackBox, GuardRaisesWhereTheCodeIsUnset) {
    EXPECT_EQ(trcDumpSqlContext(), 0);
    bbxSetSqlContextDump([] { return traceCalls++, traceResult; });
    traceCalls = 0;
    codSetErrorCode(12);
    guardErrorCode();
    EXPECT_EQ(traceCalls, 0);
    EXPECT_EQ(codGetErrorStackDepth(), 1u);

    for (bool withFile : {false, true}) {
        for (CodInt32 result : {0, 1, -1}) {
            TempFile file("blackbox_guard");
            ASSERT_EQ(bbxSetDumpFile(withFile ? file.path.c_str() : nullptr), COD_SUCCESS);
            traceResult = result;
            traceCalls = 0;
            codCleanError();
            codSetErrorCode(0);
            codSetPos({1, 2, 3});
            guardErrorCode();
            EXPECT_EQ(traceCalls, 1);
            EXPECT_EQ(codGetErrorCode(), 2u);
            EXPECT_STREQ(codGetLastErrorMsg(), "internal error: error code unset");
            EXPECT_EQ(codGetErrorStackDepth(), result == 0 ? 2u : 1u) << "a trace that reports clears what was there";
            EXPECT_EQ(codGetErrorPos().offset, result == 0 ? 3u : 0u);
            EXPECT_EQ(file.content().empty(), !withFile);
        }
    }
}

TEST_F(BlackBoxDeathTest, CoreDumpSettingEndsTheProcessOnInternalErrors) {
    EXPECT_FALSE(bbxInterErrorNeedCoredump());
    bbxSetCoredump(true);
    EXPECT_TRUE(bbxInterErrorNeedCoredump());
    void *out = nullptr;
    EXPECT_DEATH(guardErrorCode(), "660");
    EXPECT_DEATH(std::exit(codSysAlloc(0, &out)), "dump info: alloc size is zero\n");
    EXPECT_DEATH(std::exit(codSysAllocAligned(0, &out, 64)), "dump info: alloc size is zero\n");
    codSetErrorCode(5);
    guardErrorCode();
    EXPECT_EQ(codGetErrorStackDepth(), 1u);
}

TEST_F(BlackBox, FaultPointsAreSetOneByOne) {
    for (CodUint32 type : {0u, 1u, 64u, 66u, 255u}) {
        EXPECT_FALSE(codIsFaultPointSet(type));
        codSetFaultPoint(type, true);
        EXPECT_TRUE(codIsFaultPointSet(type));
        EXPECT_FALSE(codIsFaultPointSet(type ^ 2u));
        codSetFaultPoint(type, false);
        EXPECT_FALSE(codIsFaultPointSet(type));
    }
    for (CodUint32 type : {256u, 257u, 0xFFFFFFFFu}) {
        codSetFaultPoint(type, true);
        EXPECT_FALSE(codIsFaultPointSet(type));
        EXPECT_FALSE(codIsFaultPointSet(type & 255u));
    }
}

TEST_F(BlackBox, FaultPointFailsOneSystemAllocationInAHundred) {
    constexpr int kCalls = 40000;
    int failed = 0;
    codSetFaultPoint(FAULT_POINT_SYS_ALLOC, true);
    for (int i = 0; i < kCalls; i++) {
        void *out = &failed;
        if (codSysAlloc(64, &out) == COD_SUCCESS) {
            codSysFree(out);
            continue;
        }
        failed++;
        EXPECT_EQ(out, nullptr);
        expectRaised(ERR_CMM_ALLOC_MEMORY, "cannot allocate 64 bytes for mock system memory");
    }
    EXPECT_NEAR(failed, kCalls / 100, 140) << "seven standard deviations";
    codSetFaultPoint(FAULT_POINT_SYS_ALLOC, false);
    for (int i = 0; i < 2000; i++) {
        void *out = nullptr;
        ASSERT_EQ(codSysAlloc(64, &out), COD_SUCCESS);
        codSysFree(out);
    }
}

}  // namespace
