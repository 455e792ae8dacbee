#ifndef VEL_PROGRESS_H
#define VEL_PROGRESS_H

#include "csv_reader.h"

namespace vel {

// A line on standard error that tells how far a long run is, when standard error is a terminal. It is erased when the progress ends.
class Progress final : public ReadObserver {
public:
    Progress();
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void onRead(CodUint64 bytes, CodUint64 rows) override;

private:
    bool isTerminal_;
    bool isShown_ = false;
    CodInstant nextTime_;
};

}  // namespace vel

#endif
