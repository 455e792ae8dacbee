#include <vel_infra/error/ani_error_base.h>

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include <vel_infra/adr/ani_log_base.h>

#include "base/cod_thread.h"
#include "error/ani_error_format_internal.h"

namespace {

constexpr CodUint32 kDepth = COD_ERROR_STACK_DEPTH;
constexpr CodUint32 kTextSize = COD_ERROR_STACK_TEXT_SIZE;
constexpr CodUint32 kT2sSize = COD_ERROR_MESSAGE_SIZE;

struct CodErrorStack {
    CodErrorMsg2 errors[kDepth];
    // The texts of all entries, each terminated, one behind the other. The byte behind them stays zero: codSetOriginErrMsg may fill
    // the buffer with a text that does not end.
    CodChar message[kTextSize + 1];
    CodUint32 depth;
};

struct CodErrorInfo {
    CodBool ignoreError;
    CodUint32 code;
    CodUint32 line;
    const char *file;
    CodTextPos pos;
    CodErrorStack stack;
    CodUint32 sysErr;
    CodUint32 unused;
    CodChar message[kTextSize];  // composed
    CodChar t2sBuf1[kT2sSize];
    CodChar t2sBuf2[kT2sSize];
    CodChar sysErrBuf[512];
    CodOperErrorTag operTag;
    // A ring; traceCount goes on counting past its end.
    CodErrorPlace trace[COD_ERROR_TRACE_DEPTH];
    CodUint32 traceCount;
};

COD_THREAD_LOCAL(CodErrorInfo, errorInfo, {});

// codRestoreError sets any depth; entries are read as if the stack were full then.
inline CodUint32 usedEntries(const CodErrorStack &stack) {
    return std::min(stack.depth, kDepth);
}

inline CodUint32 clampOffset(CodUint32 offset) {
    return std::min(offset, kTextSize - 1);
}

// A slot taken for a new entry, with the room for its text.
struct Slot {
    CodUint32 index;
    CodErrorMsg2 *entry;
    CodChar *text;
    CodUint32 room;
};

inline Slot takeSlot(CodErrorInfo &info, CodError code) {
    CodErrorStack &stack = info.stack;
    if (stack.depth == 0) {
        info.traceCount = 0;
    }
    stack.depth = std::min(usedEntries(stack) + 1, kDepth);
    CodErrorMsg2 &entry = stack.errors[stack.depth - 1];
    entry.code = code;
    entry.soRaised = false;
    entry.offset = clampOffset(entry.offset);
    info.code = code;
    return {stack.depth - 1, &entry, stack.message + entry.offset, kTextSize - entry.offset};
}

// The slot's text takes `length` bytes, its terminator included. A full stack's last slot is written over and over: there is no
// entry behind it whose text would have to start later.
inline void closeSlot(CodErrorStack &stack, const Slot &slot, CodUint32 length) {
    if (slot.index + 1 < kDepth) {
        stack.errors[slot.index + 1].offset = slot.entry->offset + std::min(length, slot.room);
    }
}

const char *entryText(const CodErrorStack &stack, CodUint32 index) {
    return stack.message + clampOffset(stack.errors[index].offset);
}

// Composes into a buffer of fixed room. A piece that fills the room ends the composition.
class Composer {
public:
    Composer(CodChar *buffer, CodUint32 size) : end_(buffer), room_(size) {
        *end_ = '\0';
    }

