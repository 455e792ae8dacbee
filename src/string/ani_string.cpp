#include <vel_infra/string/ani_string.h>

#include <errno.h>
#include <iconv.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>

#include <vel_infra/error/ani_error_base.h>

#include "string/ani_text_internal.h"

using cod::isMissing;
using cod::terminatorSize;

namespace {

COD_COLD CodResult raiseNull() {
    return codRaise(ERR_CMM_POINTER_NULL);
}
COD_COLD CodResult raiseNoRoom(const CodText &text, CodUint32 bufSize) {
    return codRaise(ERR_CMM_COPY_DATA, text.len, bufSize);
}
COD_COLD CodResult raiseNotConverted() {
    return codRaise(ERR_CMM_CONVERT_STRING);
}

void giveLength(CodUint32 *len, CodUint32 value) {
    if (len != nullptr) {
        *len = value;
    }
}

// As much of a terminator as there is room for.
void convertEmpty(CodUint16 charset, CodChar *buf, CodUint32 bufSize, CodUint32 *len) {
    const CodUint32 zeros = bufSize < terminatorSize(charset) ? bufSize : terminatorSize(charset);
    if (zeros != 0) {
        memset(buf, 0, zeros);
    }
    giveLength(len, 0);
}

// What a conversion came to. A converter that fails has used the characters before the one that it fails at.
enum class Outcome { kWhole, kFull, kCut, kRefused };
struct Converted {
    Outcome outcome;
    CodUint32 read;
    CodUint32 written;
};

Converted convert(void *handle, const CodText &text, CodChar *buf, CodUint32 room) {
    const int saved = errno;
    char *in = text.str;
    char *out = buf;
    size_t inLeft = text.len;
    size_t outLeft = room;
    Outcome outcome = Outcome::kWhole;
    if (iconv(handle, &in, &inLeft, &out, &outLeft) == static_cast<size_t>(-1)) {
        outcome = errno == E2BIG ? Outcome::kFull : errno == EINVAL ? Outcome::kCut : Outcome::kRefused;
        // A converter that is kept must not go on with what this text left in it.
        (void)iconv(handle, nullptr, nullptr, nullptr, nullptr);
    }
    errno = saved;
    return {outcome, static_cast<CodUint32>(in - text.str), static_cast<CodUint32>(out - buf)};
}

CodResult convertWhole(void *handle, const CodText &text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint32 *len) {
    const CodUint32 terminator = terminatorSize(dstCharset);
    if (bufSize < terminator) {
        return raiseNoRoom(text, bufSize);
    }
    const Converted converted = convert(handle, text, buf, bufSize - terminator);
    switch (converted.outcome) {
        case Outcome::kWhole:
            break;
        case Outcome::kFull:
            return raiseNoRoom(text, bufSize);
        default:
            return raiseNotConverted();
    }
    memset(buf + converted.written, 0, terminator);
    giveLength(len, converted.written);
    return COD_SUCCESS;
}

// The cases that need no converter. *isDone false: there is one to come.
CodResult convertPlainly(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint32 *len, CodUint16 srcCharset,
                         bool *isDone) {
    *isDone = true;
    if (isMissing(text) || (buf == nullptr && bufSize != 0)) {
        return raiseNull();
    }
    if (text->len == 0) {
        convertEmpty(dstCharset, buf, bufSize, len);
        return COD_SUCCESS;
    }
    if (srcCharset == dstCharset) {
        return codTextConvertSameCharset(text, dstCharset, buf, bufSize, len);
    }
    *isDone = false;
    return COD_SUCCESS;
}

// ---- Kept converters ----
//
// Opening a converter takes several times as long as a short text. Each thread keeps those that it has opened, one for each pair of
// charsets, until it ends. What is replaced depends on the locale at the time of the conversion, which a kept converter follows.

constexpr CodUint32 kCharsets = 6;
struct Kept {
    void *handles[kCharsets][kCharsets];
};

pthread_once_t gKeyOnce = PTHREAD_ONCE_INIT;
pthread_key_t gKey;
bool gHasKey = false;

void closeKept(void *memory) {
    for (auto &row : static_cast<Kept *>(memory)->handles) {
        for (void *handle : row) {
            codCloseIconvHandle(handle);
        }
    }
    free(memory);
}

void makeKey() {
    gHasKey = pthread_key_create(&gKey, closeKept) == 0;
}

// Threads that go on when the library is closed must not call into it as they end; what they keep stays.
[[gnu::destructor]] void deleteKey() {
    if (gHasKey) {
        void *kept = pthread_getspecific(gKey);
        if (kept != nullptr) {
            closeKept(kept);
        }
        pthread_key_delete(gKey);
        gHasKey = false;
    }
}

// Where the thread keeps its converter for the pair; null: there is no such place.
void **keptHandle(CodUint16 srcCharset, CodUint16 dstCharset) {
    pthread_once(&gKeyOnce, makeKey);
    if (srcCharset >= kCharsets || dstCharset >= kCharsets || !gHasKey) {
        return nullptr;
    }
    auto *kept = static_cast<Kept *>(pthread_getspecific(gKey));
    if (kept == nullptr) {
        kept = static_cast<Kept *>(calloc(1, sizeof(Kept)));
        if (kept == nullptr || pthread_setspecific(gKey, kept) != 0) {
            free(kept);
            return nullptr;
        }
    }
    return &kept->handles[srcCharset][dstCharset];
}

bool isFailure(const void *handle) {
    return reinterpret_cast<CodUint64>(handle) == ~CodUint64{0};
}

// The thread's converter, opened when there is none; one that cannot be kept is closed as it is given back.
CodResult borrowHandle(CodUint16 srcCharset, CodUint16 dstCharset, void **handle) {
    void **kept = keptHandle(srcCharset, dstCharset);
    *handle = kept != nullptr ? *kept : nullptr;
    if (*handle == nullptr) {
        COD_TRY(codOpenIconvHandle(srcCharset, dstCharset, handle));
        if (kept != nullptr && !isFailure(*handle)) {
            *kept = *handle;
        }
    }
    return COD_SUCCESS;
}
void giveBack(CodUint16 srcCharset, CodUint16 dstCharset, void *handle) {
    void *const *kept = keptHandle(srcCharset, dstCharset);
    if (kept == nullptr || *kept != handle) {
        codCloseIconvHandle(handle);
    }
}

CodResult streamConvert(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint16 srcCharset,
                        CodUint32 *srcIndicator, CodUint32 *dstIndicator, bool mayTruncate) {
    if (isMissing(text) || (buf == nullptr && bufSize != 0) || srcIndicator == nullptr || dstIndicator == nullptr) {
        return raiseNull();
    }
    *srcIndicator = 0;
    *dstIndicator = 0;
    if (text->len == 0) {
        return COD_SUCCESS;
    }
    void *handle = nullptr;
    COD_TRY(codOpenIconvHandle(srcCharset, dstCharset, &handle));
    const Converted converted = convert(handle, *text, buf, bufSize);
    codCloseIconvHandle(handle);
    *srcIndicator = converted.read;
    *dstIndicator = converted.written;
    if (converted.outcome == Outcome::kWhole || (mayTruncate && converted.outcome != Outcome::kRefused)) {
        return COD_SUCCESS;
    }
    return converted.outcome == Outcome::kFull ? raiseNoRoom(*text, bufSize) : raiseNotConverted();
}

}  // namespace

