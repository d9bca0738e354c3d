#include "platform/Thread.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <linux/futex.h>
#include <new>
#include <pthread.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace vintok::platform {

namespace {

thread_local int t_error = 0;
thread_local std::uint64_t t_threadId = 0; // 0: not asked for yet

// A child process has one thread, under a number of its own.
void forgetThreadId() {
    t_threadId = 0;
}

bool succeeded(int error) {
    if (error == 0)
        return true;
    t_error = error;
    return false;
}

bool makeRecursive(pthread_mutex_t &mutex) {
    pthread_mutexattr_t attributes;
    if (!succeeded(pthread_mutexattr_init(&attributes)))
        return false;
    const bool made = succeeded(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE)) &&
                      succeeded(pthread_mutex_init(&mutex, &attributes));
    pthread_mutexattr_destroy(&attributes);
    return made;
}

pthread_mutex_t *mutexOf(void *handle) {
    return static_cast<pthread_mutex_t *>(handle);
}

} // namespace

RecursiveLock::RecursiveLock() : m_handle(nullptr) {
    auto *mutex = new (std::nothrow) pthread_mutex_t;
    if (mutex == nullptr)
        t_error = ENOMEM;
    else if (makeRecursive(*mutex))
        m_handle = mutex;
    else
        delete mutex;
}

RecursiveLock::~RecursiveLock() {
    close();
}

RecursiveLock::Wait RecursiveLock::acquire() {
    const bool acquired = succeeded(valid() ? pthread_mutex_lock(mutexOf(m_handle)) : EINVAL);
    return acquired ? Wait::acquired : Wait::failed;
}

bool RecursiveLock::release() {
    return succeeded(valid() ? pthread_mutex_unlock(mutexOf(m_handle)) : EINVAL);
}

bool RecursiveLock::close() {
    if (valid() && !succeeded(pthread_mutex_destroy(mutexOf(m_handle))))
        return false;
    delete mutexOf(m_handle);
    m_handle = nullptr;
    return true;
}

ThreadSlot::ThreadSlot(void (*destroy)(void *)) : m_destroy(destroy), m_valid(false) {
    pthread_key_t key = 0;
    m_valid = succeeded(pthread_key_create(&key, destroy));
    m_key = key;
}

void *ThreadSlot::get() const {
    return m_valid ? pthread_getspecific(m_key) : nullptr;
}

bool ThreadSlot::set(void *value) const {
    return m_valid && succeeded(pthread_setspecific(m_key, value));
}

void ThreadSlot::release() {
    if (void *own = get(); own != nullptr)
        m_destroy(own);
    if (m_valid)
        pthread_key_delete(m_key);
    m_valid = false;
}

bool waitWhile(const std::atomic<std::uint32_t> &word, std::uint32_t value,
               std::uint32_t milliseconds) {
    const timespec limit = {static_cast<time_t>(milliseconds / 1000),
                            static_cast<long>(milliseconds % 1000) * 1'000'000};
    const int before = errno;
    const bool timedOut =
        syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, &limit, nullptr, 0) != 0 &&
        errno == ETIMEDOUT;
    errno = before;
    return !timedOut;
}

void wakeOne(const std::atomic<std::uint32_t> &word) {
    const int before = errno;
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
    errno = before;
}

std::uint64_t currentThreadId() {
    // Every lock asks several times, so the system is asked once.
    static const int watchesForks = pthread_atfork(nullptr, nullptr, forgetThreadId);
    if (t_threadId == 0 || watchesForks != 0)
        t_threadId = static_cast<std::uint64_t>(gettid());
    return t_threadId;
}

std::uint32_t currentProcessId() {
    return static_cast<std::uint32_t>(getpid());
}

void sleepMilliseconds(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::uint32_t lastThreadError() {
    return static_cast<std::uint32_t>(t_error);
}

} // namespace vintok::platform
