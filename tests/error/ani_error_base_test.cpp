#include <vel_infra/error/ani_error_base.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <vel_infra/adr/ani_log_base.h>

#include "support/memory_support.h"

namespace {

using memory_support::CleanErrors;
using memory_support::expectRaised;
using memory_support::Random;

using ErrorBase = CleanErrors;

constexpr CodUint32 kTextSize = COD_ERROR_STACK_TEXT_SIZE;
constexpr CodUint32 kDepth = COD_ERROR_STACK_DEPTH;

// ---- A slow model of the whole error state ----

struct Place {
    std::string file;
    CodUint32 line;
    std::string funcName;
    bool operator==(const Place &) const = default;
};

struct Entry {
    CodUint32 code = 0;
    CodUint32 sysErr = 0;
    CodUint32 offset = 0;
    bool soRaised = false;
};

struct Model {
    bool ignore = false;
    CodUint32 code = 0;
    CodUint32 line = 0;
    CodUint32 sysErr = 0;
    CodUint32 depth = 0;
    std::string file;
    CodTextPos pos{};
    int tag = 0;
    std::array<Entry, kDepth> errors{};
    std::string text = std::string(kTextSize, '\0');
    std::string composed;
    std::vector<Place> trace;

    CodUint32 readable() const {
        return std::min(depth, kDepth);
    }

    std::string textOf(CodUint32 index) const {
        CodUint32 start = std::min(errors[index].offset, kTextSize - 1);
        return text.substr(start, text.find('\0', start) - start);
    }

    Entry *push(CodUint32 newCode, const std::string &formatted) {
        if (ignore) {
            return nullptr;
        }
        if (depth == 0) {
            trace.clear();
        }
        CodUint32 wanted = readable() + 1;
        depth = std::min(wanted, kDepth);
        Entry &entry = errors[depth - 1];
        entry.code = code = newCode;
        entry.soRaised = false;
        entry.offset = std::min(entry.offset, kTextSize - 1);
        CodUint32 room = kTextSize - entry.offset;
        std::string kept = formatted.substr(0, room - 1) + '\0';
        text.replace(entry.offset, kept.size(), kept);
        if (wanted < kDepth) {
            errors[wanted].offset = entry.offset + std::min(static_cast<CodUint32>(formatted.size()) + 1, room);
        }
        return &entry;
    }

    void clean() {
        if (ignore) {
            return;
        }
        code = depth = 0;
        pos = {};
        composed.clear();
        trace.clear();
    }

    void cleanCurrent() {
        if (depth <= 1) {
            clean();
        } else if (!ignore) {
            depth--;
            code = errors[readable() - 1].code;
        }
    }

    const std::string &compose(bool prefix, const std::string &separator) {
        if (depth == 0) {
            return composed;
        }
        auto withCode = [this](CodUint32 index) {
            char head[32];
            std::snprintf(head, sizeof(head), "VEL-%05d ", static_cast<int>(errors[index].code));
            return head + textOf(index);
        };
        CodUint32 top = readable() - 1;
        composed = prefix ? withCode(top) : textOf(top);
        for (CodUint32 index = top; index-- > 0;) {
            composed += separator + withCode(index);
        }
        composed.resize(std::min<std::size_t>(composed.size(), kTextSize - 1));
        return composed;
    }
};

bool samePos(const CodTextPos &left, const CodTextPos &right) {
    return std::memcmp(&left, &right, sizeof(left)) == 0;
}

// The real state beside the model, one random operation at a time.
class Walk {
public:
    explicit Walk(std::uint64_t seed) : random_(seed) {}

    void run(int steps) {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); step++) {
            operation_ = "step " + std::to_string(step) + " ";
            operate();
            compare();
            if (testing::Test::HasFailure()) {
                ADD_FAILURE() << operation_;
            }
        }
    }

