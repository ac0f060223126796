// SPDX-License-Identifier: MIT
#ifndef KO_ASYNC_ACTION_HANDLE_H
#define KO_ASYNC_ACTION_HANDLE_H

#include <functional>
#include <memory>
#include <utility>

#include "ko/assert.h"

namespace ko {

// How often a wrapped callback may come through.
enum class CallbackType {
    repeating = 0,  // as long as the handle is active
    once = 1,       // this call, and then no callback of the handle any more
};

// What AsyncActionHandle::wrap() returns: the callback behind the handle's flag. Copies share the flag.
template <typename Callback>
class GuardedCallback {
 public:
    // For AsyncActionHandle::wrap().
    GuardedCallback(CallbackType type, Callback callback, std::shared_ptr<bool> flag)
        : type_(type), callback_(std::move(callback)), active_flag_(std::move(flag)) {}

    // Passes the arguments on, or does nothing.
    template <typename... Arguments>
    void operator()(Arguments&&... arguments) const {
        const bool active = *active_flag_;
        if (type_ == CallbackType::once) *active_flag_ = false;
        if (active) callback_(std::forward<Arguments>(arguments)...);
    }

 private:
    CallbackType type_;
    // Mutable, so that a callback with a state of its own can be called, as with std::function.
    mutable Callback callback_;
    std::shared_ptr<bool> active_flag_;
};

// Keeps an asynchronous action alive: as long as its owner holds the handle, callbacks come; with the handle they end.
//
// `Tag` tells the handles of different services apart at compile time.
// Life:    active from the start; inactive after the first callback wrapped as `once`, after cancel(), and when the
//          handle is destroyed or overwritten. A moved-from handle stands for no action.
// Threads: one, the one on which the wrapped callbacks run. Nothing in here is locked or atomic.
template <typename Tag>
class AsyncActionHandle {
 public:
    // Active, with nothing to cancel yet.
    AsyncActionHandle() : active_flag(std::make_shared<bool>(true)) {}
    // Takes over the other's action.
    AsyncActionHandle(AsyncActionHandle&& other) noexcept
        : active_flag(std::exchange(other.active_flag, nullptr)),
          cancel_action(std::exchange(other.cancel_action, nullptr)) {}
    // Cancels what this handle stood for, then takes over the other's action.
    AsyncActionHandle& operator=(AsyncActionHandle&& other) noexcept {
        if (this == &other) return *this;
        cancel();
        active_flag = std::exchange(other.active_flag, nullptr);
        cancel_action = std::exchange(other.cancel_action, nullptr);
        return *this;
    }
    // As cancel(). An exception leaving the cancel action ends the process here.
    ~AsyncActionHandle() { cancel(); }

    // Puts `callback` behind this handle: the returned callable passes its arguments on while the handle is active and
    // does nothing afterwards. It may outlive the handle.
    //
    // All callables of one handle share one flag: after a `once` callback came through, none of the others does.
    // Errors: stops the process on a cancelled or moved-from handle.
    template <typename Callback>
    GuardedCallback<Callback> wrap(CallbackType type, Callback callback) const {
        KO_ASSERT(active_flag);
        return {type, std::move(callback), active_flag};
    }

    // What stops the action itself; runs at most once, when the handle is cancelled, destroyed or overwritten, and
    // also when the action is already over.
    void set_cancel_action(std::function<void()> action) { cancel_action = std::move(action); }

    // Shuts the wrapped callbacks off, then runs the cancel action if there is one. A second call does nothing.
    void cancel() {
        if (active_flag) *active_flag = false;
        if (const auto action = std::exchange(cancel_action, nullptr)) action();
        active_flag.reset();
    }

    // True as long as a wrapped callback would come through.
    bool active() const noexcept { return active_flag && *active_flag; }

 private:
    std::shared_ptr<bool> active_flag;
    std::function<void()> cancel_action;
};

}  // namespace ko

#endif  // KO_ASYNC_ACTION_HANDLE_H
