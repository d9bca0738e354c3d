// Several threads that do the same.
#ifndef VINTOK_TESTS_SUPPORT_THREADS_H
#define VINTOK_TESTS_SUPPORT_THREADS_H

#include <functional>
#include <thread>
#include <vector>

namespace vintok::test {

// Returns when all of them have ended.
template <typename Action>
void onThreads(int count, Action action) {
    std::vector<std::thread> threads;
    for (int i = 0; i < count; ++i)
        threads.emplace_back(std::ref(action));
    for (std::thread &thread : threads)
        thread.join();
}

} // namespace vintok::test

#endif