private:
    std::string randomText() {
        static constexpr CodUint32 kLengths[] = {0,    1,    1,    2,    7,    20,   20,   100,  100,  1000,
                                                 1023, 1024, 2047, 4000, 8190, 8191, 8192, 8193, 20000};
        return std::string(random_.pick(kLengths), static_cast<char>('a' + random_.below(26)));
    }

    CodTextPos randomPos() {
        return {random_.below(9), random_.below(99), random_.below(9999)};
    }

    void operate() {
        switch (random_.below(18)) {
            case 0:
            case 1:
            case 2:
            case 3:
                return setError();
            case 4:
                return setErrorMsg();
            case 5:
                return setErrorCode();
            case 6:
                return step("soRaised", [&] {
                    codSetErrorSoRaised();
                    if (model_.depth > 0) {
                        model_.errors[model_.readable() - 1].soRaised = true;
                    }
                });
            case 7:
                return step("cleanCur", [&] { codCleanCurError(), model_.cleanCurrent(); });
            case 8:
                return clean();
            case 9:
                return step("ignore", [&] {
                    codSetIgnoreError(), model_.ignore = random_.oneIn(3);
                    ignoreTo(model_.ignore);
                });
            case 10:
                return step("unignore", [&] { ignoreTo(false); });
            case 11:
                return restore();
            case 12:
                return origin();
            case 13:
                return positions();
            case 14:
                return failToFormat();
            case 15:
            case 16:
                return trace();
            default:
                return saveOrPutBack();
        }
    }

    template <typename Action>
    void step(const std::string &name, Action action) {
        operation_ += name;
        action();
    }

    void ignoreTo(bool on) {
        on ? codSetIgnoreError() : codUnsetIgnoreError();
        model_.ignore = on;
    }

    void setError() {
        static const char *kFiles[] = {"a/b/one.cpp", "two.cpp", "three/"};
        std::string text = randomText();
        const char *file = random_.pick(kFiles);
        CodUint32 line = random_.below(5000);
        CodUint32 code = random_.oneIn(9) ? 0xFFFFFFFFu - random_.below(3) : random_.below(100000);
        int sysErr = static_cast<int>(random_.below(100));
        operation_ += "setError of " + std::to_string(text.size());
        errno = sysErr;
        codSetError(file, line, "walk", code, "%s", text.c_str());
        if (Entry *entry = model_.push(code, text)) {
            entry->sysErr = model_.sysErr = static_cast<CodUint32>(sysErr);
            model_.file = file;
            model_.line = line;
        }
    }

    void failToFormat() {
        operation_ += "setError that cannot be formatted";
        static const wchar_t kNotACharacter[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
        errno = 3;
        codSetError("bad.cpp", 1, "walk", 77, "%ls", kNotACharacter);
        if (Entry *entry = model_.push(77, "")) {
            entry->sysErr = 3;
            model_.sysErr = EILSEQ;
            model_.file = "bad.cpp";
            model_.line = 1;
        }
    }

    void setErrorMsg() {
        operation_ += "setErrorMsg";
        CodErrorMsg msg;
        std::memset(&msg, 'z', sizeof(msg));
        msg.code = random_.below(10000);
        std::string text = randomText().substr(0, COD_ERROR_MESSAGE_SIZE - 1);
        if (random_.oneIn(3)) {
            text = std::string(COD_ERROR_MESSAGE_SIZE - 1, 'z');
        } else {
            std::memcpy(msg.message, text.c_str(), text.size() + 1);
        }
        codSetErrorMsg(&msg);
        codSetErrorMsg(nullptr);
        model_.push(msg.code, text);
    }

    void setErrorCode() {
        operation_ += "setErrorCode";
        CodUint32 code = random_.below(10000);
        codSetErrorCode(code);
        model_.push(code, "");
    }

    void clean() {
        operation_ += "clean";
        codCleanError();
        model_.clean();
    }

    void restore() {
        model_.code = random_.below(10000);
        model_.depth = random_.oneIn(4) ? random_.below(2) * 0xFFFFFFF0u + 5 + random_.below(11) : random_.below(5);
        model_.pos = randomPos();
        operation_ += "restore to depth " + std::to_string(model_.depth);
        codRestoreError(model_.code, model_.depth, model_.pos);
    }

    void origin() {
        operation_ += "origin";
        for (char &byte : model_.text) {
            byte = static_cast<char>('A' + random_.below(26));
            if (random_.oneIn(500)) {
                byte = '\0';
            }
        }
        model_.text.back() = '\0';
        codSetOriginErrMsg(model_.text.c_str());
        codSetOriginErrMsg(nullptr);
    }

    void positions() {
        operation_ += "positions";
        if (random_.oneIn(2)) {
            model_.tag = static_cast<int>(random_.below(4));
            codSetOperTag(static_cast<CodOperErrorTag>(model_.tag));
        }
        CodTextPos left = randomPos(), middle = randomPos(), right = randomPos();
        if (random_.oneIn(2)) {
            codSetPos(middle);
            model_.pos = middle;
            return;
        }
        codSetOperPos(left, middle, right);
        model_.pos = model_.tag == OPER_ERROR_LEFT ? left : model_.tag == OPER_ERROR_MIDDLE ? middle : right;
    }

    void trace() {
        CodUint32 line = random_.below(10000);
        CodUint32 times = 1 + random_.below(7);
        operation_ += "trace";
        for (CodUint32 i = 0; i < times; i++) {
            codPushErrorTrace("trace.cpp", line + i, "passing");
            if (!model_.ignore) {
                model_.trace.push_back({"trace.cpp", line + i, "passing"});
            }
        }
    }

    void saveOrPutBack() {
        if (model_.depth <= kDepth && random_.oneIn(2)) {
            operation_ += "save";
            codSaveError(&saved_);
            savedModel_ = model_;
        } else if (savedModel_ && !model_.ignore) {
            operation_ += "put back";
            codRestoreSavedError(&saved_);
            Model back = *savedModel_;
            back.composed.clear();
            back.tag = model_.tag;
            back.ignore = model_.ignore;
            for (CodUint32 i = 0; i < back.depth; i++) {
                ASSERT_EQ(codGetOriginErrMsg() + std::min(back.errors[i].offset, kTextSize - 1), back.textOf(i));
            }
            back.text.assign(codGetOriginErrMsg(), kTextSize);  // what no entry uses is free
            model_ = back;
        }
    }

    void compare() {
        EXPECT_EQ(codGetErrorCode(), model_.code);
        EXPECT_EQ(codGetErrorStackDepth(), model_.depth);
        EXPECT_EQ(codGetErrorLine(), model_.line);
        EXPECT_EQ(codGetErrorFile(), model_.file.substr(model_.file.rfind('/') + 1));
        EXPECT_EQ(codGetSysErr(), model_.sysErr);
        EXPECT_TRUE(samePos(codGetErrorPos(), model_.pos));
        EXPECT_EQ(std::memcmp(codGetOriginErrMsg(), model_.text.data(), kTextSize), 0);
        CodUint32 top = model_.readable();
        if (top > 0) {
            EXPECT_EQ(codGetBottomError(), model_.errors[0].code);
        }
        EXPECT_EQ(codGetCurErrMsgBufSize(), top < 2 ? kTextSize : kTextSize - model_.errors[top - 1].offset);
        for (CodUint32 i = 0; i < kDepth + 2; i++) {
            compareEntry(i);
        }
        EXPECT_EQ(codGetSpecifiedError(0xFFFFFFFFu), nullptr);
        EXPECT_EQ(codGetLastErrorMsg(), top == 0 ? model_.composed : model_.textOf(top - 1));
        compareComposed();
        compareTrace();
    }

    void compareEntry(CodUint32 index) {
        const CodErrorMsg2 *entry = codGetSpecifiedError(index);
        ASSERT_EQ(entry != nullptr, index < model_.readable());
        if (entry != nullptr) {
            const Entry &expected = model_.errors[index];
            EXPECT_EQ(entry->code, expected.code);
            EXPECT_EQ(entry->sysErr, expected.sysErr) << index;
            EXPECT_EQ(entry->offset, expected.offset);
            EXPECT_EQ(entry->soRaised, expected.soRaised);
        }
    }

    void compareComposed() {
        static const std::string kSeparators[] = {"", "; ", "\n", "<...>", std::string(3000, '-')};
        switch (random_.below(3)) {
            case 0:
                EXPECT_EQ(codGetErrorMsg(), model_.compose(false, "\n"));
                break;
            case 1:
                EXPECT_EQ(codGetErrorMsg2(), model_.compose(true, "; "));
                break;
            default: {
                bool prefix = random_.oneIn(2);
                const std::string &separator = random_.pick(kSeparators);
                const char *argument = separator.empty() && random_.oneIn(2) ? nullptr : separator.c_str();
                EXPECT_EQ(codGetErrorMsg3(prefix, argument), model_.compose(prefix, separator));
            }
        }
    }

    void compareTrace() {
        CodErrorPlace places[COD_ERROR_TRACE_DEPTH + 4];
        CodUint32 capacity = random_.below(COD_ERROR_TRACE_DEPTH + 5);
        std::size_t kept = std::min<std::size_t>(model_.trace.size(), COD_ERROR_TRACE_DEPTH);
        ASSERT_EQ(codGetErrorTrace(capacity == 0 ? nullptr : places, capacity), kept);
        for (std::size_t i = 0; i < std::min<std::size_t>(kept, capacity); i++) {
            const Place &expected = model_.trace[model_.trace.size() - kept + i];
            EXPECT_EQ((Place{places[i].file, places[i].line, places[i].funcName}), expected);
        }
    }

    Random random_;
    Model model_;
    CodErrorSave saved_;
    std::optional<Model> savedModel_;
    std::string operation_;
};

