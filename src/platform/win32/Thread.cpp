#include "platform/Thread.h"

#include <SystemSockets.h>

namespace vintok::platform {

namespace {

thread_local DWORD t_error = 0;

bool succeeded(BOOL result) {
    if (result != FALSE)
        return true;
    t_error = GetLastError();
    return false;
}

} // namespace

RecursiveLock::RecursiveLock() : m_handle(nullptr) {
    SECURITY_ATTRIBUTES attributes = {sizeof attributes, nullptr, TRUE};
    m_handle = CreateMutexA(&attributes, TRUE, nullptr);
    if (!succeeded(m_handle != nullptr) || release())
        return;
    CloseHandle(m_handle);
    m_handle = nullptr;
}

RecursiveLock::~RecursiveLock() {
    close();
}

RecursiveLock::Wait RecursiveLock::acquire() {
    switch (WaitForSingleObject(m_handle, INFINITE)) {
    case WAIT_OBJECT_0:
        return Wait::acquired;
    case WAIT_ABANDONED:
        return Wait::abandoned;
    case WAIT_TIMEOUT:
        return Wait::timedOut;
    default:
        succeeded(FALSE);
        return Wait::failed;
    }
}

bool RecursiveLock::release() {
    return succeeded(ReleaseMutex(m_handle));
}

bool RecursiveLock::close() {
    if (valid() && !succeeded(CloseHandle(m_handle)))
        return false;
    m_handle = nullptr;
    return true;
}

ThreadSlot::ThreadSlot(void (*destroy)(void *)) : m_destroy(destroy), m_valid(false) {
    // Fiber-local storage: the thread-local kind knows no function to call at the end.
    const DWORD key = FlsAlloc(destroy);
    m_valid = succeeded(key != FLS_OUT_OF_INDEXES);
    m_key = key;
}

void *ThreadSlot::get() const {
    return m_valid ? FlsGetValue(m_key) : nullptr;
}

bool ThreadSlot::set(void *value) const {
    return m_valid && succeeded(FlsSetValue(m_key, value));
}

void ThreadSlot::release() {
    if (m_valid)
        FlsFree(m_key); // destroys the pointers of all threads
    m_valid = false;
}

bool waitWhile(const std::atomic<std::uint32_t> &word, std::uint32_t value,
               std::uint32_t milliseconds) {
    const DWORD before = GetLastError();
    auto *address = const_cast<std::atomic<std::uint32_t> *>(&word); // only read from
    const bool timedOut = WaitOnAddress(address, &value, sizeof value, milliseconds) == FALSE &&
                          GetLastError() == ERROR_TIMEOUT;
    SetLastError(before);
    return !timedOut;
}

void wakeOne(const std::atomic<std::uint32_t> &word) {
    WakeByAddressSingle(const_cast<std::atomic<std::uint32_t> *>(&word));
}

std::uint64_t currentThreadId() {
    return GetCurrentThreadId();
}

std::uint32_t currentProcessId() {
    return GetCurrentProcessId();
}

void sleepMilliseconds(std::uint32_t milliseconds) {
    Sleep(milliseconds);
}

std::uint32_t lastThreadError() {
    return t_error;
}

} // namespace vintok::platform
