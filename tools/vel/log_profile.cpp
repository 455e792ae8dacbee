#include "log_profile.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <new>
#include <string_view>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_date_iso.h>

#include "work_memory.h"

namespace vel {

namespace {

// Each function below takes what it reads off the text's beginning, and is false when something else stands there.

bool takeText(std::string_view *text, std::string_view expected) {
    if (!text->starts_with(expected)) {
        return false;
    }
    text->remove_prefix(expected.size());
    return true;
}

template <typename Integer>
bool takeInteger(std::string_view *text, Integer *value) {
    const auto [rest, fault] = std::from_chars(text->begin(), text->end(), *value);
    text->remove_prefix(static_cast<size_t>(rest - text->begin()));
    return fault == std::errc();
}

// The digits are looked for first: a failure of the reader costs more, and the reader also knows other forms.
bool takeTime(std::string_view *text) {
    constexpr std::string_view kForm = "0000-00-00 00:00:00.000";
    static_assert(kForm.size() == LogLines::kTimeSize);
    const auto isAsFormed = [](char form, char letter) { return form == '0' ? letter >= '0' && letter <= '9' : letter == form; };
    if (text->size() < kForm.size() || !std::equal(kForm.begin(), kForm.end(), text->begin(), isAsFormed)) {
        return false;
    }
    const CodText time = {const_cast<char *>(text->data()), LogLines::kTimeSize, 0};
    text->remove_prefix(kForm.size());
    CodDate date;
    if (codDateFromIso(&time, &date) != COD_SUCCESS) {
        codCleanCurError();
        return false;
    }
    return true;
}

bool takeLevel(std::string_view *text, int *level) {
    for (*level = COD_LOG_LEVEL_TRACE; *level < LogProfile::kLevelEnd; (*level)++) {
        if (takeText(text, codGetLogLevelDesc(static_cast<CodLogLevel>(*level)))) {
            return true;
        }
    }
    return false;
}

// What stands before the message.
struct LineHead {
    int level;
    CodInt32 code;  // 0: none
};

// "2026-11-21 09:05:07.123 4711 [INFO] ", or "[ERROR][errno=00301]: " behind the thread.
bool readHead(std::string_view text, LineHead *head) {
    CodInt64 thread;
    head->code = 0;
    if (!takeTime(&text) || !takeText(&text, " ") || !takeInteger(&text, &thread) || !takeText(&text, " [") ||
        !takeLevel(&text, &head->level) || !takeText(&text, "]")) {
        return false;
    }
    return takeText(&text, " ") || (takeText(&text, "[errno=") && takeInteger(&text, &head->code) && takeText(&text, "]: "));
}

CodInt32 compareFrequency(const void *left, const void *right) {
    const LogCode &a = **static_cast<LogCode *const *>(left);
    const LogCode &b = **static_cast<LogCode *const *>(right);
    if (a.lines.count != b.lines.count) {
        return a.lines.count > b.lines.count ? -1 : 1;
    }
    return a.code < b.code ? -1 : 1;
}

}  // namespace

void LogLines::add(const char *time) {
    if (count == 0 || memcmp(time, earliest, kTimeSize) < 0) {
        memcpy(earliest, time, kTimeSize);
    }
    if (count == 0 || memcmp(time, latest, kTimeSize) > 0) {
        memcpy(latest, time, kTimeSize);
    }
    count++;
}

LogProfile::~LogProfile() {
    releaseMapOfCarvedEntries(&byCode_);
    codDArrayRelease(&codes_);
    mctxDestroy(memory_);
}

CodResult LogProfile::init(MemoryPool *pool) {
    codDArrayInit(&codes_, sizeof(LogCode *), codMemGetSystemAlloc(), 0);
    COD_TRY(mctxCreate(pool, &memory_));
    return initMapOfCarvedEntries(&byCode_, codHashCompareUint64, codHashCalcUint64);
}

CodResult LogProfile::feed(const char *bytes, CodUint64 size) {
    while (size > 0) {
        const auto *end = static_cast<const char *>(memchr(bytes, '\n', size));
        const CodUint64 part = end == nullptr ? size : static_cast<CodUint64>(end - bytes);
        keep(bytes, part);
        if (end == nullptr) {
            return COD_SUCCESS;
        }
        COD_TRY(takeLine());
        bytes += part + 1;
        size -= part + 1;
    }
    return COD_SUCCESS;
}

CodResult LogProfile::finish() {
    if (isInLine_) {
        COD_TRY(takeLine());
    }
    codDArrayQuickSort(&codes_, compareFrequency);
    return COD_SUCCESS;
}

void LogProfile::keep(const char *bytes, CodUint64 size) {
    isInLine_ = true;
    const auto kept = static_cast<CodUint32>(std::min<CodUint64>(size, kHeadSize - headSize_));
    memcpy(head_ + headSize_, bytes, kept);
    headSize_ += kept;
}

CodResult LogProfile::takeLine() {
    LineHead head;
    const bool isOfLog = readHead({head_, headSize_}, &head);
    isInLine_ = false;
    headSize_ = 0;
    if (!isOfLog) {
        otherLines_++;
        return COD_SUCCESS;
    }
    all_.add(head_);
    levels_[head.level].add(head_);
    return head.code == 0 ? COD_SUCCESS : countCode(head.code, head_);
}

CodResult LogProfile::countCode(CodInt32 code, const char *time) {
    const CodHashPointer key = {.intValue = static_cast<CodUint32>(code)};
    static_assert(offsetof(LogCode, link) == 0);
    auto *counted = reinterpret_cast<LogCode *>(codHMapFind(&byCode_, key));
    if (counted == nullptr) {
        if (codeCount() == kMostCodes) {
            linesOfOtherCodes_++;
            return COD_SUCCESS;
        }
        COD_TRY(addCode(key, &counted));
        counted->code = code;
    }
    counted->lines.add(time);
    return COD_SUCCESS;
}

CodResult LogProfile::addCode(CodHashPointer key, LogCode **code) {
    void *place = nullptr;
    COD_TRY(mctxAlloc(memory_, sizeof(LogCode), &place));
    *code = new (place) LogCode();
    (*code)->link.key = key;
    COD_TRY(codHMapAdd(&byCode_, &(*code)->link));
    return codDArrayPushBackItem(&codes_, code);
}

}  // namespace vel
