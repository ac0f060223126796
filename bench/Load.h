// SPDX-License-Identifier: MIT
#pragma once

#include <future>
#include <string>

#include "Loop.h"
#include "ko/executor.h"

namespace kel::http::bench {

// Sends numbers of requests, so many at a time: each answer starts the next one. Main thread, where nothing else is said.
//
// Life: the loop that it uses has to be gone before it; setLoop() comes first of all.
class Load final : public Recipient {
 public:
    void setLoop(Loop& loop) { loop_ = &loop; }

    // Sends `total` requests, and returns when all have been answered.
    void run(ko::executor& executor, int total, int concurrency, const std::string& url);

    // Starts `count` requests that nobody answers.
    void hold(ko::executor& executor, int count, const std::string& url);

    // Executor's thread. Anything but a complete 200 ends the process: its cost is not the one to be measured.
    void onAnswer(int status, const std::string& body) override;

 private:
    void start(int count);

    Loop* loop_ = nullptr;
    std::promise<void> done_;  // of one run
    std::string url_;          // these: executor's thread during a run
    int total_ = 0;
    int started_ = 0;
    int answered_ = 0;
};

}  // namespace kel::http::bench
