#ifndef VEL_DATE_PROFILE_H
#define VEL_DATE_PROFILE_H

#include <vel_infra/utils/ani_datetime.h>

namespace vel {

// The figures of a column of dates, fed with its values one by one. The first text that is no date of ISO 8601 makes the column one of
// texts for good; it costs nothing from then on.
class DateProfile {
public:
    // isNew: false when an equal text was added before.
    void add(const CodText &text, bool isNew) {
        if (!isText_ && isNew) {
            addDate(text);
        }
    }

    // There are values, and all are dates. The figures below mean nothing otherwise.
    bool isDates() const {
        return !isText_ && earliest_ <= latest_;
    }
    // At least one value has a time of day.
    bool hasTimes() const {
        return hasTimes_;
    }
    // At least one value names a time zone, and was taken as UTC.
    bool hasZones() const {
        return hasZones_;
    }
    // Others name none, so that it is unknown how they lie to those that do.
    bool mixesZones() const {
        return hasZones_ && lacksZones_;
    }
    CodDate earliest() const {
        return earliest_;
    }
    CodDate latest() const {
        return latest_;
    }

private:
    void addDate(const CodText &text);

    bool isText_ = false;
    bool hasTimes_ = false;
    bool hasZones_ = false;
    bool lacksZones_ = false;
    CodDate earliest_ = COD_DATE_MAX;
    CodDate latest_ = COD_DATE_MIN;
};

}  // namespace vel

#endif