TEST(ErrorModel, RandomOperationsKeepTheStateOfTheModel) {
    // A fresh thread each time: a thread's state starts out as zeros.
    for (std::uint64_t seed = 1; seed <= 300 && !HasFailure(); seed++) {
        std::thread([seed] { std::make_unique<Walk>(seed)->run(1000); }).join();
        if (HasFailure()) {
            ADD_FAILURE() << "seed " << seed;
        }
    }
}

TEST_F(ErrorBase, FifthErrorTakesTheFourthPlace) {
    for (CodUint32 code = 1; code <= 5; code++) {
        codSetError("f.cpp", code, "f", code, "text %u", code);
    }
    EXPECT_EQ(codGetErrorStackDepth(), 4u);
    EXPECT_STREQ(codGetErrorMsg2(), "VEL-00005 text 5; VEL-00003 text 3; VEL-00002 text 2; VEL-00001 text 1");
    EXPECT_STREQ(codGetErrorMsg(), "text 5\nVEL-00003 text 3\nVEL-00002 text 2\nVEL-00001 text 1");
}

TEST_F(ErrorBase, OriginTextWithoutATerminatorEndsWithTheBuffer) {
    std::string full(kTextSize, 'x');
    codSetErrorCode(7);
    codSetOriginErrMsg(full.data());
    EXPECT_EQ(std::memcmp(codGetOriginErrMsg(), full.data(), kTextSize), 0);
    EXPECT_LE(std::strlen(codGetLastErrorMsg()), kTextSize);
    EXPECT_EQ(codGetErrorMsg2(), ("VEL-00007 " + full).substr(0, kTextSize - 1));
    codSetOriginErrMsg(std::string(kTextSize, '\0').data());
}

