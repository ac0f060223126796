// SPDX-License-Identifier: MIT
#pragma once

#include <future>
#include <string>

#include "Loop.h"

namespace kel::http::bench {

// Sends a number of requests, so many at a time: each answer starts the next one.
class Load final : public Recipient {
 public:
    Load(int total, std::string url) : total_(total), url_(std::move(url)) {}

    // Starts up to `count` requests, as long as the total is not reached. The executor's thread.
    void start(Loop& loop, int count);

    // Waits until all have been answered. Any other thread.
    void await() { done_.get_future().wait(); }

    // Anything but a complete 200 ends the process: its cost is not the one to be measured.
    void onAnswer(int status, const std::string& body) override;

 private:
    const int total_;
    const std::string url_;
    Loop* loop_ = nullptr;
    int started_ = 0;
    int answered_ = 0;
    std::promise<void> done_;
};

}  // namespace kel::http::bench
