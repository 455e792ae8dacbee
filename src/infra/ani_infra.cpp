#include <vel_infra/infra/ani_infra.h>

#include <dlfcn.h>
#include <errno.h>
#include <limits.h>
#include <link.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <iterator>

#include <vel_infra/adr/ani_log.h>
#include <vel_infra/bitops/ani_bitpack.h>
#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error.h>
#include <vel_infra/error/ani_error_base.h>

namespace {

constexpr char kHomeVariable[] = "VELDB_HOME";
constexpr char kFolderOfHome[] = "/admin/codepage";
constexpr char kFolderOfPrefix[] = "/share/vel_infra/admin/codepage";

constinit CodTimer gTimer = {};

// What a stop puts back.
struct Before {
    CodLogLevel level;
    CodLogCallback callback;
    CodUint32 simdType;
};
constinit Before gBefore = {};
constinit bool gIsStarted = false;
constinit CodUint32 gStepsTaken = 0;  // a bit for each

// ---- Steps ----

bool isAlwaysWanted(const CodInfraConfig &) {
    return true;
}

CodResult registerErrors(const CodInfraConfig &) {
    COD_TRY(codRegErrModCMM());
    return codRegErrModANS();
}

bool wantsLevel(const CodInfraConfig &config) {
    return config.logLevel != 0;
}

CodResult setLevel(const CodInfraConfig &config) {
    gBefore.level = codGetLogLevel();
    codSetLogLevel(config.logLevel);
    return COD_SUCCESS;
}

void restoreLevel() {
    codSetLogLevel(gBefore.level);
}

bool wantsRunLog(const CodInfraConfig &config) {
    return config.runLogPath != nullptr;
}

CodResult openRunLog(const CodInfraConfig &config) {
    gBefore.callback = codGetLogCallback();
    if (aniInitRunLog(config.runLogPath, &gTimer) != COD_SUCCESS) {
        return codRaise(ERR_CMM_INVALID_PATH_ERROR, config.runLogPath, "no run log can be opened in it");
    }
    return COD_SUCCESS;
}

void closeRunLog() {
    codSetLogCallback(gBefore.callback);
    aniCloseRunLog();
}

bool wantsCodepages(const CodInfraConfig &config) {
    return (config.flags & COD_INFRA_CODEPAGES) != 0;
}

CodResult loadCodepages(const CodInfraConfig &config) {
    if (config.codepageFolder != nullptr) {
        return aniCodepageInitFrom(config.codepageFolder);
    }
    char folder[PATH_MAX];
    COD_TRY(codInfraCodepageFolder(folder, sizeof(folder)));
    return aniCodepageInitFrom(folder);
}

CodResult chooseDecoder(const CodInfraConfig &) {
    gBefore.simdType = codBitPackGetSimdType();
    codBitPackSetSimdType(codBitPackDetectSimdType());
    return COD_SUCCESS;
}

void restoreDecoder() {
    codBitPackSetSimdType(gBefore.simdType);
}

bool wantsClock(const CodInfraConfig &config) {
    return (config.flags & COD_INFRA_CLOCK) != 0;
}

CodResult startClock(const CodInfraConfig &) {
    return codStartTimer(&gTimer);
}

void stopClock() {
    codStopTimer(&gTimer);
}

// A stop also tidies up behind a start that failed half-way.
struct Step {
    bool (*isWanted)(const CodInfraConfig &config);
    CodResult (*start)(const CodInfraConfig &config);
    void (*stop)();
};

constexpr Step kSteps[] = {
    {isAlwaysWanted, registerErrors, codUnRegErrorDef},
    {wantsLevel, setLevel, restoreLevel},
    {wantsRunLog, openRunLog, closeRunLog},
    {wantsCodepages, loadCodepages, aniCodepageClose},
    {isAlwaysWanted, chooseDecoder, restoreDecoder},
    {wantsClock, startClock, stopClock},
};
static_assert(std::size(kSteps) <= sizeof(gStepsTaken) * CHAR_BIT);

CodResult takeSteps(const CodInfraConfig &config) {
    for (CodUint32 i = 0; i < std::size(kSteps); i++) {
        if (kSteps[i].isWanted(config)) {
            gStepsTaken |= 1u << i;
            COD_TRY(kSteps[i].start(config));
        }
    }
    return COD_SUCCESS;
}

CodResult checkConfig(const CodInfraConfig &config) {
    if ((config.flags & ~(COD_INFRA_CODEPAGES | COD_INFRA_CLOCK)) != 0) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "a start has flags that do not exist");
    }
    if (config.logLevel < 0 || config.logLevel > COD_LOG_OFF) {
        return codRaise(ERR_CMM_INVALID_PARAMETER, "a start has a log level that does not exist");
    }
    return COD_SUCCESS;
}