    COD_PRINTF(2, 3) bool add(const char *fmt, ...) {
        va_list args;
        va_start(args, fmt);
        const int written = vsnprintf(end_, room_, fmt, args);
        va_end(args);
        if (written < 0) {
            *end_ = '\0';
            return true;
        }
        if (static_cast<CodUint32>(written) >= room_) {
            return false;
        }
        end_ += written;
        room_ -= static_cast<CodUint32>(written);
        return true;
    }

private:
    CodChar *end_;
    CodUint32 room_;
};

const char *getErrorMsg(bool hasErrorPrefix, const char *endStr) {
    CodErrorInfo &info = errorInfo();
    const CodErrorStack &stack = info.stack;
    const CodUint32 used = usedEntries(stack);
    if (used == 0) {
        return info.message;
    }
    Composer out(info.message, kTextSize);
    const CodErrorMsg2 &newest = stack.errors[used - 1];
    const char *text = entryText(stack, used - 1);
    bool open = hasErrorPrefix ? out.add("VEL-%05d %s", static_cast<int>(newest.code), text) : out.add("%s", text);
    for (CodUint32 i = used - 1; open && i-- > 0;) {
        open = out.add("%sVEL-%05d %s", endStr, static_cast<int>(stack.errors[i].code), entryText(stack, i));
    }
    return info.message;
}

// Copies at most room - 1 bytes of text, which may lie in the buffer itself, and terminates.
CodUint32 copyText(const CodText *text, CodChar *buffer, CodUint32 room) {
    const CodUint32 length = text == nullptr || text->str == nullptr ? 0 : std::min(text->len, room - 1);
    if (length != 0) {
        memmove(buffer, text->str, length);
    }
    buffer[length] = '\0';
    return length;
}

// Formats the text of an entry that takes the newest one's place: that one's text may be among the arguments, so it is written
// over only when the new one is complete.
COD_PRINTF(2, 0) COD_COLD int formatOver(const Slot &slot, const char *fmt, va_list args) {
    CodChar text[kTextSize];
    const int written = cod::formatText(text, slot.room, fmt, args);
    if (written >= 0) {
        memcpy(slot.text, text, std::min(static_cast<CodUint32>(written) + 1, slot.room));
    }
    return written;
}

COD_COLD void logError(const CodErrorInfo &info, const char *funcName, CodError code, const char *text) {
    codGetLogCallback()(COD_LOG_LEVEL_DEBUG, static_cast<CodInt32>(code), info.file, funcName, static_cast<CodInt32>(info.line), "%s",
                        text);
}

}  // namespace

// ---- Raising ----

// Apart from its caller, which is declared cold for the sake of the branches that lead to it: this one is compiled for speed.
[[gnu::noinline]] COD_PRINTF(5, 0) static void pushFormatted(const char *file, CodUint32 line, const char *funcName, CodError code,
                                                             const char *fmt, va_list args) {
    CodErrorInfo &info = errorInfo();
    if (info.ignoreError) {
        return;
    }
    const bool isFull = info.stack.depth >= kDepth;
    const Slot slot = takeSlot(info, code);
    slot.entry->sysErr = static_cast<CodUint32>(errno);
    const int written = isFull ? formatOver(slot, fmt, args) : cod::formatText(slot.text, slot.room, fmt, args);
    if (written < 0) {
        *slot.text = '\0';
    }
    closeSlot(info.stack, slot, written < 0 ? 1 : static_cast<CodUint32>(written) + 1);
    info.file = file;
    info.line = line;
    info.sysErr = static_cast<CodUint32>(errno);
    if (COD_UNLIKELY(codGetLogLevel() <= COD_LOG_LEVEL_DEBUG)) {
        logError(info, funcName, code, slot.text);
    }
}

void codSetError(const char *file, CodUint32 line, const char *funcName, CodError code, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    pushFormatted(file, line, funcName, code, fmt, args);
    va_end(args);
}

void codSetErrorMsg(CodErrorMsg *msg) {
    CodErrorInfo &info = errorInfo();
    if (msg == nullptr || info.ignoreError) {
        return;
    }
    msg->message[COD_ERROR_MESSAGE_SIZE - 1] = '\0';
    const Slot slot = takeSlot(info, msg->code);
    const auto length = static_cast<CodUint32>(strlen(msg->message));
    const CodUint32 kept = std::min(length, slot.room - 1);
    memcpy(slot.text, msg->message, kept);
    slot.text[kept] = '\0';
    closeSlot(info.stack, slot, length + 1);
}

void codSetErrorCode(CodError code) {
    CodErrorInfo &info = errorInfo();
    if (info.ignoreError) {
        return;
    }
    const Slot slot = takeSlot(info, code);
    *slot.text = '\0';
    closeSlot(info.stack, slot, 1);
}

void codSetErrorSoRaised(void) {
    CodErrorStack &stack = errorInfo().stack;
    if (const CodUint32 used = usedEntries(stack)) {
        stack.errors[used - 1].soRaised = true;
    }
}

