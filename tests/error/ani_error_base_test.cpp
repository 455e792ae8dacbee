#include <vel_infra/error/ani_error_base.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <optional>

#include "support/memory_support.h"

namespace {

using namespace memory_support;

using ErrorBase = CleanState;

constexpr CodUint32 kTextSize = COD_ERROR_STACK_TEXT_SIZE;
constexpr CodUint32 kDepth = COD_ERROR_STACK_DEPTH;

// A slow model of the whole error state.
struct Model {
    struct Entry {
        CodUint32 code = 0, sysErr = 0, offset = 0;
        bool soRaised = false;
        bool operator==(const Entry &) const = default;
    };

    bool ignore = false;
    CodUint32 code = 0, line = 0, sysErr = 0, depth = 0;
    int tag = 0;
    std::string file, composed, text = std::string(kTextSize, '\0');
    CodTextPos pos{};
    std::array<Entry, kDepth> errors{};
    std::vector<CodUint32> trace;

    CodUint32 readable() const {
        return std::min(depth, kDepth);
    }
    std::string textOf(CodUint32 index) const {
        CodUint32 start = std::min(errors[index].offset, kTextSize - 1);
        return text.substr(start, text.find('\0', start) - start);
    }

    bool push(CodUint32 newCode, const std::string &formatted) {
        if (ignore) {
            return false;
        }
        if (depth == 0) {
            trace.clear();
        }
        CodUint32 wanted = readable() + 1;
        depth = std::min(wanted, kDepth);
        Entry &entry = errors[depth - 1];
        code = newCode;
        entry = {newCode, entry.sysErr, std::min(entry.offset, kTextSize - 1), false};
        CodUint32 room = kTextSize - entry.offset;
        std::string kept = formatted.substr(0, room - 1) + '\0';
        text.replace(entry.offset, kept.size(), kept);
        if (wanted < kDepth) {
            errors[wanted].offset = entry.offset + std::min(static_cast<CodUint32>(formatted.size()) + 1, room);
        }
        return true;
    }

    void clean(CodUint32 entries) {
        if (!ignore && depth > entries) {
            depth -= entries;
            code = errors[readable() - 1].code;
        } else if (!ignore) {
            code = depth = 0;
            pos = {};
            composed.clear();
            trace.clear();
        }
    }

    const std::string &compose(bool prefix, const std::string &separator) {
        for (CodUint32 index = readable(); index-- > 0;) {
            bool newest = index == readable() - 1;
            char head[32];
            std::snprintf(head, sizeof(head), "VEL-%05d ", static_cast<int>(errors[index].code));
            composed = (newest ? "" : composed + separator) + (newest && !prefix ? "" : head) + textOf(index);
        }
        composed.resize(std::min<std::size_t>(composed.size(), kTextSize - 1));
        return composed;
    }
};

// An error that one thread saved and another may put back.
struct Saved {
    CodErrorSave error;
    std::optional<Model> model;
};

// The real state beside the model, one random operation at a time.
class Walk {
public:
    Walk(std::uint64_t seed, Saved &saved) : random_(seed), saved_(saved) {}

