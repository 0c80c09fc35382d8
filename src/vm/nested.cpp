// Nested programs: a program starts another and is suspended until it ends;
// the child's exit code becomes the result of the start call. Each level's
// state is kept in a task record while its child runs.
#include <cstring>
#include <string>

#include "fs/config.h"
#include "fs/path.h"
#include "lib/syscalls.h"
#include "vm/interp.h"
#include "vm/loader.h"
#include "vm/machine.h"

namespace {

constexpr uint32_t kFailed = 0xFFFFFFFFu;

// The child's command line at `at` in the current RAM: its name, a blank and
// the argument string, cut to fit below the text buffer.
void write_child_cmdline(Machine& m, uint32_t at, const std::string& name, uint32_t args) {
    std::string line = name + ' ';
    constexpr size_t kMax = kTextBuffer - kCmdLine - 1;
    for (uint32_t i = 0; line.size() < kMax; ++i) {
        const uint8_t c = lRamRead(m, args + i);
        if (!c) break;
        line += static_cast<char>(c);
    }
    for (size_t i = 0; i < line.size(); ++i) lRamWrite(m, at + static_cast<uint32_t>(i), static_cast<uint8_t>(line[i]));
    lRamWrite(m, at + static_cast<uint32_t>(line.size()), 0);
}

}  // namespace

void c_exec(Machine& m) {
    get_val(m);
    const uint32_t mode = m.a1;
    get_val(m);
    const uint32_t args = m.a1 & m.addr_mask;
    get_exe_name(m);
    // A 16-bit program at the outermost level may not start programs; nor
    // may a level whose parent set bit 7 of its mode, nor the last level.
    if (!m.FileName[0] || (m.task_lev == 0 && m.RamBits == 16) ||
        (m.task_lev > 0 && (m.task[m.task_lev].mode & 0x80)) || m.task_lev + 1 >= kTaskLevels) {
        push_cell(m, kFailed);
        return;
    }
    auto image = TaskOpen(m, m.FileName);
    if (!image) {
        push_cell(m, kFailed);
        return;
    }
    const int lev = m.task_lev;
    m.task[lev + 1].mode = mode;
    TaskRecord& t = m.task[lev];
    t.regs = m;
    t.screen = m;
    t.dirs = m;
    SaveKeyCode(m);

    write_child_cmdline(m, m.local_sp + kCmdLine, m.VirtualFullName, args);
    // The child's image waits in its level's record until the keys are up.
    m.task[lev + 1].image = std::move(image);
    if (wait_no_key(m, AfterKeysUp::Exec))
        finish_exec(m, m.FileName);
    else
        m.wait.child = m.FileName;
}

void finish_exec(Machine& m, const std::string& path) {
    const int lev = m.task_lev;
    m.task[lev].image = std::move(m.pTOVI);
    m.task_lev = lev + 1;
    // The child's RAM begins at the parent's frame top.
    m.lRam = (m.lRam + m.local_sp) & kRamMask;
    set_image(m, std::move(m.task[lev + 1].image));

    SetTvxRoot(m, path.c_str());
    std::string config = path;
    config.resize(config.rfind('/') + 1);
    config += "Config.ini";
    SetKeyCode(m, config.c_str());
    tvxReset(m);
    tvxReset(m);
}

void exit_nested(Machine& m, uint32_t code) {
    c_closeall(m);
    m.task_lev -= 1;
    const TaskRecord& t = m.task[m.task_lev];
    static_cast<TaskRegisters&>(m) = t.regs;
    static_cast<ScreenSettings&>(m) = t.screen;
    static_cast<GuestDirs&>(m) = t.dirs;
    LoadKeyCode(m);
    set_sys_ram(m);
    // The child's image is freed here.
    set_image(m, std::move(m.task[m.task_lev].image));
    push_cell(m, code);
}
