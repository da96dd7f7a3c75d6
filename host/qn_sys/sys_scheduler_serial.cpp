// The scheduler of builds without threads: everything runs on the caller's, in order.
#include "qn_sys/sys_thread.h"

unsigned int SysThreadTaskManager::get_thread_count() const { return 1; }

struct SysThreadArena::Impl {};

SysThreadArena::SysThreadArena(const unsigned int&) {}
SysThreadArena::~SysThreadArena() = default;
unsigned int SysThreadArena::get_thread_count() const { return 1; }
void SysThreadArena::run(void (*function)(void*), void* argument) { function(argument); }

void sys_parallel_for(const unsigned int& count, void (*function)(void*, unsigned int, unsigned int), void* argument) {
    for (unsigned int i = 0; i < count; ++i) function(argument, i, 0);
}

unsigned int sys_max_worker_count() { return 1; }
