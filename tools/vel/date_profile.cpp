#include "date_profile.h"

#include <algorithm>
#include <string_view>

#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/utils/ani_date_iso.h>

namespace vel {

void DateProfile::addDate(const CodText &text) {
    CodDate date = 0;
    if (codDateFromIso(&text, &date) != COD_SUCCESS) {
        codCleanCurError();
        isText_ = true;
        return;
    }
    // Only a time of day has colons, and only behind it may a zone stand.
    const std::string_view view(text.str, text.len);
    const size_t colon = view.find(':');
    const bool hasTime = colon != std::string_view::npos;
    const bool hasZone = hasTime && view.find_first_of("Zz+-", colon) != std::string_view::npos;
    hasTimes_ |= hasTime;
    hasZones_ |= hasZone;
    lacksZones_ |= !hasZone;
    earliest_ = std::min(earliest_, date);
    latest_ = std::max(latest_, date);
}

}  // namespace vel
