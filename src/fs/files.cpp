// The file calls: a table of 16 open host streams shown to the guest as the
// handles 0x80-0x8F, directory listings, and directory and file management.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cjk/gbconv.h"
#include "fs/path.h"
#include "lib/syscalls.h"
#include "vm/machine.h"

Files::~Files() { close_all_files(*this); }

namespace {

void close_slot(Files& f, int i) {
    if (f.fhandle[i]) std::fclose(f.fhandle[i]);
    f.fhandle[i] = nullptr;
    f.last_io[i] = 0;
    f.fsize[i] = -1;
    f.fpath[i].clear();
    f.fmode[i].clear();
}

}  // namespace

void close_all_files(Files& f) {
    for (int i = 0; i < kMaxFiles; ++i) close_slot(f, i);
}

void flush_all_files(Files& f) {
    for (FILE* s : f.fhandle)
        if (s) std::fflush(s);
}

void c_closeall(Machine& m) {
    for (int i = 0; i < kMaxFiles; ++i)
        if (m.fhandle[i] && m.ftask[i] == m.task_lev) close_slot(m, i);
}

namespace {

constexpr uint32_t kTrue = 0xFFFFFFFFu;  // -1

// The zero-terminated guest string at a (masked by the caller), read with
// the block's wrap-around; at most one pass over the block.
std::string guest_string(Machine& m, uint32_t a) {
    std::string s;
    uint32_t room;
    const uint8_t* p = guest_ptr(m, a, &room);
    if (const void* z = std::memchr(p, 0, room)) return std::string(reinterpret_cast<const char*>(p), static_cast<const uint8_t*>(z) - p);
    s.assign(reinterpret_cast<const char*>(p), room);
    const uint8_t* z = static_cast<const uint8_t*>(std::memchr(m.tovix_ram, 0, kRamSize - room));
    s.append(reinterpret_cast<const char*>(m.tovix_ram), z ? static_cast<size_t>(z - m.tovix_ram) : kRamSize - room);
    return s;
}

uint32_t pop_addr(Machine& m) {
    get_val(m);
    return m.a1 & m.addr_mask;
}

// Pops the normalised form of a guest path into norm; false when rejected.
bool pop_path(Machine& m, char* norm) { return my_pathformat(m, guest_string(m, pop_addr(m)), norm) == 0; }

// UTF-8 form of a GB2312 host path for a log line (the bytes as they are
// when they do not convert).
std::string log_name(const char* gb) {
    std::string s;
    return gb_host_path(gb, &s) ? s : std::string(gb);
}

bool is_directory(const std::string& host) {
    struct stat st;
    return stat(host.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Pops a handle and returns its slot, or -1 when it is not an open handle.
int check_handle(Machine& m) {
    get_val(m);
    const uint32_t h = m.a1 & 0xFF;
    if (h < 0x80 || h >= 0x80 + kMaxFiles) return -1;
    const int slot = static_cast<int>(h - 0x80);
    return m.fhandle[slot] ? slot : -1;
}

// A stream must be repositioned between writing and reading.
FILE* stream_for(Machine& m, int slot, uint8_t io) {
    FILE* s = m.fhandle[slot];
    if (m.last_io[slot] && m.last_io[slot] != io) std::fseek(s, 0, SEEK_CUR);
    m.last_io[slot] = io;
    return s;
}

const char* host_mode(const std::string& mode) {
    static constexpr const char* kModes[][2] = {{"r", "rb"},   {"r+", "rb+"}, {"w", "wb"},
                                                {"w+", "wb+"}, {"a", "ab"},   {"a+", "ab+"}};
    for (const auto& row : kModes)
        if (mode == row[0]) return row[1];
    return nullptr;
}

// What may still be added under the disk limit (limits beyond 2^60 bytes
// count as 2^60, so that the sums below cannot overflow).
int64_t disk_left(const Files& f) {
    const int64_t limit = static_cast<int64_t>(std::min<uint64_t>(f.disk_limit, uint64_t{1} << 60));
    return std::clamp<int64_t>(limit - f.disk_added, 0, int64_t{1} << 61);
}

int64_t file_size(FILE* s) {
    struct stat st;
    return fstat(fileno(s), &st) == 0 ? st.st_size : 0;
}

// How many of count bytes written on the slot now fit under the disk limit:
// bytes that stay within the file's size are free, the rest (with any gap a
// write beyond the end leaves) counts. Append streams write at the end.
uint32_t disk_room(Files& f, int slot, uint32_t count, int64_t* pos) {
    FILE* s = f.fhandle[slot];
    if (f.fsize[slot] < 0) f.fsize[slot] = file_size(s);
    const int64_t size = f.fsize[slot];
    *pos = f.fmode[slot][0] == 'a' ? size : std::max<int64_t>(std::ftell(s), 0);
    const int64_t fits = std::max<int64_t>(size + disk_left(f) - *pos, 0);
    return static_cast<uint32_t>(std::min<int64_t>(count, fits));
}

// Counts the bytes by which a write of n bytes at pos extended the file.
void note_written(Files& f, int slot, int64_t pos, uint32_t n) {
    const int64_t end = pos + n;
    if (end <= f.fsize[slot]) return;
    f.disk_added += end - f.fsize[slot];
    f.fsize[slot] = end;
}

// Moves count bytes between the stream and guest memory at buf, wrapping at
// the end of the block. Returns the number of bytes moved.
uint32_t transfer(Machine& m, int slot, uint32_t buf, uint32_t count, bool write) {
    FILE* s = stream_for(m, slot, write ? 2 : 1);
    int64_t pos = 0;
    if (write) count = disk_room(m, slot, count, &pos);
    uint32_t done = 0;
    while (done < count) {
        uint32_t room;
        uint8_t* p = guest_ptr(m, buf + done, &room);
        const uint32_t want = std::min(count - done, room);
        const size_t got = write ? std::fwrite(p, 1, want, s) : std::fread(p, 1, want, s);
        done += static_cast<uint32_t>(got);
        if (got < want) break;
    }
    if (write) note_written(m, slot, pos, done);
    add_work(m, done);
    return done;
}

void fread_or_fwrite(Machine& m, bool write) {
    const int slot = check_handle(m);
    if (slot < 0) {
        m.eval_top = static_cast<uint8_t>(m.eval_top - 12);
        push_cell(m, 0);
        return;
    }
    const uint32_t count = pop_addr(m);
    get_val(m);  // element size: always read as 1
    const uint32_t buf = pop_addr(m);
    push_cell(m, transfer(m, slot, buf, count, write));
}

// Name of a listed host entry as the guest sees it, or false when it is not
// listed: "." and "..", names whose conversion fails (not UTF-8, outside the
// first 65,536 code points) and names of 15 bytes or more. Characters the
// code page lacks are listed as "??".
bool listed_name(const char* host_name, char* gb, size_t gb_size) {
    if (!std::strcmp(host_name, ".") || !std::strcmp(host_name, "..")) return false;
    bool complete = false;
    const size_t n = utf8_to_gb(host_name, std::strlen(host_name), gb, gb_size, &complete);
    return complete && n < 15;
}

}  // namespace

namespace {

// Pops a guest path into norm (normalised) and FileName (its host path);
// false, with FileName empty, when the path is rejected.
bool resolve_name(Machine& m, char* norm) {
    if (pop_path(m, norm)) {
        true_name(m, norm, m.FileName);
        return true;
    }
    norm[0] = 0;
    m.FileName[0] = 0;
    return false;
}

}  // namespace

// glibc reads the flags of a mode from its first seven bytes.
constexpr size_t kModeFlagBytes = 7;

bool valid_open_mode(const std::string& mode) {
    if (mode.empty() || mode.size() > 32 || std::strchr("rwa", mode[0]) == nullptr) return false;
    for (const char c : mode)
        if (c == ',' || c == 0) return false;
    return true;
}

FILE* reopen_file(const char* gb_path, const std::string& mode, int64_t pos, bool eof, std::string* error) {
    std::string host;
    if (!valid_open_mode(mode) || pos < 0 || !gb_host_path(gb_path, &host)) {
        *error = "unusable file record";
        return nullptr;
    }
    const std::string flags = mode.substr(0, kModeFlagBytes);
    const bool update = flags.find('+') != std::string::npos;
    int how = update ? O_RDWR : mode[0] == 'r' ? O_RDONLY : O_WRONLY;
    if (mode[0] == 'a') how |= O_APPEND;
    // Never created or truncated: the file must still be there as it was
    // left. Non-blocking so that a FIFO in its place cannot stall the open.
    const int fd = ::open(host.c_str(), how | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        *error = host + ": " + std::strerror(errno);
        return nullptr;
    }
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) || fcntl(fd, F_SETFL, how & O_APPEND) != 0) {
        ::close(fd);
        *error = host + ": not a regular file";
        return nullptr;
    }
    std::string host_mode = mode;
    std::erase(host_mode, 'x');  // the file exists: an exclusive open would fail
    FILE* s = ::fdopen(fd, host_mode.c_str());
    if (!s) {
        ::close(fd);
        *error = host + ": " + std::strerror(errno);
        return nullptr;
    }
    if (std::fseek(s, static_cast<long>(pos), SEEK_SET) != 0) {
        std::fclose(s);
        *error = host + ": cannot seek to " + std::to_string(pos);
        return nullptr;
    }
    // The end-of-file mark is sticky: reads give nothing until a seek, even
    // when the file has grown since. glibc lets it be set as it was; else a
    // read at the end sets it again without moving.
#ifdef _IO_EOF_SEEN
    if (eof) s->_flags |= _IO_EOF_SEEN;
#else
    if (eof && std::fgetc(s) != EOF) std::fseek(s, static_cast<long>(pos), SEEK_SET);
#endif
    return s;
}

