#ifndef VEL_CODEPAGE_FOLDER_H
#define VEL_CODEPAGE_FOLDER_H

#include <vel_infra/base/cod_types.h>

namespace vel {

// Loads the code pages from a folder; null: from that of codInfraCodepageFolder.
// Errors: those of codInfraCodepageFolder and aniCodepageInitFrom.
CodResult loadCodepages(const char *folder);

}  // namespace vel

#endif
