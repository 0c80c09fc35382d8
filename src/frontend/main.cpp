// tvm2: start-up on the main thread, the VM thread, and the way out.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "frontend/frontend.h"
#include "fs/config.h"
#include "fs/files.h"
#include "vm/interp.h"

int runVm(void* data) {
    auto* fe = static_cast<Frontend*>(data);
    main_loop(*fe->m);
    fe->vm_done.store(true, std::memory_order_release);
    return 0;
}

void shutdown_and_exit(Frontend& fe, int status) {
    Machine& m = *fe.m;
    // Waiting guest calls give up, presents are no longer served, and the
    // interpreter stops at its next instruction.
    fe.closing.store(true, std::memory_order_relaxed);
    m.force_exit_tvx.store(1, std::memory_order_relaxed);
    for (auto& k : m.cur_keyb) k.store(0, std::memory_order_relaxed);
    for (int i = 0; i < 500 && !fe.vm_done.load(std::memory_order_acquire); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    // Whatever the guest wrote reaches the disk, also into files it left open.
    // Closing them is safe only once the VM thread has stopped; otherwise
    // every stream is flushed where it stands.
    if (fe.vm_done.load(std::memory_order_acquire)) close_all_files(m);
    std::fflush(nullptr);
    // The VM thread is not joined and may still run: end without destroying
    // anything it could touch. SDL_Quit runs as a quick-exit handler.
    std::quick_exit(status);
}

int main(int argc, char** argv) {
    auto fe_owner = std::make_unique<Frontend>();
    auto m_owner = std::make_unique<Machine>();
    Frontend* fe = fe_owner.get();
    Machine* m = m_owner.get();
    fe->m = m;
    m->host = &fe->host;
    m->need_refresh = 1;  // the first pass draws the window

    if (const auto status = parse_command_line(*m, fe->start, argc, argv, SDL_GetTicks)) return *status;

    initWorkDir(*m, fe->start);
    // The font base is the built-in font table, fixed in the machine.
    initSystem(*fe);
    Color256Init(*m);
    m->s_year = 2022;
    m->s_month = 7;
    m->s_day = 15;
    m->s_hour = 9;
    m->s_min = 0;
    m->s_sec = 0;
    // Guest memory and the off-screen buffer belong to the machine.
    ReadConfig(*m, "TovixOS/System/Config.ini");

    // From here on both live until the process ends: the VM thread is
    // never joined.
    fe_owner.release();
    m_owner.release();
    SDL_DetachThread(SDL_CreateThread(runVm, nullptr, fe));
    sdlLoop(*fe);
    shutdown_and_exit(*fe, 0);
}