TEST_F(ErrorBase, FileIsTheNameBehindTheLastSlash) {
    const std::map<std::string, std::string> kNames = {
        {"", ""}, {"/", ""}, {"a/", ""}, {"a", "a"}, {"/a", "a"}, {"a//b", "b"}, {"a/b/c.cpp", "c.cpp"}, {"a/b//", ""},
    };
    for (const auto &[file, expected] : kNames) {
        codSetError(file.c_str(), 1, "f", 1, "text");
        EXPECT_EQ(codGetErrorFile(), expected) << file;
    }
    std::thread([] { EXPECT_STREQ(codGetErrorFile(), ""); }).join();
}

TEST_F(ErrorBase, TextArgumentsAreCutToTheirBuffers) {
    for (CodUint32 length : {0u, 1u, 2u, 1020u, 1021u, 1022u, 1023u, 1024u, 1025u, 1500u}) {
        std::string first(length, 'x'), second(length, 'y');
        CodText text = {first.data(), length, 0}, other = {second.data(), length, 0};
        const char *copy = codErrT2S(&text);
        const char *copyEx = codErrT2SEx(&other);
        EXPECT_EQ(copy, first.substr(0, 1023)) << length;
        EXPECT_EQ(copyEx, second.substr(0, 1023)) << length;
        EXPECT_EQ(codErrT2SWithDoubleQuotes(&other), length == 0 ? "" : '"' + second.substr(0, 1021) + '"') << length;
        EXPECT_EQ(copyEx, second.substr(0, 1023)) << "the second buffer is its own";
        if (length > 0) {
            EXPECT_EQ(copy, codGetErrT2SBuf());
            EXPECT_EQ(copyEx, codGetErrT2SExBuf());
            EXPECT_EQ(codErrT2SWithDoubleQuotes(&text), codGetErrT2SBuf());
        }
    }
    for (auto *function : {codErrT2S, codErrT2SEx, codErrT2SWithDoubleQuotes}) {
        EXPECT_STREQ(function(nullptr), "");
    }
}

