// SPDX-License-Identifier: MIT
#include <curl/curl.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <unordered_map>
#include <utility>
#include <vector>

#include "FloorTransfer.h"
#include "Loop.h"
#include "certificate/certificate.h"
#include "ko/mutex.h"
#include "ko/thread.h"
#include "tervo/platforminfo.h"

namespace kel::http::bench {
namespace {

using TransferPtr = std::shared_ptr<FloorTransfer>;

// The least that an engine of the library's design has to do: one thread for libcurl, a queue and an eventfd towards
// it, select(2) as long as descriptors fit, a fresh easy handle for each request, and a task on the executor for each answer.
class FloorLoop final : public Loop {
 public:
    FloorLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file);
    ~FloorLoop() override;

    void get(const std::string& url) override;

 private:
    void run();
    void startQueued();
    void wait();
    bool waitWithSelect(long milliseconds);
    bool waitWithPoll(long milliseconds);
    void deliverFinished();
    void wakeUp() { eventfd_write(wakeup_, 1); }

    ko::executor& executor_;
    Recipient& recipient_;
    CURLM* const multi_;
    CURLSH* const cookies_;
    const FloorFiles files_;
    const int wakeup_ = eventfd(0, 0);
    std::atomic<bool> stopping_{false};
    ko::mutex mutex_{"FloorMutex"};
    std::vector<TransferPtr> queued_ KO_GUARDED_BY(mutex_);
    FloorSockets sockets_;  // these: loop thread
    std::vector<TransferPtr> starting_;
    std::unordered_map<CURL*, TransferPtr> transfers_;
    ko::thread thread_;
};

CURLM* initMulti() {
    curl_global_init(CURL_GLOBAL_ALL);
    return curl_multi_init();
}

CURLSH* makeCookies() {
    CURLSH* const share = curl_share_init();
    curl_share_setopt(share, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    return share;
}

std::string platformAuthorities() {
    return certificate::ca_pem_exists("default") ? certificate::ca_path("default") : std::string();
}

FloorFiles filesWith(const std::string& ca_file) {
    return {ca_file.empty() ? platformAuthorities() : ca_file,
            tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP") + "/httpcookies"};
}

FloorLoop::FloorLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file)
    : executor_(executor),
      recipient_(recipient),
      multi_(initMulti()),
      cookies_(makeCookies()),
      files_(filesWith(ca_file)) {
    ko::thread_id id = ko::invalid_thread_id;
    thread_ = ko::thread::create_thread("FloorLoop", {}, id, [this] { run(); });
}

FloorLoop::~FloorLoop() {
    stopping_ = true;
    wakeUp();
    thread_.join();
    curl_multi_cleanup(multi_);
    curl_share_cleanup(cookies_);
    curl_global_cleanup();
    close(wakeup_);
}

void FloorLoop::get(const std::string& url) {
    auto transfer = std::make_shared<FloorTransfer>(url, executor_);
    {
        ko::lock_guard lock(mutex_);
        queued_.push_back(std::move(transfer));
    }
    wakeUp();
}

void FloorLoop::run() {
    while (!stopping_) {
        startQueued();
        wait();
        int running = 0;
        curl_multi_perform(multi_, &running);
        deliverFinished();
    }
}

void FloorLoop::startQueued() {
    {
        ko::lock_guard lock(mutex_);
        starting_.swap(queued_);
    }
    for (TransferPtr& transfer : starting_) {
        CURL* const easy = transfer->setUp(cookies_, files_, sockets_);
        transfers_.emplace(easy, std::move(transfer));
        curl_multi_add_handle(multi_, easy);
    }
    starting_.clear();
}

void FloorLoop::wait() {
    long timer_ms = -1;
    curl_multi_timeout(multi_, &timer_ms);
    if (timer_ms < 0) timer_ms = 30000;
    if (std::exchange(sockets_.closed, false)) timer_ms = 0;
    eventfd_t count = 0;
    if (sockets_.beyond_select ? waitWithPoll(timer_ms) : waitWithSelect(timer_ms)) eventfd_read(wakeup_, &count);
}

// Whether the eventfd is readable, as below.
bool FloorLoop::waitWithSelect(long milliseconds) {
    timeval timeout{milliseconds / 1000, milliseconds % 1000 * 1000};
    fd_set readable;
    fd_set writable;
    fd_set exceptional;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    FD_ZERO(&exceptional);
    int highest = -1;
    curl_multi_fdset(multi_, &readable, &writable, &exceptional, &highest);
    FD_SET(wakeup_, &readable);
    highest = std::max(highest, wakeup_);
    return select(highest + 1, &readable, &writable, &exceptional, &timeout) > 0 && FD_ISSET(wakeup_, &readable);
}

bool FloorLoop::waitWithPoll(long milliseconds) {
    curl_waitfd wakeup{wakeup_, CURL_WAIT_POLLIN, 0};
    int ready = 0;
    curl_multi_wait(multi_, &wakeup, 1, static_cast<int>(milliseconds), &ready);
    return (wakeup.revents & CURL_WAIT_POLLIN) != 0;
}

void FloorLoop::deliverFinished() {
    int remaining = 0;
    while (const CURLMsg* const message = curl_multi_info_read(multi_, &remaining)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode result = message->data.result;
        CURL* const easy = message->easy_handle;
        const TransferPtr transfer = transfers_.at(easy);
        transfers_.erase(easy);
        transfer->finish(result);
        transfer->postReports();
        // The answer goes first, as the engine has it: what libcurl cleans up need not be waited for.
        executor_.post([this, transfer] { recipient_.onAnswer(transfer->status(), transfer->body()); }, 0);
        curl_multi_remove_handle(multi_, easy);
        transfer->release();
    }
}

}  // namespace

std::unique_ptr<Loop> makeFloorLoop(ko::executor& executor, Recipient& recipient, const std::string& ca_file) {
    return std::make_unique<FloorLoop>(executor, recipient, ca_file);
}

}  // namespace kel::http::bench
