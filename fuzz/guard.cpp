// Path guard for the fuzz binaries: the libc calls that open, create, remove,
// rename or list files are interposed here, and while a guard is active
// every path they are given must resolve to the guarded root or below it,
// else the process aborts. Outside a guard they only pass the call on, so
// the fuzzing engine's own file I/O is not looked at; the files it writes
// when a run fails (named by its -artifact_prefix) pass as well.
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "fuzz.h"

namespace {

std::string g_root;   // resolved root with a trailing "/"; empty: not checking
bool g_busy = false;  // inside a check: the guard's own calls pass
// Where the fuzzing engine writes crash inputs: resolved folder with "/",
// then the start of the file names.
std::string g_artifact_dir, g_artifact_name;

void* next_fn(const char* name) {
    void* f = dlsym(RTLD_NEXT, name);
    if (!f) {
        std::fprintf(stderr, "path guard: no %s in the C library\n", name);
        std::abort();
    }
    return f;
}
#define REAL(name) (reinterpret_cast<decltype(&::name)>([] { static void* f = next_fn(#name); return f; }()))

// "." and ".." and repeated "/" taken out of an absolute path.
std::string normalise(const std::string& p) {
    std::string out;
    size_t i = 0;
    while (i < p.size()) {
        const size_t j = std::min(p.find('/', i), p.size());
        const std::string part = p.substr(i, j - i);
        if (part == "..") {
            const size_t s = out.find_last_of('/');
            out.erase(s == std::string::npos ? 0 : s);
        } else if (!part.empty() && part != ".") {
            out += "/" + part;
        }
        i = j + 1;
    }
    return out.empty() ? "/" : out;
}

// The absolute path a call on (dirfd, path) reaches: the longest leading part
// that exists, symbolic links resolved, then the rest taken lexically.
std::string resolve(int dirfd, const char* path) {
    std::string p = path;
    if (p.empty() || p[0] != '/') {
        char base[PATH_MAX];
        if (dirfd == AT_FDCWD) {
            if (!getcwd(base, sizeof base)) return "?";
        } else {
            const std::string link = "/proc/self/fd/" + std::to_string(dirfd);
            const ssize_t n = readlink(link.c_str(), base, sizeof base - 1);
            if (n < 0) return "?";
            base[n] = 0;
        }
        p = std::string(base) + "/" + p;
    }
    std::string head = normalise(p), tail;
    char buf[PATH_MAX];
    while (!realpath(head.c_str(), buf)) {
        const size_t s = head.find_last_of('/');
        tail = head.substr(s) + tail;
        head = s == 0 ? "/" : head.substr(0, s);
    }
    return normalise(std::string(buf) + tail);
}

void check(int dirfd, const char* path, const char* call) {
    if (g_root.empty() || g_busy || !path) return;
    g_busy = true;
    const std::string full = resolve(dirfd, path);
    const bool artifact = !g_artifact_dir.empty() && full.rfind(g_artifact_dir + g_artifact_name, 0) == 0 &&
                          full.find('/', g_artifact_dir.size()) == std::string::npos;
    if (!artifact && (full + "/").compare(0, g_root.size(), g_root) != 0)
        fail("path guard: ", std::string(call) + "(\"" + path + "\") reaches " + full + ", outside the root " + g_root);
    g_busy = false;
}

}  // namespace

PathGuard::PathGuard(const std::string& root) {
    char buf[PATH_MAX];
    if (!realpath(root.c_str(), buf)) std::abort();
    g_root = std::string(buf) + "/";
}

PathGuard::~PathGuard() { g_root.clear(); }

void fail(const char* what, const std::string& detail) {
    g_root.clear();
    std::fprintf(stderr, "%s%s\n", what, detail.c_str());
    std::abort();
}

