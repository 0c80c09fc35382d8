// Quick save and quick load: one slot per program, a file holding the whole
// machine under the user's data folder, written atomically so that a crash
// while saving leaves the previous slot intact.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "frontend/frontend.h"

namespace fs = std::filesystem;

namespace {

bool absolute_env(const char* name, std::string* out) {
    const char* v = std::getenv(name);
    if (!v || v[0] != '/') return false;
    *out = v;
    return true;
}

// FNV-1a, 64 bits: stable across builds and machines.
uint64_t fnv1a(std::string_view s) {
    uint64_t h = 0xcbf29ce484222325ull;
    for (const unsigned char c : s) h = (h ^ c) * 0x100000001b3ull;
    return h;
}

// The program's file name without its extension, limited to characters that
// are safe in a file name anywhere and cut to a sensible length.
std::string safe_stem(const fs::path& program) {
    std::string out;
    for (const char c : program.stem().string()) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                        c == '_' || (c == '.' && !out.empty());
        out += ok ? c : '_';
        if (out.size() == 48) break;
    }
    return out.empty() ? "program" : out;
}

// Writes bytes to a temporary file beside path, then renames it over path.
// Returns "" or the reason it failed.
std::string write_atomically(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::string tmp = path + ".XXXXXX";
    const int fd = mkstemp(tmp.data());
    if (fd < 0) return std::strerror(errno);
    size_t done = 0;
    int err = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            err = n < 0 ? errno : EIO;
            break;
        }
        done += static_cast<size_t>(n);
    }
    if (!err && fsync(fd) != 0) err = errno;
    if (::close(fd) != 0 && !err) err = errno;
    if (!err && std::rename(tmp.c_str(), path.c_str()) != 0) err = errno;
    if (err) {
        ::unlink(tmp.c_str());
        return std::strerror(err);
    }
    return "";
}

// Reads the whole file; a missing file is told apart from other failures.
std::string read_slot(const std::string& path, std::vector<uint8_t>* out) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return errno == ENOENT ? "no saved state yet" : std::strerror(errno);
    std::string why;
    uint8_t buf[65536];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) why = std::strerror(errno);
        if (n <= 0) break;
        out->insert(out->end(), buf, buf + n);
    }
    ::close(fd);
    return why;
}

}  // namespace

std::string quick_slot_dir() {
    std::string base;
    if (!absolute_env("XDG_DATA_HOME", &base)) {
        if (!absolute_env("HOME", &base)) return "";
        base += "/.local/share";
    }
    return base + "/tvm2";
}

std::string quick_slot_path(const std::string& program) {
    const std::string dir = quick_slot_dir();
    if (dir.empty()) return "";
    // The same program reached by another spelling of its path keeps its slot.
    std::error_code ec;
    fs::path abs = fs::weakly_canonical(fs::absolute(program, ec), ec);
    if (ec) abs = fs::absolute(program, ec).lexically_normal();
    char hash[17];
    std::snprintf(hash, sizeof hash, "%016llx", static_cast<unsigned long long>(fnv1a(abs.string())));
    return dir + "/" + safe_stem(abs) + "-" + hash + ".state";
}

void quick_save(Frontend& fe) {
    const std::string path = quick_slot_path(fe.start.tvxFilePath);
    if (path.empty()) {
        fe_log(fe, "quick save failed: neither XDG_DATA_HOME nor HOME is an absolute path\n");
        return;
    }
    const std::vector<uint8_t> state = core_save_state(fe.core);
    if (state.empty()) {
        fe_log(fe, "quick save failed: no program is running\n");
        return;
    }
    std::error_code ec;
    const fs::path dir = fs::path(path).parent_path();
    // States hold the guest's data: the folder is the user's alone.
    if (fs::create_directories(dir, ec)) fs::permissions(dir, fs::perms::owner_all, ec);
    if (ec) {
        fe_log(fe, "quick save failed: %s: %s\n", dir.c_str(), ec.message().c_str());
        return;
    }
    if (const std::string err = write_atomically(path, state); !err.empty())
        fe_log(fe, "quick save failed: %s: %s\n", path.c_str(), err.c_str());
    else
        fe_log(fe, "quick save: %s\n", path.c_str());
}

void quick_load(Frontend& fe) {
    const std::string path = quick_slot_path(fe.start.tvxFilePath);
    if (path.empty()) {
        fe_log(fe, "quick load failed: neither XDG_DATA_HOME nor HOME is an absolute path\n");
        return;
    }
    std::vector<uint8_t> state;
    std::string err = read_slot(path, &state);
    if (err.empty()) err = core_load_state(fe.core, state);
    if (!err.empty()) {
        fe_log(fe, "quick load failed: %s: %s\n", path.c_str(), err.c_str());
        return;
    }
    fe_log(fe, "quick load: %s\n", path.c_str());
    // The guest now sees the buttons that are held on the device, not those
    // held when the state was saved.
    core_set_buttons(fe.core, fe.held);
    // The guest clock went back to the saved time: the slice beat and the
    // frame counter start again from there.
    fe.next_frame_ns = 0;
    const auto frame = core_frame(fe.core);
    fe.dirty_marks_base = frame ? frame->dirty_marks : 0;
    if (frame) present(fe, frame);
}