    void run(int steps) {
        static constexpr std::pair<const char *, void (*)(Walk &)> kOperations[] = {
            {"set", [](Walk &w) { w.setError(); }},
            {"set", [](Walk &w) { w.setError(); }},
            {"set", [](Walk &w) { w.setError(); }},
            {"message", [](Walk &w) { w.setMsg(); }},
            {"code", [](Walk &w) { w.model_.push(w.number_, ""), codSetErrorCode(w.number_); }},
            {"so raised", [](Walk &w) { w.soRaised(); }},
            {"drop", [](Walk &w) { w.model_.clean(1), codCleanCurError(); }},
            {"clean", [](Walk &w) { w.model_.clean(0xFFFFFFFFu), codCleanError(); }},
            {"ignore", [](Walk &w) { (w.model_.ignore = w.random_.oneIn(3)) ? codSetIgnoreError() : codUnsetIgnoreError(); }},
            {"unignore", [](Walk &w) { w.model_.ignore = false, codUnsetIgnoreError(); }},
            {"restore", [](Walk &w) { w.restore(); }},
            {"origin", [](Walk &w) { w.origin(); }},
            {"position", [](Walk &w) { codSetPos(w.model_.pos = w.randomPos()); }},
            {"operand positions", [](Walk &w) { w.setOperPos(); }},
            {"trace", [](Walk &w) { w.pushTrace(); }},
            {"save", [](Walk &w) { w.save(); }},
            {"put back", [](Walk &w) { w.putBack(); }},
        };
        for (int step = 0; step < steps && !testing::Test::HasFailure(); step++) {
            const auto &[name, operation] = random_.pick(kOperations);
            number_ = random_.below(10000);
            operation(*this);
            compare();
            EXPECT_FALSE(testing::Test::HasFailure()) << "step " << step << " " << name;
        }
    }

private:
    std::string randomText() {
        static constexpr CodUint32 kLengths[] = {0, 1, 1, 7, 20, 20, 100, 1000, 1023, 1024, 4000, 8190, 8191, 8192, 8193, 20000};
        return std::string(random_.pick(kLengths), static_cast<char>('a' + random_.below(26)));
    }
    CodTextPos randomPos() {
        return {random_.below(9), random_.below(99), random_.below(9999)};
    }

