// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "kel-http/Client.h"
#include "ko/thread_executor.h"
#include "soak/Kind.h"
#include "soak/Tally.h"

namespace kel::http::soak {

// One user of the library: a thread, a client on it, and some requests at once, each of them left alone or cancelled,
// paused, resumed, its handle dropped, its client dropped, whenever another one ends.
//
// Threads: all functions are for the one that made it, which also outlives the engine with it.
class Caller {
 public:
    Caller(const std::string& name, std::uint32_t seed, const std::vector<Kind>& mixture, Tally& tally);

    // Keeps so many requests running from now on ...
    void begin(const Addresses& to);
    // ... until now.
    void finish();
    // Returns when the last one has ended. Those that do not are faults.
    void awaitEnd();

 private:
    struct Running {
        std::string kind;
        Ask ask;
        std::weak_ptr<Client> client;
        Client::RequestId id = NoRequestId;
        std::optional<Client::Handle> handle;
    };

    void run(const std::function<void()>& work);
    void fill();
    void startOne();
    void start(std::uint64_t serial, Running& running);
    void hearResponse(std::uint64_t serial, const ResponseData& data);
    void hearError(std::uint64_t serial, const ErrorData& data);
    void hearProgress(std::uint64_t serial, const ProgressData& data);
    void end(std::uint64_t serial, const std::string& how);
    void disturbAny();
    void disturb(std::uint64_t serial, Running& running);
    static void resume(const Running& running);
    void cancel(std::uint64_t serial, Running& running);
    void renewClient();
    std::string describe(std::uint64_t serial) const;

    const std::string name_;
    const std::vector<Kind>& mixture_;
    Tally& tally_;

    // Executor thread.
    Random random_;
    Addresses to_;
    std::shared_ptr<Client> client_;
    std::map<std::uint64_t, Running> running_;
    std::uint64_t last_serial_ = 0;

    std::mutex mutex_;
    std::condition_variable changed_;
    bool filling_ = false;  // guarded by mutex_, as is the next one
    bool idle_ = true;

    ko::thread_executor executor_;
};

}  // namespace kel::http::soak
