#ifndef VEL_LOG_PROFILE_H
#define VEL_LOG_PROFILE_H

#include <vel_infra/adr/ani_log_base.h>
#include <vel_infra/collection/ani_darray.h>
#include <vel_infra/collection/ani_hashmap.h>
#include <vel_infra/memory/ani_memory.h>

#include "input_file.h"

namespace vel {

// How many lines, and when. Times are kept as the lines show them, and sort as texts: "2026-11-21 09:05:07.123".
struct LogLines {
    static constexpr CodUint32 kTimeSize = 23;

    CodUint64 count = 0;
    char earliest[kTimeSize + 1] = "-";
    char latest[kTimeSize + 1] = "-";

    void add(const char *time);
};

// The lines of one error code.
struct LogCode {
    CodHashEntry link;  // key: the code
    CodInt32 code;
    LogLines lines;
};

// Counts the lines of a run log by level and by error code. Anything that does not begin as a line of a run log does, such as the further
// lines of a message with line feeds in it, is another line. Lines may have any length: only their beginning is kept.
class LogProfile final : public PieceSink {
public:
    // Codes that are counted each by itself; memory is bounded so.
    static constexpr CodUint32 kMostCodes = 4096;
    // Levels count from COD_LOG_LEVEL_TRACE; the last one stands for those without a name.
    static constexpr int kLevelEnd = COD_LOG_OFF + 2;

    LogProfile() = default;
    ~LogProfile();
    LogProfile(const LogProfile &) = delete;
    LogProfile &operator=(const LogProfile &) = delete;

    // The pool must outlive the profile.
    CodResult init(MemoryPool *pool);
    // Errors: those of the pool and of the system allocator.
    CodResult feed(const char *bytes, CodUint64 size) override;
    CodResult finish() override;
    // All lines.
    CodUint64 rows() const override {
        return all_.count + otherLines_;
    }

    // The lines of the run log.
    const LogLines &all() const {
        return all_;
    }
    const LogLines &level(int level) const {
        return levels_[level];
    }
    CodUint64 otherLines() const {
        return otherLines_;
    }
    // Behind finish: most frequent first, equally frequent ones by code.
    CodUint32 codeCount() const {
        return codDArrayCount(&codes_);
    }
    const LogCode &code(CodUint32 index) const {
        return **static_cast<LogCode *const *>(codDArrayAt(&codes_, index));
    }
    // The lines of the codes that were not counted each by itself.
    CodUint64 linesOfOtherCodes() const {
        return linesOfOtherCodes_;
    }

private:
    // Time, thread, level and code of a line fit in.
    static constexpr CodUint32 kHeadSize = 128;

    void keep(const char *bytes, CodUint64 size);
    CodResult takeLine();
    CodResult countCode(CodInt32 code, const char *time);
    CodResult addCode(CodHashPointer key, LogCode **code);

    MemoryContext *memory_ = nullptr;
    CodHashMap byCode_ = {};
    CodDArray codes_ = {};  // LogCode *
    LogLines all_;
    LogLines levels_[kLevelEnd];
    CodUint64 otherLines_ = 0;
    CodUint64 linesOfOtherCodes_ = 0;
    bool isInLine_ = false;
    CodUint32 headSize_ = 0;  // bytes of the current line in head_
    char head_[kHeadSize];
};

}  // namespace vel

#endif