    void setError() {
        static const char *kFiles[] = {"a/b/one.cpp", "two.cpp", "three/", "", "/", "/a//b"};
        std::string text = randomText();
        const char *file = random_.pick(kFiles);
        const char *argument = text.c_str();
        CodUint32 code = random_.oneIn(9) ? 0xFFFFFFFFu - random_.below(3) : random_.below(100000);
        bool again = model_.depth >= kDepth && random_.oneIn(4);
        if (again) {
            text = model_.textOf(kDepth - 1) + " again";
            argument = codGetLastErrorMsg();  // the text whose place the new one takes
        }
        static const wchar_t kNotACharacter[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
        bool bad = random_.oneIn(10);
        CodUint32 error = random_.below(100);
        errno = static_cast<int>(error);
        codSetError(file, number_, "walk", code, bad ? "%.0s%ls" : again ? "%s again%.0ls" : "%s%.0ls", argument, kNotACharacter);
        if (model_.push(code, bad ? "" : text)) {
            model_.errors[model_.depth - 1].sysErr = error;
            model_.sysErr = bad ? EILSEQ : error;
            model_.file = file;
            model_.line = number_;
        }
    }

    void setMsg() {
        CodErrorMsg msg{};
        msg.code = number_;
        std::string text = randomText().substr(0, COD_ERROR_MESSAGE_SIZE);
        std::memcpy(msg.message, text.data(), text.size());
        codSetErrorMsg(&msg);
        model_.push(msg.code, text.substr(0, COD_ERROR_MESSAGE_SIZE - 1));
    }

    void soRaised() {
        codSetErrorSoRaised();
        if (model_.depth > 0) {
            model_.errors[model_.readable() - 1].soRaised = true;
        }
    }

    void restore() {
        model_.code = number_;
        model_.depth = random_.oneIn(4) ? random_.below(2) * 0xFFFFFFF0u + 5 + random_.below(11) : random_.below(5);
        model_.pos = randomPos();
        codRestoreError(model_.code, model_.depth, model_.pos);
    }

    void origin() {
        for (char &byte : model_.text) {
            byte = random_.oneIn(500) ? '\0' : static_cast<char>('A' + random_.below(26));
        }
        codSetOriginErrMsg(model_.text.data());
    }

    void setOperPos() {
        model_.tag = static_cast<int>(random_.below(4));
        codSetOperTag(static_cast<CodOperErrorTag>(model_.tag));
        CodTextPos left = randomPos(), middle = randomPos(), right = randomPos();
        codSetOperPos(left, middle, right);
        model_.pos = model_.tag == OPER_ERROR_LEFT ? left : model_.tag == OPER_ERROR_MIDDLE ? middle : right;
    }

    void pushTrace() {
        for (CodUint32 i = 0; i < 1 + number_ % 20; i++) {
            codPushErrorTrace("trace.cpp", number_ + i, "passing");
            if (!model_.ignore) {
                model_.trace.push_back(number_ + i);
            }
        }
    }

    void save() {
        if (model_.depth <= kDepth) {
            codSaveError(&saved_.error);
            saved_.model = model_;
        }
    }

    void putBack() {
        if (saved_.model && !model_.ignore) {
            codRestoreSavedError(&saved_.error);
            Model back = *saved_.model;
            back.composed.clear();
            back.tag = model_.tag;
            back.ignore = false;
            for (CodUint32 i = 0; i < back.depth; i++) {
                ASSERT_EQ(codGetOriginErrMsg() + std::min(back.errors[i].offset, kTextSize - 1), back.textOf(i));
            }
            back.text.assign(codGetOriginErrMsg(), kTextSize);  // what no entry uses is free
            model_ = back;
        }
    }

    void compare() {
        CodTextPos pos = codGetErrorPos();
        EXPECT_EQ(std::memcmp(&pos, &model_.pos, sizeof(pos)), 0);
        EXPECT_EQ((std::array{codGetErrorCode(), codGetErrorStackDepth(), codGetErrorLine(), codGetSysErr()}),
                  (std::array{model_.code, model_.depth, model_.line, model_.sysErr}));
        EXPECT_EQ(codGetErrorFile(), model_.file.substr(model_.file.rfind('/') + 1));
        EXPECT_EQ(std::memcmp(codGetOriginErrMsg(), model_.text.data(), kTextSize), 0);
        CodUint32 top = model_.readable();
        EXPECT_TRUE(top == 0 || codGetBottomError() == model_.errors[0].code);
        EXPECT_EQ(codGetCurErrMsgBufSize(), top < 2 ? kTextSize : kTextSize - model_.errors[top - 1].offset);
        for (CodUint32 i : {0u, 1u, 2u, 3u, 4u, 0xFFFFFFFFu}) {
            const CodErrorMsg2 *entry = codGetSpecifiedError(i);
            ASSERT_EQ(entry != nullptr, i < top);
            EXPECT_TRUE(i >= top || (Model::Entry{entry->code, entry->sysErr, entry->offset, entry->soRaised != 0}) == model_.errors[i]);
        }
        EXPECT_EQ(codGetLastErrorMsg(), top == 0 ? model_.composed : model_.textOf(top - 1));
        static const std::string kSeparators[] = {"", "; ", "\n", "<...>", std::string(3000, '-')};
        const std::string &separator = random_.pick(kSeparators);
        bool prefix = random_.oneIn(2);
        if (random_.oneIn(3)) {
            EXPECT_EQ(codGetErrorMsg(), model_.compose(false, "\n"));
        } else if (random_.oneIn(2)) {
            EXPECT_EQ(codGetErrorMsg2(), model_.compose(true, "; "));
        } else {
            EXPECT_EQ(codGetErrorMsg3(prefix, separator.empty() ? nullptr : separator.c_str()), model_.compose(prefix, separator));
        }
        CodErrorPlace places[COD_ERROR_TRACE_DEPTH + 4];
        CodUint32 capacity = random_.below(COD_ERROR_TRACE_DEPTH + 5);
        std::size_t kept = std::min<std::size_t>(model_.trace.size(), COD_ERROR_TRACE_DEPTH);
        ASSERT_EQ(codGetErrorTrace(capacity == 0 ? nullptr : places, capacity), kept);
        for (std::size_t i = 0; i < std::min<std::size_t>(kept, capacity); i++) {
            EXPECT_EQ(places[i].line, model_.trace[model_.trace.size() - kept + i]);
            EXPECT_EQ(std::string(places[i].file) + places[i].funcName, "trace.cpppassing");
        }
    }

    Random random_;
    Model model_;
    Saved &saved_;
    CodUint32 number_ = 0;  // drawn for every step
};

TEST_F(ErrorBase, RandomOperationsOnEveryThreadKeepTheStateOfTheModel) {
    onThreads(4, [](CodUint32 id) {
        auto saved = std::make_unique<Saved>();
        for (std::uint64_t seed = id; seed <= 300 && !HasFailure(); seed += 4) {
            // A fresh thread each time: a thread's state starts out as zeros.
            std::thread([&] { Walk(seed, *saved).run(800); }).join();
            EXPECT_FALSE(HasFailure()) << "seed " << seed;
        }
    });
    EXPECT_EQ(codGetErrorStackDepth(), 0u);
}

TEST_F(ErrorBase, TextArgumentsAreCutToTheirBuffers) {
    for (CodUint32 length : {0u, 1u, 2u, 1020u, 1021u, 1022u, 1023u, 1024u, 1500u}) {
        std::string first(length, 'x'), second(length, 'y');
        CodText text = {first.data(), length, 0}, other = {second.data(), length, 0};
        const char *copy = codErrT2S(&text), *copyEx = codErrT2SEx(&other);
        EXPECT_EQ(copy, first.substr(0, 1023));
        EXPECT_EQ(codErrT2SWithDoubleQuotes(&other), length == 0 ? "" : '"' + second.substr(0, 1021) + '"');
        EXPECT_EQ(copyEx, second.substr(0, 1023)) << "the second buffer is its own";
        EXPECT_TRUE(length == 0 || (copy == codGetErrT2SBuf() && copyEx == codGetErrT2SExBuf()));
    }
    for (auto *function : {codErrT2S, codErrT2SEx, codErrT2SWithDoubleQuotes}) {
        EXPECT_STREQ(function(nullptr), "");
    }
    EXPECT_STREQ(codSysErrDesc(2), "errno 2, error message \"No such file or directory\"");
    EXPECT_STREQ(codSysErrDesc(0xFFFFFFFFu), "errno -1, error message \"Unknown error -1\"");
}

CodUint32 raiseLine, tryLine;
CodResult failBelow(CodUint32 levels, CodResult result) {
    if (levels == 0) {
        raiseLine = __LINE__ + 1;
        return result == COD_ERROR ? codRaise(ERR_CMM_VELON_JSON_SYNTAX_ERROR, -1, 2, "100%") : result;
    }
    tryLine = __LINE__ + 1;
    COD_TRY(failBelow(levels - 1, result));
    return COD_SUCCESS;
}

TEST_F(ErrorBase, RaiseAndTryNoteTheirPlaces) {
    CodErrorPlace places[COD_ERROR_TRACE_DEPTH];
    for (CodUint32 levels : {0u, 1u, 2u, 16u, 17u, 40u}) {
        for (CodResult result : {COD_SUCCESS, COD_ERROR, COD_SUCCESS_WITH_INFO}) {
            codCleanError();
            EXPECT_EQ(failBelow(levels, result), result);
            EXPECT_STREQ(codGetLastErrorMsg(), result == COD_ERROR ? "JSON syntax error at line -1 column 2: 100%" : "");
            CodUint32 kept = result == COD_SUCCESS ? 0 : std::min<CodUint32>(levels, COD_ERROR_TRACE_DEPTH);
            ASSERT_EQ(codGetErrorTrace(places, COD_ERROR_TRACE_DEPTH), kept) << levels;
            EXPECT_TRUE(
                std::all_of(places, places + kept, [](auto &at) { return at.line == tryLine && !std::strcmp(at.funcName, "failBelow"); }));
        }
    }
    EXPECT_EQ(failBelow(0, COD_ERROR), COD_ERROR);
    EXPECT_EQ(codGetErrorLine(), raiseLine);
    EXPECT_STREQ(codGetErrorFile(), "ani_error_base_test.cpp");
}

TEST_F(ErrorBase, RaisedErrorsReachTheLoggerAtDebugLevel) {
    codSetLogCallback(keepLogged);
    for (int level = COD_LOG_LEVEL_TRACE; level <= COD_LOG_OFF; level++) {
        logged.clear();
        codSetLogLevel(static_cast<CodLogLevel>(level));
        codSetError("dir/log.cpp", 77, "raiser", 12345, "100%% of %s", "%s%n");
        codSetIgnoreError();
        codSetError("dir/log.cpp", 78, "raiser", 1, "ignored");
        codUnsetIgnoreError();
        EXPECT_EQ(logged, std::vector<std::string>(level <= COD_LOG_LEVEL_DEBUG, "2|12345|dir/log.cpp|raiser|77|100% of %s%n")) << level;
    }
}

}  // namespace