// ---- Reading ----

CodError codGetErrorCode(void) {
    return errorInfo().code;
}

CodError codGetBottomError(void) {
    return errorInfo().stack.errors[0].code;
}

CodUint32 codGetErrorStackDepth(void) {
    return errorInfo().stack.depth;
}

const CodErrorMsg2 *codGetSpecifiedError(CodUint32 depth) {
    const CodErrorStack &stack = errorInfo().stack;
    return depth < usedEntries(stack) ? &stack.errors[depth] : nullptr;
}

CodError codGetSysErr(void) {
    return errorInfo().sysErr;
}

CodUint32 codGetErrorLine(void) {
    return errorInfo().line;
}

const char *codGetErrorFile(void) {
    const char *file = errorInfo().file;
    if (file == nullptr) {
        return "";
    }
    const char *slash = strrchr(file, '/');
    return slash != nullptr ? slash + 1 : file;
}

CodTextPos codGetErrorPos(void) {
    return errorInfo().pos;
}

void codSetPos(CodTextPos pos) {
    errorInfo().pos = pos;
}

void codSetOperTag(CodOperErrorTag tag) {
    errorInfo().operTag = tag;
}

void codSetOperPos(CodTextPos leftPos, CodTextPos oprPos, CodTextPos rightPos) {
    switch (errorInfo().operTag) {
        case OPER_ERROR_LEFT:
            return codSetPos(leftPos);
        case OPER_ERROR_MIDDLE:
            return codSetPos(oprPos);
        default:
            return codSetPos(rightPos);
    }
}

const char *codGetErrorMsg(void) {
    return getErrorMsg(false, "\n");
}

const char *codGetErrorMsg2(void) {
    return getErrorMsg(true, "; ");
}

const char *codGetErrorMsg3(CodBool hasErrorPrefix, const char *endStr) {
    return getErrorMsg(hasErrorPrefix, endStr != nullptr ? endStr : "");
}

const char *codGetLastErrorMsg(void) {
    const CodErrorInfo &info = errorInfo();
    const CodUint32 used = usedEntries(info.stack);
    return used == 0 ? info.message : entryText(info.stack, used - 1);
}

CodUint32 codGetCurErrMsgBufSize(void) {
    const CodErrorStack &stack = errorInfo().stack;
    return stack.depth < 2 ? kTextSize : kTextSize - stack.errors[usedEntries(stack) - 1].offset;
}

void codSetOriginErrMsg(const char *msg) {
    if (msg != nullptr) {
        // The buffer itself is a legal source.
        memmove(errorInfo().stack.message, msg, kTextSize);
    }
}

const char *codGetOriginErrMsg(void) {
    return errorInfo().stack.message;
}

void codRestoreError(CodError errCode, CodUint32 depth, CodTextPos pos) {
    CodErrorInfo &info = errorInfo();
    info.code = errCode;
    info.stack.depth = depth;
    info.pos = pos;
}

// ---- Clearing ----

void codCleanError(void) {
    CodErrorInfo &info = errorInfo();
    if (info.ignoreError) {
        return;
    }
    info.code = 0;
    info.pos = {};
    info.stack.depth = 0;
    info.message[0] = '\0';
    info.traceCount = 0;
}

void codCleanCurError(void) {
    CodErrorInfo &info = errorInfo();
    if (info.ignoreError) {
        return;
    }
    if (info.stack.depth <= 1) {
        return codCleanError();
    }
    info.stack.depth--;
    info.code = info.stack.errors[usedEntries(info.stack) - 1].code;
}

void codSetIgnoreError(void) {
    errorInfo().ignoreError = true;
}

void codUnsetIgnoreError(void) {
    errorInfo().ignoreError = false;
}

// ---- Texts for message arguments ----

const char *codSysErrDesc(CodUint32 err) {
    CodErrorInfo &info = errorInfo();
    char reason[256];
    const auto number = static_cast<int>(err);
    // The GNU strerror_r, which returns its text.
    const char *text = strerror_r(number, reason, sizeof reason);
    if (snprintf(info.sysErrBuf, sizeof info.sysErrBuf, "errno %d, error message \"%s\"", number, text) < 0) {
        return "print error desc failed!";
    }
    return info.sysErrBuf;
}

