#ifndef VEL_PROGRESS_H
#define VEL_PROGRESS_H

#include <vel_infra/base/cod_types.h>

namespace vel {

// A line on standard error that tells how far a long run is, when standard error is a terminal. It is erased when the progress ends.
class Progress {
public:
    // What is counted beside the bytes: "row". Null: there is no line.
    explicit Progress(const char *unit);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Both since the beginning.
    void show(CodUint64 bytes, CodUint64 count);

private:
    const char *unit_;
    bool isTerminal_;
    bool isShown_ = false;
    CodInstant nextTime_;
};

}  // namespace vel

#endif
