// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>

#include "fixture/ClientTest.h"
#include "support/Emulator.h"
#include "support/Instruments.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

// Sanitizers hold freed memory back, so that its growth tells nothing there.
const bool memory_can_be_measured = !underSanitizer();

double residentBytes() {
    std::ifstream statm("/proc/self/statm");
    long total = 0;
    long resident = 0;
    statm >> total >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE));
}

class KeepAliveTest : public ClientTest {
 protected:
    static constexpr unsigned total_ = 4000;
    static constexpr unsigned at_once_ = 64;

    // Executor thread. Each response starts the next request.
    void startNext() {
        if (started_ == total_) return;
        ++started_;
        client->start_request(
            config_, {},
            [this](Client::RequestId id, const ResponseData& data) {
                wrong_thread_ += ko::this_thread::get_id() != executor.threadId() ? 1U : 0U;
                wrong_answer_ += data.status != 200 || data.body != "hello" ? 1U : 0U;
                answered_.insert(id);
                ended();
            },
            [this](Client::RequestId, const ErrorData&) {
                ++errors_;
                ended();
            });
    }

    void ended() {
        ++ended_;
        if (ended_ == total_ / 4) memory_after_first_quarter_ = residentBytes();
        if (ended_ == total_) events_.add("all ended");
        startNext();
    }

    NginxServer nginx_;
    RequestConfig config_;
    EventLog events_;
    // Executor thread, and the test's once all has ended.
    unsigned started_ = 0;
    unsigned ended_ = 0;
    unsigned errors_ = 0;
    unsigned wrong_thread_ = 0;
    unsigned wrong_answer_ = 0;
    std::set<Client::RequestId> answered_;
    double memory_after_first_quarter_ = 0;
};

TEST_F(KeepAliveTest, FourThousandRequestsEndInFourThousandResponsesWithoutGrowth) {
    nginx_.writeFile("hello", "hello");
    config_.url = nginx_.url("/hello");
    executor.run([this] {
        for (unsigned i = 0; i < at_once_; ++i) startNext();
    });
    events_.await("all ended");
    drain();

    EXPECT_EQ(answered_.size(), total_);
    EXPECT_EQ(ended_, total_);
    EXPECT_EQ(errors_, 0U);
    EXPECT_EQ(wrong_thread_, 0U);
    EXPECT_EQ(wrong_answer_, 0U);
    if (memory_can_be_measured && !underEmulator()) {
        EXPECT_LE(residentBytes(), memory_after_first_quarter_ * 1.05);
    }

    std::set<std::string> connections;
    for (const std::string& line : nginx_.awaitAccessLog(total_)) connections.insert(line.substr(0, line.find(' ')));
    // libcurl closes some when its pool shrinks with the number of transfers.
    EXPECT_LE(connections.size(), total_ / 10) << "connections are not kept alive";
}

}  // namespace
}  // namespace kel::http::test