const char *codErrT2S(const CodText *text) {
    CodErrorInfo &info = errorInfo();
    copyText(text, info.t2sBuf1, kT2sSize);
    return info.t2sBuf1;
}

const char *codErrT2SEx(const CodText *text) {
    CodErrorInfo &info = errorInfo();
    copyText(text, info.t2sBuf2, kT2sSize);
    return info.t2sBuf2;
}

const char *codErrT2SWithDoubleQuotes(const CodText *text) {
    CodErrorInfo &info = errorInfo();
    CodChar *buffer = info.t2sBuf1;
    // Room for the text and its terminator once both quotes are placed around it.
    const CodUint32 length = copyText(text, buffer + 1, kT2sSize - 2);
    if (length == 0) {
        buffer[0] = '\0';
        return buffer;
    }
    buffer[0] = '"';
    buffer[length + 1] = '"';
    buffer[length + 2] = '\0';
    return buffer;
}

char *codGetErrT2SBuf(void) {
    return errorInfo().t2sBuf1;
}

char *codGetErrT2SExBuf(void) {
    return errorInfo().t2sBuf2;
}

// ---- Saving ----

namespace {

// Bytes of the text buffer up to the end of the newest entry's text, and the offset that follows them.
CodUint32 usedText(const CodErrorMsg2 *errors, const CodChar *message, CodUint32 depth) {
    if (depth == 0) {
        return 0;
    }
    CodUint32 end = 0;
    for (CodUint32 i = 0; i < std::min(depth, kDepth); i++) {
        const CodUint32 start = clampOffset(errors[i].offset);
        end = std::max(end, start + static_cast<CodUint32>(strnlen(message + start, kTextSize - start)) + 1);
    }
    return std::min(end, kTextSize);
}

}  // namespace

void codSaveError(CodErrorSave *save) {
    if (save == nullptr) {
        return;
    }
    const CodErrorInfo &info = errorInfo();
    save->code = info.code;
    save->line = info.line;
    save->file = info.file;
    save->pos = info.pos;
    save->sysErr = info.sysErr;
    save->depth = info.stack.depth;
    memcpy(save->errors, info.stack.errors, sizeof save->errors);
    memcpy(save->message, info.stack.message, usedText(info.stack.errors, info.stack.message, info.stack.depth));
    memcpy(save->trace, info.trace, sizeof save->trace);
    save->traceCount = info.traceCount;
}

void codRestoreSavedError(const CodErrorSave *save) {
    if (save == nullptr) {
        return;
    }
    CodErrorInfo &info = errorInfo();
    info.code = save->code;
    info.line = save->line;
    info.file = save->file;
    info.pos = save->pos;
    info.sysErr = save->sysErr;
    info.stack.depth = save->depth;
    memcpy(info.stack.errors, save->errors, sizeof save->errors);
    memcpy(info.stack.message, save->message, usedText(save->errors, save->message, save->depth));
    memcpy(info.trace, save->trace, sizeof save->trace);
    info.traceCount = save->traceCount;
    if (save->depth == 0) {
        info.message[0] = '\0';
    }
}

// ---- The trace ----

void codPushErrorTrace(const char *file, CodUint32 line, const char *funcName) {
    CodErrorInfo &info = errorInfo();
    if (info.ignoreError) {
        return;
    }
    info.trace[info.traceCount % COD_ERROR_TRACE_DEPTH] = {file, funcName, line};
    info.traceCount++;
}

CodUint32 codGetErrorTrace(CodErrorPlace *places, CodUint32 capacity) {
    const CodErrorInfo &info = errorInfo();
    const CodUint32 kept = std::min<CodUint32>(info.traceCount, COD_ERROR_TRACE_DEPTH);
    const CodUint32 first = info.traceCount - kept;
    for (CodUint32 i = 0; places != nullptr && i < std::min(kept, capacity); i++) {
        places[i] = info.trace[(first + i) % COD_ERROR_TRACE_DEPTH];
    }
    return kept;
}
