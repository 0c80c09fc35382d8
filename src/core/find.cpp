// Finding the program in a directory.
#include <dirent.h>
#include <sys/stat.h>

#include "core/core.h"

int findFirstTvxFile(std::string& out, const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (!d) return 0;
    while (const dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name.empty() || name[0] == '.') continue;
        if (name.size() < 4 || name.compare(name.size() - 4, 4, ".tvx") != 0) continue;
        // The path is cut as a 4,096-byte buffer would cut it.
        std::string path = dir + "/" + name;
        if (path.size() > 4095) path.resize(4095);
        struct stat sb{};
        if (stat(path.c_str(), &sb) != 0) continue;
        if (S_ISREG(sb.st_mode)) {
            out = path;
            closedir(d);
            return 1;
        }
    }
    closedir(d);
    return 0;
}