TEST_F(ErrorBase, SystemErrorsAreDescribed) {
    for (CodUint32 code : {0u, 1u, 2u, 13u, 133u, 134u, 5000u, 0xFFFFFFFFu}) {
        int asInt = static_cast<int>(code);
        EXPECT_EQ(codSysErrDesc(code), "errno " + std::to_string(asInt) + ", error message \"" + std::strerror(asInt) + '"');
    }
    EXPECT_STREQ(codSysErrDesc(2), "errno 2, error message \"No such file or directory\"");
}

TEST_F(ErrorBase, RaiseTakesTemplateAndPlace) {
    CodUint32 line = __LINE__ + 1;
    CodResult result = codRaise(ERR_CMM_OUT_OF_INDEX, 5u, 0u, 4u);
    EXPECT_EQ(result, COD_ERROR);
    EXPECT_EQ(codGetErrorLine(), line);
    EXPECT_STREQ(codGetErrorFile(), "ani_error_base_test.cpp");
    expectRaised(212, "index 5 is out of [0, 4]");
    EXPECT_EQ(codRaise(ERR_CMM_NO_DATA_FOUND), COD_ERROR);
    expectRaised(211, "no data found");
    EXPECT_EQ(codRaise(ERR_CMM_VELON_JSON_SYNTAX_ERROR, -1, 2, "100%"), COD_ERROR);
    expectRaised(712, "JSON syntax error at line -1 column 2: 100%");
}

CodUint32 tryLine;
CodResult failBelow(CodUint32 levels, CodResult result) {
    if (levels == 0) {
        return result == COD_ERROR ? codRaise(ERR_CMM_NO_DATA_FOUND) : result;
    }
    tryLine = __LINE__ + 1;
    COD_TRY(failBelow(levels - 1, result));
    return COD_SUCCESS;
}

