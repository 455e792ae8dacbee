#include "codepage_folder.h"

#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <vel_infra/codepage/ani_codepage.h>

namespace vel {

namespace {

// An install has the files in share/vel_infra beside the folder of the command, a build farther up.
std::string foundFolder() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    std::string folder(path, static_cast<size_t>(length < 0 ? 0 : length));
    while (folder.rfind('/') != std::string::npos) {
        folder.resize(folder.rfind('/'));
        std::string found = folder + "/share/vel_infra/admin/codepage";
        struct stat status = {};
        if (stat(found.c_str(), &status) == 0) {
            return found;
        }
    }
    return {};
}

}  // namespace

CodResult loadCodepages(const char *folder) {
    if (folder != nullptr) {
        return aniCodepageInitFrom(folder);
    }
    const std::string found = getenv("VELDB_HOME") == nullptr ? foundFolder() : "";
    return found.empty() ? aniCodepageInit() : aniCodepageInitFrom(found.c_str());
}

}  // namespace vel
