// SPDX-License-Identifier: MIT
#include "ServerScript.h"

#include <utility>

namespace kel::http::test {

void ServerScript::enqueue(const Reply& reply) {
    const std::lock_guard<std::mutex> lock(mutex_);
    replies_.push_back(reply);
}

void ServerScript::setHandler(Handler handler) {
    const std::lock_guard<std::mutex> lock(mutex_);
    handler_ = std::move(handler);
}

void ServerScript::permitPauses(std::size_t count) {
    const std::lock_guard<std::mutex> lock(mutex_);
    permits_ += count;
}

std::optional<Reply> ServerScript::takeForHeaderBlock() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (replies_.empty() || replies_.front().upload() == Reply::Upload::Read) return std::nullopt;
    return takeQueued();
}

std::optional<Reply> ServerScript::takeFor(const ReceivedRequest& request) {
    Handler handler;
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!replies_.empty()) return takeQueued();
        handler = handler_;
    }
    if (!handler) return std::nullopt;
    return handler(request);
}

bool ServerScript::takePermit() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (permits_ == 0) return false;
    --permits_;
    return true;
}

std::optional<Reply> ServerScript::takeQueued() {
    Reply reply = std::move(replies_.front());
    replies_.pop_front();
    return reply;
}

}  // namespace kel::http::test
