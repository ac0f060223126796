// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>

#include "ReceivedRequest.h"
#include "Reply.h"

namespace kel::http::test {

// What a ScriptedServer is to answer, and how many pauses it may end. Threads: any.
class ServerScript {
 public:
    using Handler = std::function<Reply(const ReceivedRequest&)>;

    void enqueue(const Reply& reply);
    void setHandler(Handler handler);
    void permitPauses(std::size_t count);

    // The next reply if it has a wish for the time before the request body.
    std::optional<Reply> takeForHeaderBlock();
    // The next reply, or the handler's; nothing if there is neither.
    std::optional<Reply> takeFor(const ReceivedRequest& request);
    // Whether a pause may end now; each "yes" counts.
    bool takePermit();

 private:
    std::optional<Reply> takeQueued();

    std::mutex mutex_;
    std::deque<Reply> replies_;
    Handler handler_;
    std::size_t permits_ = 0;
};

}  // namespace kel::http::test