bool cod::convertPiece(const CodText &text, CodUint16 dstCharset, CodChar *buf, CodUint32 room, CodUint16 srcCharset, CodUint32 *read,
                       CodUint32 *written) {
    *read = 0;
    *written = 0;
    void *handle = nullptr;
    const bool hasNames = codGetCharsetSrcName(srcCharset) != nullptr && codGetCharsetDstName(dstCharset) != nullptr;
    if (text.len == 0 || !hasNames || borrowHandle(srcCharset, dstCharset, &handle) != COD_SUCCESS) {
        return false;
    }
    const Converted converted = convert(handle, text, buf, room);
    giveBack(srcCharset, dstCharset, handle);
    *read = converted.read;
    *written = converted.written;
    return converted.written != 0;
}

CodResult codTextCopy(const CodText *src, CodText *dst, CodUint32 bufSize) {
    if (isMissing(src) || dst == nullptr || (dst->str == nullptr && src->len != 0)) {
        return raiseNull();
    }
    if (src->len > bufSize) {
        return raiseNoRoom(*src, bufSize);
    }
    if (src->len != 0) {
        memmove(dst->str, src->str, src->len);
    }
    dst->len = src->len;
    return COD_SUCCESS;
}

CodResult codTextConvertSameCharset(const CodText *text, CodUint16 charset, CodChar *buf, CodUint32 bufSize, CodUint32 *len) {
    if (isMissing(text) || (buf == nullptr && bufSize != 0)) {
        return raiseNull();
    }
    const CodUint32 terminator = terminatorSize(charset);
    if (CodUint64{text->len} + terminator > bufSize) {
        return raiseNoRoom(*text, bufSize);
    }
    if (text->len != 0) {
        memmove(buf, text->str, text->len);
    }
    memset(buf + text->len, 0, terminator);
    giveLength(len, text->len);
    return COD_SUCCESS;
}