TEST_F(ErrorBase, TryPassesTheResultOnAndNotesThePlace) {
    CodErrorPlace places[COD_ERROR_TRACE_DEPTH];
    for (CodUint32 levels : {0u, 1u, 2u, 15u, 16u, 17u, 40u}) {
        for (CodResult result : {COD_SUCCESS, COD_ERROR, COD_SUCCESS_WITH_INFO}) {
            codCleanError();
            EXPECT_EQ(failBelow(levels, result), result);
            CodUint32 kept = result == COD_SUCCESS ? 0 : std::min<CodUint32>(levels, COD_ERROR_TRACE_DEPTH);
            ASSERT_EQ(codGetErrorTrace(places, COD_ERROR_TRACE_DEPTH), kept) << levels;
            for (CodUint32 i = 0; i < kept; i++) {
                EXPECT_EQ(places[i].line, tryLine);
                EXPECT_STREQ(places[i].funcName, "failBelow");
            }
        }
    }
}

TEST_F(ErrorBase, SavedErrorComesBackOnAnotherThread) {
    auto save = std::make_unique<CodErrorSave>();
    codSetError("first.cpp", 11, "first", 301, "%s", std::string(5000, 'p').c_str());
    EXPECT_EQ(failBelow(3, COD_ERROR), COD_ERROR);
    codSetPos({1, 2, 3});
    std::string message = codGetErrorMsg2();
    codSaveError(save.get());
    std::thread([&] {
        codSetErrorCode(99);
        codRestoreSavedError(save.get());
        EXPECT_EQ(codGetErrorMsg2(), message);
        EXPECT_TRUE(samePos(codGetErrorPos(), {1, 2, 3}));
        EXPECT_EQ(codGetErrorTrace(nullptr, 0), 3u);
        codSetError("next.cpp", 1, "next", 5, "next");
        EXPECT_EQ(codGetErrorMsg2(), "VEL-00005 next; " + message);
    }).join();
    EXPECT_EQ(codGetErrorMsg2(), message);
}

TEST_F(ErrorBase, ThreadsDoNotSeeEachOthersErrors) {
    std::vector<std::thread> threads;
    for (CodUint32 id = 1; id <= 4; id++) {
        threads.emplace_back([id] {
            for (int round = 0; round < 500; round++) {
                EXPECT_EQ(codGetErrorStackDepth(), 0u);
                codSetError("t.cpp", id, "t", id, "thread %u", id);
                codSetErrorCode(id * 10);
                EXPECT_EQ(codGetErrorMsg(), "\nVEL-0000" + std::to_string(id) + " thread " + std::to_string(id));
                codCleanError();
            }
        });
    }
    for (auto &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(codGetErrorStackDepth(), 0u);
}

std::vector<std::string> logged;
void keepMessage(CodLogLevel level, CodInt32 code, const char *file, const char *func, CodInt32 line, const char *fmt, ...) {
    char text[kTextSize + 100];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    logged.push_back(std::to_string(level) + "|" + std::to_string(code) + "|" + file + "|" + func + "|" + std::to_string(line) + "|" +
                     text);
}

TEST_F(ErrorBase, RaisedErrorsReachTheLoggerAtDebugLevel) {
    CodLogLevel before = codGetLogLevel();
    codSetLogCallback(keepMessage);
    for (int level = COD_LOG_LEVEL_TRACE; level <= COD_LOG_OFF; level++) {
        logged.clear();
        codCleanError();
        codSetLogLevel(static_cast<CodLogLevel>(level));
        codSetError("dir/log.cpp", 77, "raiser", 12345, "100%% of %s", "%s%n");
        codSetErrorCode(5);
        codSetIgnoreError();
        codSetError("dir/log.cpp", 78, "raiser", 1, "ignored");
        codUnsetIgnoreError();
        std::vector<std::string> expected;
        if (level <= COD_LOG_LEVEL_DEBUG) {
            expected.push_back("2|12345|dir/log.cpp|raiser|77|100% of %s%n");
        }
        EXPECT_EQ(logged, expected) << level;
    }
    codSetLogLevel(before);
    codResetLogCallback();
}

}  // namespace