bool room_for_entry(const Files& f) { return disk_left(f) >= kNewEntryBytes; }
void note_new_entry(Files& f) { f.disk_added += kNewEntryBytes; }
void note_freed(Files& f, int64_t bytes) { f.disk_added -= bytes; }

void get_name(Machine& m) {
    char norm[kPathMax];
    resolve_name(m, norm);
}

void get_exe_name(Machine& m) {
    char norm[kPathMax];
    if (resolve_name(m, norm))
        m.VirtualFullName = std::string("/") + norm;
    else
        m.VirtualFullName.clear();
}

void c_fopen(Machine& m) {
    const std::string guest_mode = guest_string(m, pop_addr(m)).substr(0, 32);
    const char* mapped = host_mode(guest_mode);
    const std::string mode = mapped ? mapped : guest_mode;
    char norm[kPathMax];
    resolve_name(m, norm);
    int slot = 0;
    while (slot < kMaxFiles && m.fhandle[slot]) ++slot;
    if (slot == kMaxFiles) {
        if (m.verbose_mode) mylog(m, "[IO] fopen FAILED: no more file handles (max %d)\n", kMaxFiles);
        push_cell(m, 0);
        return;
    }
    FILE* s = nullptr;
    std::string host;
    // Other modes reach the host as they are, except the code-set form
    // (",ccs="), which would make a byte stream a wide one.
    struct stat before;
    bool existed = false;
    if (gb_host_path(m.FileName, &host) && !is_directory(host) && mode.find(',') == std::string::npos) {
        existed = stat(host.c_str(), &before) == 0;
        // A truncating open: the other slots' sizes are taken from the disk again.
        if (existed && mode[0] == 'w') {
            flush_all_files(m);
            for (int64_t& size : m.fsize) size = -1;
        }
        // On a full disk a file can still be opened, not made.
        if (existed || room_for_entry(m)) s = std::fopen(host.c_str(), mode.c_str());
    }
    if (!s) {
        if (m.verbose_mode) mylog(m, "[IO] fopen FAILED: %s (mode: %s)\n", log_name(m.FileName).c_str(), mode.c_str());
        push_cell(m, 0);
        return;
    }
    m.fhandle[slot] = s;
    m.ftask[slot] = static_cast<uint8_t>(m.task_lev);
    m.last_io[slot] = 0;
    m.fsize[slot] = file_size(s);
    if (!existed)
        note_new_entry(m);
    else if (S_ISREG(before.st_mode) && m.fsize[slot] < before.st_size)
        note_freed(m, before.st_size - m.fsize[slot]);  // truncated on opening
    m.fpath[slot] = norm;
    m.fmode[slot] = mode;
    push_cell(m, 0x80u + static_cast<uint32_t>(slot));
}

