#include "codepage_folder.h"

#include <limits.h>

#include <vel_infra/codepage/ani_codepage.h>
#include <vel_infra/error/ani_error_base.h>
#include <vel_infra/infra/ani_infra.h>

namespace vel {

CodResult loadCodepages(const char *folder) {
    char found[PATH_MAX];
    if (folder == nullptr) {
        COD_TRY(codInfraCodepageFolder(found, sizeof(found)));
        folder = found;
    }
    return aniCodepageInitFrom(folder);
}

}  // namespace vel
