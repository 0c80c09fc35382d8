// Finding the program in a directory, and the root of the guest file system.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/statfs.h>

#include "core/core.h"

namespace {

// path "/" name, cut as a 4,096-byte buffer would cut it.
std::string join(const std::string& path, const std::string& name) {
    std::string out = path.ends_with('/') ? path + name : path + "/" + name;
    if (out.size() > 4095) out.resize(4095);
    return out;
}

bool is_directory(const std::string& path) {
    struct stat sb{};
    return stat(path.c_str(), &sb) == 0 && S_ISDIR(sb.st_mode);
}

}  // namespace

std::string tvx_name_error(const std::string& path) {
    if (path.ends_with(".tvx") && !path.ends_with("/.tvx")) return "";
    return path + ": not a program file name: it must end in .tvx (lower case)";
}

int findFirstTvxFile(std::string& out, const std::string& dir) {
    DIR* d = opendir(dir.c_str());
    if (!d) return 0;
    while (const dirent* e = readdir(d)) {
        const std::string name = e->d_name;
        if (name.empty() || name[0] == '.') continue;
        if (name.size() < 4 || name.compare(name.size() - 4, 4, ".tvx") != 0) continue;
        const std::string path = join(dir, name);
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

namespace {

// Whether the walk may go into the directory at path: a real directory, not a
// symbolic link (links lead back up the tree or into other processes' folders
// through /proc/PID/cwd), and not a kernel or device file system.
bool walkable(const std::string& path) {
    struct stat sb{};
    if (lstat(path.c_str(), &sb) != 0 || !S_ISDIR(sb.st_mode)) return false;
    if (path == "/proc" || path == "/sys" || path == "/dev") return false;
    struct statfs fs{};
    if (statfs(path.c_str(), &fs) != 0) return false;
    constexpr long kProc = 0x9fa0, kSysfs = 0x62656572, kDevpts = 0x1cd1, kCgroup = 0x27e0eb,
                   kCgroup2 = 0x63677270, kDebugfs = 0x64626720, kTracefs = 0x74726163;
    for (const long magic : {kProc, kSysfs, kDevpts, kCgroup, kCgroup2, kDebugfs, kTracefs})
        if (static_cast<long>(fs.f_type) == magic) return false;
    return true;
}

// Depth-first search for base/.../name; budget is the number of directories
// the whole search may still open, so that a large disk ends it early.
int walk(std::string& out, const std::string& base, const std::string& name, int depth, int maxdepth,
         int& budget) {
    if (is_directory(join(base, name))) {
        out = base;
        return 1;
    }
    if (depth >= maxdepth || budget <= 0) return 0;
    --budget;
    DIR* d = opendir(base.c_str());
    if (!d) return 0;
    int found = 0;
    while (!found && budget > 0) {
        const dirent* e = readdir(d);
        if (!e) break;
        if (e->d_name[0] == '.' || e->d_name[0] == '\0') continue;
        const std::string sub = join(base, e->d_name);
        found = walkable(sub) && walk(out, sub, name, depth + 1, maxdepth, budget);
    }
    closedir(d);
    return found;
}

}  // namespace

int findDir(std::string& out, const std::string& base, const std::string& name, int depth, int maxdepth) {
    int budget = kFindDirBudget;
    return walk(out, base, name, depth, maxdepth, budget);
}

std::string GetExePath(const std::function<bool(const std::string&)>& is_dir, const FindDirFn& find_dir) {
    // The places where handhelds mount their cards, in order.
    static constexpr struct {
        const char* dir;   // holds TovixOS
        const char* root;
    } kCandidates[] = {
        {"./TovixOS", "."},
        {"/mnt/SDCARD/TovixOS", "/mnt/SDCARD"},
        {"/media/sdcard/TovixOS", "/media/sdcard"},
        {"/mnt/TovixOS", "/mnt"},
        {"/storage/emulated/0/TovixOS", "/storage/emulated/0"},
    };
    for (const auto& c : kCandidates)
        if (is_dir(c.dir)) return c.root;
    std::string found;
    if (find_dir(found, "/media", "TovixOS", 0, 2)) return found;
    if (find_dir(found, "/", "TovixOS", 0, 4)) return found;
    // Unchecked last resort: the mount point of an emulated disk on some handhelds.
    return "/media/QEMU VVFAT";
}

std::string GetExePath() { return GetExePath(is_directory, findDir); }
