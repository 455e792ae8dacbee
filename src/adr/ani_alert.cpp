#include <vel_infra/adr/ani_alert.h>

#include <stdarg.h>
#include <stdio.h>

#include <atomic>

#include <vel_infra/adr/ani_log_base.h>

static constinit std::atomic<AniAlertCallback> gReceiver{nullptr};

void aniSetAlertCallback(AniAlertCallback callback) {
    gReceiver.store(callback, std::memory_order_relaxed);
}

void aniSendAlert(CodUint32 kind, CodBool isRaise, const char *fmt, ...) {
    char text[256];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);
    if (const AniAlertCallback receiver = gReceiver.load(std::memory_order_relaxed)) {
        receiver(kind, text, isRaise);
    } else if (codGetLogLevel() <= COD_LOG_LEVEL_WARN) {
        codGetLogCallback()(COD_LOG_LEVEL_WARN, 0, __FILE__, __func__, __LINE__, "alert %u %s: %s\n", kind, isRaise ? "raised" : "cleared",
                            text);
    }
}
