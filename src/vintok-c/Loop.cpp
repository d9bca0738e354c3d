// The loop. Its registrations are found by a number, not by a pointer: one that is taken back while
// its descriptor is dispatched may still be called once.
#include "vintok-c/Handles.h"

#include <algorithm>
#include <map>
#include <memory>

using namespace vintok;
using c::attempt;

namespace {

struct Watch {
    vintok_loop *loop;
    int descriptor;
    c::Handler<vintok_descriptor_callback> handler;

    bool is(const vintok_loop *of, int which, vintok_descriptor_callback callback,
            void *user) const {
        return loop == of && descriptor == which && handler.call == callback &&
               handler.user == user;
    }
};
using Watches = std::map<std::uintptr_t, Watch>;

Watches &watches() {
    thread_local Watches ofThisThread;
    return ofThisThread;
}

thread_local std::uintptr_t t_lastWatch = 0;
thread_local vintok_loop *t_woken = nullptr; // whose wake callback the thread has

void *dataOf(std::uintptr_t number) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): nobody is to follow it
    return reinterpret_cast<void *>(number);
}

void onReadable(int descriptor, void *data, bool) {
    const auto found = watches().find(reinterpret_cast<std::uintptr_t>(data));
    if (found == watches().end())
        return;
    const Watch watch = found->second;
    watch.handler.call(watch.loop, descriptor, watch.handler.user);
}

void onWake(void *data) {
    auto *const loop = static_cast<vintok_loop *>(data);
    const auto handler = loop->wake;
    handler.call(loop, handler.user);
}

template <class Match>
Watches::iterator findWatch(Match matches) {
    return std::find_if(
        watches().begin(), watches().end(), [&](const auto &each) { return matches(each.second); });
}

void forget(Watches::iterator watch) {
    watch->second.loop->select.removeCallback(watch->second.descriptor, onReadable,
                                              dataOf(watch->first));
    watches().erase(watch);
}

// `add(data)` registers it with the loop.
template <class Add>
bool watch(const Watch &asked, Add add) {
    const auto isSame = [&](const Watch &each) {
        return each.is(asked.loop, asked.descriptor, asked.handler.call, asked.handler.user);
    };
    if (asked.handler.call == nullptr || findWatch(isSame) != watches().end())
        return c::isInvalid("vintok_loop_add: no callback, or one that is registered already");
    const auto added = watches().emplace(++t_lastWatch, asked).first;
    if (add(dataOf(added->first)))
        return true;
    watches().erase(added);
    return false;
}

} // namespace

vintok_loop *vintok_loop_create(void) {
    return attempt(
        __func__, [] { return std::make_unique<vintok_loop>().release(); });
}

void vintok_loop_destroy(vintok_loop *loop) {
    if (loop == nullptr)
        return;
    const auto isOfLoop = [=](const Watch &each) { return each.loop == loop; };
    for (auto each = findWatch(isOfLoop); each != watches().end(); each = findWatch(isOfLoop))
        forget(each);
    vintok_loop_on_wake(loop, nullptr, nullptr);
    delete loop;
}

std::int32_t vintok_loop_run(vintok_loop *loop) {
    return attempt(
        __func__, [=] { loop->select.run(); }, loop);
}

std::int32_t vintok_loop_poll(vintok_loop *loop, std::int32_t immediate) {
    return loop != nullptr ? loop->select.pollDescriptors(immediate != 0) : -1;
}

std::int32_t vintok_loop_is_running(const vintok_loop *loop) {
    return loop != nullptr && loop->select.running() ? 1 : 0;
}

void vintok_loop_interrupt(vintok_loop *loop) {
    if (loop != nullptr)
        loop->select.interrupt();
}

void vintok_loop_wake(const vintok_loop *loop) {
    if (loop != nullptr)
        loop->select.wake();
}

std::int32_t vintok_loop_on_wake(vintok_loop *loop, vintok_wake_callback callback, void *user) {
    return attempt(
        __func__,
        [=] {
            if (callback == nullptr && t_woken != loop)
                return true;
            loop->wake = {callback, user};
            t_woken = callback != nullptr ? loop : nullptr;
            return loop->select.setWakeCallback(callback != nullptr ? onWake : nullptr, loop);
        },
        loop);
}

std::int32_t vintok_loop_add_socket(vintok_loop *loop, std::int32_t descriptor, std::int32_t secure,
                                    vintok_descriptor_callback callback, void *user) {
    return attempt(
        __func__,
        [=] {
            return watch(
                {loop, descriptor, {callback, user}},
                [=](void *data) {
                    return loop->select.addSocketCallback(descriptor, onReadable, data, true,
                                                          secure != 0);
                });
        },
        loop);
}

std::int32_t vintok_loop_add_readable(vintok_loop *loop, std::int32_t descriptor,
                                      vintok_descriptor_callback callback, void *user) {
    return attempt(
        __func__,
        [=] {
            return watch(
                {loop, descriptor, {callback, user}},
                [=](void *data) {
                    return loop->select.addReadableCallback(descriptor, onReadable, data);
                });
        },
        loop);
}

std::int32_t vintok_loop_remove(vintok_loop *loop, std::int32_t descriptor,
                                vintok_descriptor_callback callback, void *user) {
    return attempt(
        __func__,
        [=] {
            const auto found = findWatch(
                [=](const Watch &each) { return each.is(loop, descriptor, callback, user); });
            if (found == watches().end())
                return c::isInvalid("vintok_loop_remove: not registered");
            forget(found);
            return true;
        },
        loop);
}

std::size_t vintok_loop_watched(const vintok_loop *loop, vintok_watched *watched,
                                std::size_t capacity) {
    return attempt(
        __func__,
        [=] {
            const auto all = loop->select.watched();
            for (std::size_t i = 0; i < std::min(all.size(), capacity); ++i)
                watched[i] = {all[i].descriptor, all[i].reading ? 1 : 0, all[i].writing ? 1 : 0};
            return all.size();
        },
        loop);
}

std::int32_t vintok_loop_nested_descriptor(const vintok_loop *loop) {
    return loop != nullptr ? loop->select.nestedDescriptor() : -1;
}

std::int32_t vintok_loop_timeout(const vintok_loop *loop) {
    return loop != nullptr ? loop->select.timeout() : -1;
}