void c_fclose(Machine& m) {
    const int slot = check_handle(m);
    if (slot >= 0) close_slot(m, slot);
}

void c_fread(Machine& m) { fread_or_fwrite(m, false); }
void c_fwrite(Machine& m) { fread_or_fwrite(m, true); }

void c_fseek(Machine& m) {
    get_val(m);
    const uint32_t whence = m.a1 & 0xFF;
    get_val(m);
    const auto offset = static_cast<int32_t>(m.a1);
    const int slot = check_handle(m);
    static constexpr int kWhence[] = {SEEK_SET, SEEK_CUR, SEEK_END};
    if (slot < 0 || whence > 2 || std::fseek(m.fhandle[slot], offset, kWhence[whence]) != 0) {
        push_cell(m, kTrue);
        return;
    }
    m.last_io[slot] = 0;
    push_cell(m, 0);
}

void c_ftell(Machine& m) {
    const int slot = check_handle(m);
    push_cell(m, slot < 0 ? kTrue : static_cast<uint32_t>(std::ftell(m.fhandle[slot])));
}

void c_feof(Machine& m) {
    const int slot = check_handle(m);
    push_cell(m, slot < 0 ? kTrue : std::feof(m.fhandle[slot]) ? 1u : 0u);
}

void c_rewind(Machine& m) {
    const int slot = check_handle(m);
    if (slot < 0) return;
    std::rewind(m.fhandle[slot]);
    m.last_io[slot] = 0;
}