// libFuzzer calls this first with its command line: the artifact prefix
// (default "./") names where failing inputs will be written.
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    std::string prefix = "./";
    for (int i = 1; i < *argc; ++i)
        if (std::string a = (*argv)[i]; a.rfind("-artifact_prefix=", 0) == 0) prefix = a.substr(17);
    const size_t slash = prefix.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "." : prefix.substr(0, slash + 1);
    g_artifact_name = prefix.substr(slash == std::string::npos ? 0 : slash + 1);
    char buf[PATH_MAX];
    if (realpath(dir.c_str(), buf)) g_artifact_dir = std::string(buf) + "/";
    return 0;
}

extern "C" {

int open(const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? va_arg(ap, mode_t) : 0;
    va_end(ap);
    check(AT_FDCWD, path, "open");
    return REAL(open)(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? va_arg(ap, mode_t) : 0;
    va_end(ap);
    check(AT_FDCWD, path, "open64");
    return REAL(open64)(path, flags, mode);
}
int openat(int dirfd, const char* path, int flags, ...) {
    va_list ap;
    va_start(ap, flags);
    const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? va_arg(ap, mode_t) : 0;
    va_end(ap);
    check(dirfd, path, "openat");
    return REAL(openat)(dirfd, path, flags, mode);
}
int creat(const char* path, mode_t mode) {
    check(AT_FDCWD, path, "creat");
    return REAL(creat)(path, mode);
}
FILE* fopen(const char* path, const char* mode) {
    check(AT_FDCWD, path, "fopen");
    return REAL(fopen)(path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
    check(AT_FDCWD, path, "fopen64");
    return REAL(fopen64)(path, mode);
}
FILE* freopen(const char* path, const char* mode, FILE* f) {
    check(AT_FDCWD, path, "freopen");
    return REAL(freopen)(path, mode, f);
}
DIR* opendir(const char* path) {
    check(AT_FDCWD, path, "opendir");
    return REAL(opendir)(path);
}
int stat(const char* path, struct stat* st) {
    check(AT_FDCWD, path, "stat");
    return REAL(stat)(path, st);
}
int lstat(const char* path, struct stat* st) {
    check(AT_FDCWD, path, "lstat");
    return REAL(lstat)(path, st);
}
int fstatat(int dirfd, const char* path, struct stat* st, int flags) {
    check(dirfd, path, "fstatat");
    return REAL(fstatat)(dirfd, path, st, flags);
}
int access(const char* path, int how) {
    check(AT_FDCWD, path, "access");
    return REAL(access)(path, how);
}
int mkdir(const char* path, mode_t mode) {
    check(AT_FDCWD, path, "mkdir");
    return REAL(mkdir)(path, mode);
}
int mkdirat(int dirfd, const char* path, mode_t mode) {
    check(dirfd, path, "mkdirat");
    return REAL(mkdirat)(dirfd, path, mode);
}
int rmdir(const char* path) {
    check(AT_FDCWD, path, "rmdir");
    return REAL(rmdir)(path);
}
int unlink(const char* path) {
    check(AT_FDCWD, path, "unlink");
    return REAL(unlink)(path);
}
int unlinkat(int dirfd, const char* path, int flags) {
    check(dirfd, path, "unlinkat");
    return REAL(unlinkat)(dirfd, path, flags);
}
int remove(const char* path) {
    check(AT_FDCWD, path, "remove");
    return REAL(remove)(path);
}
int rename(const char* from, const char* to) {
    check(AT_FDCWD, from, "rename");
    check(AT_FDCWD, to, "rename");
    return REAL(rename)(from, to);
}
int renameat(int fromfd, const char* from, int tofd, const char* to) {
    check(fromfd, from, "renameat");
    check(tofd, to, "renameat");
    return REAL(renameat)(fromfd, from, tofd, to);
}
int truncate(const char* path, off_t size) {
    check(AT_FDCWD, path, "truncate");
    return REAL(truncate)(path, size);
}
int chdir(const char* path) {
    check(AT_FDCWD, path, "chdir");
    return REAL(chdir)(path);
}

}  // extern "C"
