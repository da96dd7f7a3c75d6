#include "qn_sys/sys_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// Notes when two tasks run with one worker index at once.
struct WorkerBoard {
    explicit WorkerBoard(unsigned int workers) : busy(workers) {}
    std::vector<std::atomic<int>> busy;
    std::atomic<bool> clash{false};
    std::atomic<bool> beyond{false};

    void enter(unsigned int worker) {
        if (worker >= busy.size())
            beyond = true;
        else if (busy[worker].fetch_add(1) != 0)
            clash = true;
    }
    void leave(unsigned int worker) {
        if (worker < busy.size()) busy[worker].fetch_sub(1);
    }
};

struct BoardTask : SysThreadTask {
    WorkerBoard* board = nullptr;
    std::atomic<unsigned int>* runs = nullptr;
    void run(const unsigned int& worker) override {
        board->enter(worker);
        for (int i = 0; i < 20; ++i) std::this_thread::yield();
        ++*runs;
        board->leave(worker);
    }
};

TEST(SysThreadTaskManager, WorkersAreExclusiveForEveryArena) {
    for (unsigned int threads = 1; threads <= 5; ++threads)
        SysThreadArena(threads).execute([&] {
            SysThreadTaskManager manager;
            EXPECT_EQ(manager.get_thread_count(), threads);
            WorkerBoard board(manager.get_max_thread_count());
            std::atomic<unsigned int> runs{0};
            std::vector<BoardTask> tasks(200);
            for (BoardTask& task : tasks) {
                task.board = &board;
                task.runs = &runs;
                manager.add_task(task, false, true);
            }
            manager.wait_until_completed();
            EXPECT_EQ(runs, 200u);
            EXPECT_FALSE(board.clash);
            EXPECT_FALSE(board.beyond);
        });
}

// A thread that waits inside a task must not pick up a task of its own manager under the same index.
TEST(SysThreadTaskManager, WorkersStayExclusiveWhenThreadTasksWait) {
    SysThreadArena(4).execute([] {
        WorkerBoard board(sys_max_worker_count());
        sys_parallel_for(40, [&](unsigned int, unsigned int worker) {
            board.enter(worker);
            std::atomic<unsigned int> inner{0};
            sys_parallel_for(20, [&](unsigned int, unsigned int) { ++inner; });
            EXPECT_EQ(inner, 20u);
            board.leave(worker);
        });
        EXPECT_FALSE(board.clash);
        EXPECT_FALSE(board.beyond);
    });
}

struct NotingTask : SysThreadTask {
    unsigned int* destroyed;
    std::atomic<unsigned int>* runs;
    NotingTask(unsigned int* d, std::atomic<unsigned int>* r) : destroyed(d), runs(r) {}
    ~NotingTask() override { ++*destroyed; }
    void run(const unsigned int&) override { ++*runs; }
};

TEST(SysThreadTaskManager, OwnedTasksAreDeletedOnceAndDisabledOnesLeftOut) {
    unsigned int destroyed = 0;
    std::atomic<unsigned int> runs{0};
    NotingTask kept(&destroyed, &runs);
    {
        SysThreadTaskManager manager;
        manager.add_task(*new NotingTask(&destroyed, &runs), true, true);
        manager.add_task(*new NotingTask(&destroyed, &runs), true, false);
        manager.add_task(kept, false, false);
        manager.add_task(kept, false, true);
        manager.wait_until_completed();
        EXPECT_EQ(runs, 2u);
        EXPECT_EQ(destroyed, 2u);
        manager.wait_until_completed();  // nothing is left to run
        EXPECT_EQ(runs, 2u);
        manager.add_task(*new NotingTask(&destroyed, &runs), true, true);
    }
    EXPECT_EQ(runs, 2u);
    EXPECT_EQ(destroyed, 3u);
}

struct ThrowingTask : SysThreadTask {
    void run(const unsigned int&) override { throw std::runtime_error("task"); }
};

TEST(SysThreadTaskManager, ExceptionsOfThreadTasksComeOut) {
    for (const unsigned int threads : {1u, 4u})
        SysThreadArena(threads).execute([] {
            SysThreadTaskManager manager;
            unsigned int destroyed = 0;
            std::atomic<unsigned int> runs{0};
            std::vector<ThrowingTask> tasks(10);
            for (ThrowingTask& task : tasks) manager.add_task(task, false, true);
            manager.add_task(*new NotingTask(&destroyed, &runs), true, true);
            EXPECT_THROW(manager.wait_until_completed(), std::runtime_error);
            EXPECT_EQ(destroyed, 1u);
            // The manager is of use again.
            manager.add_task(*new NotingTask(&destroyed, &runs), true, true);
            const unsigned int before = runs;
            manager.wait_until_completed();
            EXPECT_EQ(runs, before + 1);
        });
}

TEST(SysThreadArena, PassesExceptionsAndRunsOnTheCaller) {
    SysThreadArena arena(2);
    EXPECT_EQ(arena.get_thread_count(), 2u);
    EXPECT_GE(SysThreadArena(0).get_thread_count(), 1u);
    EXPECT_THROW(arena.execute([] { throw std::logic_error("work"); }), std::logic_error);
    std::thread::id ran;
    arena.execute([&] { ran = std::this_thread::get_id(); });
    EXPECT_EQ(ran, std::this_thread::get_id());
}

TEST(SysParallelFor, EveryIndexOnceOnSeveralThreads) {
    std::vector<std::atomic<unsigned int>> seen(1000);
    SysThreadArena(4).execute(
        [&] { sys_parallel_for(1000, [&](unsigned int i, unsigned int) { seen[i].fetch_add(1); }); });
    for (const auto& count : seen) EXPECT_EQ(count, 1u);
    sys_parallel_for(0, [](unsigned int, unsigned int) { FAIL(); });
}

}  // namespace