void c_getc(Machine& m) {
    const int slot = check_handle(m);
    const int c = slot < 0 ? EOF : std::fgetc(stream_for(m, slot, 1));
    push_cell(m, c == EOF ? kTrue : static_cast<uint32_t>(c));
}

void c_putc(Machine& m) {
    const int slot = check_handle(m);
    get_val(m);
    int64_t pos = 0;
    int c = EOF;
    if (slot >= 0 && disk_room(m, slot, 1, &pos) == 1) {
        c = std::fputc(static_cast<int>(m.a1 & 0xFF), stream_for(m, slot, 2));
        if (c != EOF) note_written(m, slot, pos, 1);
    }
    push_cell(m, c == EOF ? kTrue : static_cast<uint32_t>(c));
}

void c_makedir(Machine& m) {
    get_val(m);
    push_cell(m, my_mkdir(m, guest_string(m, m.a1 & m.addr_mask)) == 0 ? kTrue : 0);
}

void c_deletefile(Machine& m) {
    char norm[kPathMax];
    // The root itself ("/" and the like) is never removed, even when empty.
    std::string host;
    struct stat st;
    const bool ok = resolve_name(m, norm) && norm[0] && gb_host_path(m.FileName, &host) &&
                    lstat(host.c_str(), &st) == 0 && std::remove(host.c_str()) == 0;
    if (ok) note_freed(m, kNewEntryBytes + (S_ISREG(st.st_mode) && st.st_nlink == 1 ? st.st_size : 0));
    push_cell(m, ok ? kTrue : 0);
}

void c_chdir(Machine& m) {
    get_val(m);
    push_cell(m, my_chdir(m, guest_string(m, m.a1 & m.addr_mask)) == 0 ? kTrue : 0);
}

void c_filelist(Machine&) {}

void c_findfile(Machine& m) {
    const uint32_t buf = pop_addr(m);
    get_val(m);
    const uint32_t count = m.a1 & 0xFFFF;
    get_val(m);
    const uint32_t start = m.a1 & 0xFFFF;
    char dir[kPathMax];
    true_name(m, m.CD, dir);
    std::string host;
    DIR* d = gb_host_path(dir, &host) ? opendir(host.c_str()) : nullptr;
    if (!d) {
        if (m.verbose_mode) mylog(m, "[IO] findfile FAILED: cannot open dir %s\n", log_name(dir).c_str());
        push_cell(m, kTrue);
        return;
    }
    uint32_t at = buf;
    auto write_record = [&](const char* name) {
        for (size_t i = 0; i <= std::strlen(name); ++i) lRamWrite(m, at + static_cast<uint32_t>(i), static_cast<uint8_t>(name[i]));
        at += 16;
    };
    if (start == 0) write_record("..");
    uint32_t n = 1;
    while (n < start + count) {
        const dirent* e = readdir(d);
        if (!e) break;
        add_work(m, kWorkPerEntry);
        char gb[64];
        if (!listed_name(e->d_name, gb, sizeof gb)) continue;
        if (n >= start) write_record(gb);
        ++n;
    }
    closedir(d);
    push_cell(m, n - start);
}

void c_getfilenum(Machine& m) {
    get_name(m);
    std::string host;
    if (!m.FileName[0]) {
        push_cell(m, kTrue);
        return;
    }
    DIR* d = gb_host_path(m.FileName, &host) ? opendir(host.c_str()) : nullptr;
    if (!d) {
        if (m.verbose_mode) mylog(m, "[IO] getfilenum FAILED: cannot open dir %s\n", log_name(m.FileName).c_str());
        push_cell(m, kTrue);
        return;
    }
    uint32_t n = 0;
    while (const dirent* e = readdir(d)) {
        add_work(m, kWorkPerEntry);
        char gb[64];
        if (listed_name(e->d_name, gb, sizeof gb)) ++n;
    }
    closedir(d);
    push_cell(m, n);
}
