#include "qn_sys/sys_thread.h"

#include <mutex>

struct SysThreadLock::Impl {
    std::mutex mutex;
};

SysThreadLock::SysThreadLock() : m_impl(std::make_unique<Impl>()) {}
SysThreadLock::~SysThreadLock() = default;
void SysThreadLock::lock() { m_impl->mutex.lock(); }
void SysThreadLock::unlock() { m_impl->mutex.unlock(); }

SysThreadTask::~SysThreadTask() = default;

SysThreadTaskManager::SysThreadTaskManager() = default;
SysThreadTaskManager::~SysThreadTaskManager() { drop_tasks(); }

unsigned int SysThreadTaskManager::get_max_thread_count() const { return sys_max_worker_count(); }

void SysThreadTaskManager::add_task(SysThreadTask& task, const bool& owned, const bool& enabled) {
    if (enabled)
        m_tasks.add({&task, owned});
    else if (owned)
        delete &task;
}

void SysThreadTaskManager::wait_until_completed() {
    struct Drop {
        SysThreadTaskManager& manager;
        ~Drop() { manager.drop_tasks(); }
    } drop{*this};
    sys_parallel_for(m_tasks.get_count(),
                     [this](unsigned int i, unsigned int worker) { m_tasks[i].task->run(worker); });
}

void SysThreadTaskManager::drop_tasks() {
    for (const Entry& entry : m_tasks)
        if (entry.owned) delete entry.task;
    m_tasks.clear();
}