// ---- The install ----

// The path of the shared library, or of the program or library that this one is linked into. False when it cannot be told.
bool findOwnFile(char (&path)[PATH_MAX]) {
    Dl_info info;
    void *map = nullptr;
    if (dladdr1(&gTimer, &info, &map, RTLD_DL_LINKMAP) != 0) {
        const char *name = static_cast<const link_map *>(map)->l_name;
        if (name[0] != '\0') {
            return realpath(name, path) != nullptr;
        }
    }
    return realpath("/proc/self/exe", path) != nullptr;  // the program has no name in the list of objects
}

bool append(char (&path)[PATH_MAX], size_t length, const char *rest) {
    return snprintf(path + length, sizeof(path) - length, "%s", rest) < static_cast<int>(sizeof(path) - length);
}

// An install has the files two or three folders up from the library, a build folder farther up from its programs.
bool findFolderOfInstall(char (&path)[PATH_MAX]) {
    if (!findOwnFile(path)) {
        return false;
    }
    for (char *slash = strrchr(path, '/'); slash != nullptr; slash = strrchr(path, '/')) {
        *slash = '\0';
        if (append(path, strlen(path), kFolderOfPrefix) && access(path, F_OK) == 0) {
            return true;
        }
        *slash = '\0';
    }
    return false;
}

}  // namespace

CodResult codInfraStart(const CodInfraConfig *config) {
    constexpr CodInfraConfig kDefaults = {};
    const CodInfraConfig &asked = config != nullptr ? *config : kDefaults;
    if (gIsStarted) {
        return codRaise(ERR_CMM_INIT_LIB_FAILED, "vel_infra", "it is started already");
    }
    COD_TRY(checkConfig(asked));
    gIsStarted = true;
    const CodResult result = takeSteps(asked);
    if (result != COD_SUCCESS) {
        codInfraStop();
    }
    return result;
}

void codInfraStop(void) {
    for (CodUint32 i = std::size(kSteps); i-- > 0;) {
        if ((gStepsTaken & 1u << i) != 0) {
            kSteps[i].stop();
        }
    }
    gStepsTaken = 0;
    gIsStarted = false;
}

const CodTimer *codInfraTimer(void) {
    return &gTimer;
}

CodResult codInfraCodepageFolder(char *buf, CodUint32 bufSize) {
    if (buf == nullptr) {
        return codRaise(ERR_CMM_POINTER_NULL);
    }
    char found[PATH_MAX];
    const char *begin = getenv(kHomeVariable);
    const char *rest = kFolderOfHome;
    if (begin == nullptr) {
        if (!findFolderOfInstall(found)) {
            return codRaise(ERR_CMM_ENV_ERROR, kHomeVariable, codSysErrDesc(ENOENT));
        }
        begin = found;
        rest = "";
    }
    const int length = snprintf(buf, bufSize, "%s%s", begin, rest);
    return length >= 0 && static_cast<CodUint32>(length) < bufSize ? COD_SUCCESS
                                                                   : codRaise(ERR_CMM_BUFFER_SIZE_TOO_SMALL, "code page folder");
}
