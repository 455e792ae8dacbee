#pragma once

// Where a path leads, for those who want the place and not the value.

#include <vel_infra/velon/ani_velon_path.h>

#include "velon/ani_velon_base_internal.h"

namespace cod::velon {

struct PathResult {
    VelonLazyValue value;
    const CodUint8 *entry;  // of an array's element: its entry
};

CodResult findPath(const Velon &velon, const CodText &path, PathResult *result);

}  // namespace cod::velon
