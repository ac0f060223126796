// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "ko/assert.h"

namespace ko {

enum class CallbackType { repeating = 0, once = 1 };

template <typename Tag>
class AsyncActionHandle {
 public:
    AsyncActionHandle() = default;
    AsyncActionHandle(AsyncActionHandle&& other) noexcept
        : flag_(std::exchange(other.flag_, nullptr)), action_(std::exchange(other.action_, nullptr)) {}
    AsyncActionHandle& operator=(AsyncActionHandle&& other) noexcept {
        if (this == &other) return *this;
        cancel();
        flag_ = std::exchange(other.flag_, nullptr);
        action_ = std::exchange(other.action_, nullptr);
        return *this;
    }
    ~AsyncActionHandle() { cancel(); }

    template <typename Callback>
    auto wrap(CallbackType type, Callback callback) const {
        KO_ASSERT(flag_);
        return [type, callback = std::move(callback), flag = flag_](auto&&... arguments) mutable {
            if (!*flag) return;
            if (type == CallbackType::once) *flag = false;
            callback(std::forward<decltype(arguments)>(arguments)...);
        };
    }

    void set_cancel_action(std::function<void()> action) { action_ = std::move(action); }
    void cancel() {
        if (flag_) *flag_ = false;
        flag_ = nullptr;
        if (const auto action = std::exchange(action_, nullptr)) action();
    }
    bool active() const { return flag_ && *flag_; }

 private:
    std::shared_ptr<bool> flag_ = std::make_shared<bool>(true);
    std::function<void()> action_;
};

}  // namespace ko
