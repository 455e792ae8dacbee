#include <vel_infra/vel_infra.h>

#include <gmock/gmock.h>
#include <filesystem>

#include "support/memory_support.h"

namespace {

namespace fs = std::filesystem;
using memory_support::keepLogged;
constexpr char kPages[] = VEL_TEST_HOME "/admin/codepage";
constexpr CodUint32 kAll = COD_INFRA_CODEPAGES | COD_INFRA_CLOCK;

struct Infra : memory_support::CleanState {
    Infra() {
        fs::create_directory(folder);
        codSetLogCallback(keepLogged);
        unsetenv("VELDB_HOME");
    }
    ~Infra() override {
        codInfraStop();
        fs::remove_all(folder);
    }

    // As if nothing had been started.
    void expectStopped() {
        EXPECT_TRUE(codFindErrorDef(ERR_CMM_NO_DATA_FOUND) == nullptr && codFindErrorDef(aniGetErrDef(0)->code) == nullptr);
        EXPECT_TRUE(codGetLogCallback() == keepLogged && codGetLogLevel() == COD_LOG_LEVEL_ERROR);
        EXPECT_FALSE(isCodepageInit(CODEPAGE_ISO88591) || isCodepageInit(CODEPAGE_GB18030));
        EXPECT_EQ(codBitPackGetSimdType(), COD_SIMD_NONE);
        EXPECT_EQ(codTimerNow(codInfraTimer()), 0);
    }

    const std::string folder = testing::TempDir() + "infra." + std::to_string(getpid());
};

TEST_F(Infra, StartsWhatIsAskedForAndStopsIt) {
    ASSERT_EQ(codInfraStart(nullptr), COD_SUCCESS);
    EXPECT_STREQ(codFindErrorDef(ERR_CMM_NO_DATA_FOUND)->name, "ERR_CMM_NO_DATA_FOUND");
    EXPECT_TRUE(codFindErrorDef(aniGetErrDef(0)->code) != nullptr && codBitPackGetSimdType() == codBitPackDetectSimdType());
    EXPECT_TRUE(codGetLogCallback() == keepLogged && !isCodepageInit(CODEPAGE_UCS) && codTimerNow(codInfraTimer()) == 0);
    codInfraStop();
    expectStopped();
    codInfraStop();
    const CodInfraConfig config = {kAll, COD_LOG_LEVEL_INFO, folder.c_str(), nullptr, {}};
    for (int round = 0; round < 2; round++) {
        ASSERT_EQ(codInfraStart(&config), COD_SUCCESS) << codGetErrorMsg2();
        COD_LOG_INFO("round %d", round);
        EXPECT_TRUE(isCodepageInit(CODEPAGE_ISO88591) && isCodepageInit(CODEPAGE_GB18030));
        EXPECT_NEAR(double(codTimerNow(codInfraTimer())), double(codNow()), 1e6);
        codInfraStop();
        expectStopped();
    }
    const std::string text(std::istreambuf_iterator<char>(std::ifstream(folder + "/run.log").rdbuf()), {});
    EXPECT_THAT(text, testing::MatchesRegex("[^\n]* \\[INFO\\] round 0\n[^\n]* \\[INFO\\] round 1\n"));
}

TEST_F(Infra, AFailingStepUndoesTheOthers) {
    const std::string none = folder + "/none";
    std::ofstream(folder + "/iso88591") << "no page";
    const std::pair<CodInfraConfig, CodError> rows[] = {
        {{4, {}, nullptr, nullptr, {}}, ERR_CMM_INVALID_PARAMETER},
        {{0, CodLogLevel(8), nullptr, nullptr, {}}, ERR_CMM_INVALID_PARAMETER},
        {{kAll, COD_LOG_LEVEL_INFO, none.c_str(), kPages, {}}, ERR_CMM_INVALID_PATH_ERROR},
        {{kAll, COD_LOG_LEVEL_INFO, folder.c_str(), none.c_str(), {}}, ERR_CMM_OPEN_FILE},
        {{kAll, COD_LOG_LEVEL_INFO, folder.c_str(), folder.c_str(), {}}, ERR_CMM_INVALID_CODEPAGE},
    };
    for (const auto &[config, code] : rows) {
        testing::internal::CaptureStdout();
        EXPECT_EQ(codInfraStart(&config), COD_ERROR);
        EXPECT_EQ(testing::internal::GetCapturedStdout().empty(), code != ERR_CMM_INVALID_PATH_ERROR);
        memory_support::expectRaised(code);
        expectStopped();
    }
    CodResult result = COD_ERROR;
    const CodInfraConfig config = {kAll, COD_LOG_LEVEL_INFO, nullptr, kPages, {}};
    for (int n = 0; result != COD_SUCCESS; n++) {
        expectStopped();
        codFailAllocAfter(n);
        result = codInfraStart(&config);
        codFailAllocAfter(-1);
        ASSERT_TRUE(result == COD_SUCCESS ? n > 5 : codGetErrorStackDepth() > 0) << n;
        codCleanError();
    }
    EXPECT_EQ(codInfraStart(&config), COD_ERROR);
    memory_support::expectRaised(ERR_CMM_INIT_LIB_FAILED, "failed to initialise dynamic library vel_infra, it is started already");
    EXPECT_TRUE(isCodepageInit(CODEPAGE_UCS) && codTimerNow(codInfraTimer()) != 0);
}

TEST_F(Infra, FindsTheCodepageFolder) {
    char found[PATH_MAX];
    EXPECT_TRUE(codInfraCodepageFolder(found, sizeof(kPages)) == COD_SUCCESS && found == std::string(kPages)) << found;
    setenv("VELDB_HOME", "/home", 1);
    EXPECT_TRUE(codInfraCodepageFolder(found, 21) == COD_SUCCESS && found == std::string("/home/admin/codepage")) << found;
    memory_support::expectRefusals({{[&] { return codInfraCodepageFolder(found, 20); }, ERR_CMM_BUFFER_SIZE_TOO_SMALL},
                                    {[&] { return codInfraCodepageFolder(nullptr, 99); }, ERR_CMM_POINTER_NULL}});
    const CodInfraConfig config = {COD_INFRA_CODEPAGES, {}, nullptr, nullptr, {}};
    EXPECT_EQ(codInfraStart(&config), COD_ERROR);
    memory_support::expectRaised(ERR_CMM_OPEN_FILE);
}

}  // namespace
