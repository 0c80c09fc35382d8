#include "fs/path.h"

#include <sys/stat.h>

#include <cstring>

#include "cjk/gbconv.h"

void InitVFS(Files& f) {
    close_all_files(f);
    f.CD[0] = 0;
}

void filesys_init(Files& f) {
    InitVFS(f);
    SetRoot(f, "TovixOS");
}

int SetRoot(Files& f, const char* path) {
    if (!path || !path[0]) return 0;
    const size_t len = std::strlen(path);
    if (len >= kPathMax) return 0;
    const bool has_sep = path[len - 1] == '/' || path[len - 1] == '\\';
    if (!has_sep && len + 1 >= kPathMax) return 0;
    f.CD[0] = 0;
    std::memcpy(f.RootPath, path, len + 1);
    if (!has_sep) {
        f.RootPath[len] = '/';
        f.RootPath[len + 1] = 0;
    }
    return 1;
}

void SetTvxRoot(Files& f, const char* host_path) {
    static constexpr char kPrograms[] = "TovixOS/PROGRAM/";
    if (std::strncmp(host_path, kPrograms, sizeof kPrograms - 1) != 0) return;
    std::string dir = host_path;
    dir.resize(dir.rfind('/'));
    SetRoot(f, dir.c_str());
}

void my_cdup(char* path) {
    char* slash = std::strrchr(path, '/');
    if (slash)
        slash[1] = 0;
    else
        path[0] = 0;
}

namespace {

// The part of a GB2312 string before its first invalid pair (a byte from
// 0x81 up whose second byte is not 0x40-0xFE), where the conversion to the
// host's UTF-8 stops.
std::string_view valid_gb_prefix(std::string_view s) {
    size_t i = 0;
    while (i < s.size() && s[i]) {
        if (static_cast<uint8_t>(s[i]) < 0x81) {
            ++i;
            continue;
        }
        const uint8_t trail = i + 1 < s.size() ? static_cast<uint8_t>(s[i + 1]) : 0;
        if (trail < 0x40 || trail > 0xFE) break;
        i += 2;
    }
    return s.substr(0, i);
}

}  // namespace

// A ".." never removes a directory: `out` ends in "/" (or is empty) whenever
// one is met, and my_cdup keeps everything up to the last "/". So no path
// climbs above the root, and no segment of a result begins with ".". A name
// is cut at an invalid GB2312 pair first, so the host sees the name that was
// checked.
int my_pathformat(const Files& f, std::string_view in, char* out) {
    in = valid_gb_prefix(in);
    auto at = [&](size_t k) -> uint8_t { return k < in.size() ? static_cast<uint8_t>(in[k]) : 0; };
    char buf[kPathMax + 1];
    size_t n = 0, i = 0;
    if (at(0) == '/') {
        i = 1;
    } else {
        n = std::strlen(f.CD);
        std::memcpy(buf, f.CD, n);
        if (n > 0) buf[n++] = '/';
    }
    out[0] = 0;
    bool seg_start = true;
    while (n < kPathMax) {
        const uint8_t c = at(i);
        if (c == 0) break;
        if (c == '.' && seg_start) {
            const uint8_t d = at(i + 1);
            if (d == 0) break;  // a final "." is dropped
            if (d == '/') {
                i += 2;
                continue;
            }
            if (d != '.') return 1;  // names beginning with a dot
            const uint8_t e = at(i + 2);
            if (e != 0 && e != '/') return 1;
            buf[n] = 0;
            my_cdup(buf);
            n = std::strlen(buf);
            if (e == 0) break;
            i += 3;
            continue;
        }
        if (c == '/') {
            if (!seg_start) {
                buf[n++] = '/';
                seg_start = true;
            }
            ++i;
            continue;
        }
        if (c == ':' || c == '\\') return 1;
        buf[n++] = static_cast<char>(c);
        seg_start = false;
        ++i;
    }
    if (n >= kPathMax) return 1;
    if (n > 0 && buf[n - 1] == '/') --n;
    buf[n] = 0;
    std::memcpy(out, buf, n + 1);
    return 0;
}

void true_name_0(const char* path, char* out, const char* root) {
    const size_t rlen = std::strlen(root), plen = std::strlen(path);
    if (rlen + plen >= kPathMax) {
        out[0] = 0;
        return;
    }
    std::memcpy(out, root, rlen);
    std::memcpy(out + rlen, path, plen + 1);
    for (char* p = out; *p; ++p)
        if (*p == '\\') *p = '/';
}

void true_name(const Files& f, const char* path, char* out) { true_name_0(path, out, f.RootPath); }

bool gb_host_path(const char* gb, std::string* utf8) {
    const size_t len = std::strlen(gb);
    if (len == 0) return false;
    // A GB2312 string grows at most by half into UTF-8.
    std::string buf(len * 3 / 2 + 4, '\0');
    bool complete = false;
    const size_t n = gb_to_utf8(gb, len, buf.data(), buf.size(), &complete);
    if (!complete) return false;
    buf.resize(n);
    *utf8 = std::move(buf);
    return true;
}

bool host_path_gb(const std::string& utf8, std::string* gb) {
    std::string buf(utf8.size() + 1, '\0'), back;
    bool complete = false;
    buf.resize(utf8_to_gb(utf8.data(), utf8.size(), buf.data(), buf.size(), &complete));
    if (!complete || (!utf8.empty() && (!gb_host_path(buf.c_str(), &back) || back != utf8))) return false;
    *gb = std::move(buf);
    return true;
}

FILE* fopen_gb(const char* gb_path, const char* mode) {
    std::string host;
    if (!gb_host_path(gb_path, &host)) return nullptr;
    return std::fopen(host.c_str(), mode);
}

namespace {

// The host path (UTF-8) of a guest path, or false when it is rejected or
// cannot be converted.
bool guest_to_host(const Files& f, std::string_view guest_path, char* norm, std::string* host) {
    if (my_pathformat(f, guest_path, norm)) return false;
    char gb[kPathMax];
    true_name(f, norm, gb);
    return gb_host_path(gb, host);
}

}  // namespace

int my_chdir(Files& f, std::string_view guest_path) {
    char norm[kPathMax];
    std::string host;
    if (!guest_to_host(f, guest_path, norm, &host)) return 1;
    struct stat st;
    if (stat(host.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return 1;
    std::memcpy(f.CD, norm, std::strlen(norm) + 1);
    return 0;
}

int my_mkdir(Files& f, std::string_view guest_path) {
    char norm[kPathMax];
    std::string host;
    // The root itself is never made: a guest only makes directories in it.
    if (!guest_to_host(f, guest_path, norm, &host) || !norm[0] || !room_for_entry(f)) return 1;
    // Ordinary permissions, as files get them: 0777 less the umask.
    if (mkdir(host.c_str(), 0777) != 0) return 1;
    note_new_entry(f);
    return 0;
}