CodResult codTextConvert(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint32 *len, CodUint16 srcCharset) {
    bool isDone = false;
    COD_TRY(convertPlainly(text, dstCharset, buf, bufSize, len, srcCharset, &isDone));
    if (isDone) {
        return COD_SUCCESS;
    }
    void *handle = nullptr;
    COD_TRY(borrowHandle(srcCharset, dstCharset, &handle));
    const CodResult result = convertWhole(handle, *text, dstCharset, buf, bufSize, len);
    giveBack(srcCharset, dstCharset, handle);
    return result;
}

CodResult codTextConvertWithIconv(void *handle, const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint32 *len,
                                  CodUint16 srcCharset) {
    bool isDone = false;
    COD_TRY(convertPlainly(text, dstCharset, buf, bufSize, len, srcCharset, &isDone));
    return isDone ? COD_SUCCESS : handle == nullptr ? raiseNull() : convertWhole(handle, *text, dstCharset, buf, bufSize, len);
}

CodResult codOpenIconvHandle(CodUint16 srcCharset, CodUint16 dstCharset, void **handle) {
    if (handle == nullptr) {
        return raiseNull();
    }
    const char *source = codGetCharsetSrcName(srcCharset);
    const char *target = codGetCharsetDstName(dstCharset);
    const int saved = errno;
    // The converter's failure is a handle with all bits set. It is passed on, and refused by the conversion itself.
    void *opened = source != nullptr && target != nullptr ? iconv_open(target, source) : nullptr;
    errno = saved;
    if (opened == nullptr) {
        return raiseNotConverted();
    }
    *handle = opened;
    return COD_SUCCESS;
}

void codCloseIconvHandle(void *handle) {
    if (handle != nullptr) {
        const int saved = errno;
        (void)iconv_close(handle);
        errno = saved;
    }
}

CodResult codTextStreamConvert(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint16 srcCharset,
                               CodUint32 *srcIndicator, CodUint32 *dstIndicator) {
    return streamConvert(text, dstCharset, buf, bufSize, srcCharset, srcIndicator, dstIndicator, false);
}

CodResult codTextStreamConvertWithTrunc(const CodText *text, CodUint16 dstCharset, CodChar *buf, CodUint32 bufSize, CodUint16 srcCharset,
                                        CodUint32 *srcIndicator, CodUint32 *dstIndicator) {
    return streamConvert(text, dstCharset, buf, bufSize, srcCharset, srcIndicator, dstIndicator, true);
}
