#pragma once
// Threads that begin together.

#include <barrier>
#include <thread>
#include <vector>

namespace orvik {

/// Runs `work`, which may take the thread's number, in some threads at once, and waits for all.
template <class Work>
void RunAtOnce(int threadCount, const Work& work) {
    std::barrier start(threadCount);
    std::vector<std::jthread> threads;
    for (int t = 0; t < threadCount; ++t) {
        threads.emplace_back([&, t] {
            start.arrive_and_wait();
            if constexpr (std::is_invocable_v<Work, int>)
                work(t);
            else
                work();
        });
    }
}

}  // namespace orvik
