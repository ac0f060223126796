// SPDX-License-Identifier: MIT
// Fetches one URL in an older program: it has a task queue of its own and derives its requests from the engine's.
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "Executor.h"
#include "kel-http/curl/Request.h"
#include "kel-http/legacy/HTTPEngine.h"

namespace {

// The program's queue: any thread posts, the main thread runs.
class TaskQueue : public Executor {
 public:
    void post(std::function<void()> task, int /*reserved*/, const std::string& name) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        tasks_.push_back({std::move(task), name});
        filled_.notify_one();
    }

    // Waits for the next task and runs it.
    void runNext() {
        const Task next = take();
        std::printf("running %s\n", next.name.c_str());
        next.run();
    }

 private:
    struct Task {
        std::function<void()> run;
        std::string name;
    };

    Task take() {
        std::unique_lock<std::mutex> lock(mutex_);
        filled_.wait(lock, [this] { return !tasks_.empty(); });
        Task first = std::move(tasks_.front());
        tasks_.pop_front();
        return first;
    }

    std::mutex mutex_;
    std::condition_variable filled_;
    std::deque<Task> tasks_;
};

// A GET whose outcome is known once it is done.
class Fetch : public kel::http::Request {
 public:
    explicit Fetch(const char* url) {
        config.url = url;
        config.timeout = std::chrono::seconds(30);
    }

    bool done() const { return done_; }
    int exit_code() const { return exit_code_; }

    // The engine thread; over before one of the two below is called.
    int notifyDataReceived(std::string_view data) override {
        bytes_ += data.size();
        return 0;
    }

    // The main thread, through its queue.
    void notifyDataEnd() override {
        std::printf("status %u, %zu bytes\n", getResponseCode(), bytes_);
        finish(0);
    }
    void notifyFailure(kel::http::Failure /*failure*/, std::string_view text) override {
        std::fprintf(stderr, "no answer: %.*s\n", static_cast<int>(text.size()), text.data());
        finish(1);
    }

 private:
    void finish(int exit_code) {
        exit_code_ = exit_code;
        done_ = true;
    }

    std::size_t bytes_ = 0;
    bool done_ = false;
    int exit_code_ = 1;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return std::fprintf(stderr, "usage: %s URL\n", argv[0]), 1;

    TaskQueue queue;  // outlives the engine, which posts to it
    HTTPEngine engine("example", queue);
    const auto fetch = std::make_shared<Fetch>(argv[1]);
    fetch->runRequest();
    while (!fetch->done()) queue.runNext();
    return fetch->exit_code();
}
