// SPDX-License-Identifier: MIT
// What libcurl holds back for a paused request is freed with it, also while others use the same connection.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "fixture/EngineTest.h"
#include "fixture/TestDevice.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

std::atomic<long> curl_blocks{0};

void* counted(void* block) {
    if (block != nullptr) ++curl_blocks;
    return block;
}

void* countedMalloc(std::size_t size) {
    return counted(std::malloc(size));
}

void* countedCalloc(std::size_t count, std::size_t size) {
    return counted(std::calloc(count, size));
}

void* countedRealloc(void* block, std::size_t size) {
    void* const moved = std::realloc(block, size);
    return block == nullptr ? counted(moved) : moved;
}

char* countedDuplicate(const char* text) {
    return static_cast<char*>(counted(strdup(text)));
}

void countedFree(void* block) {
    if (block != nullptr) --curl_blocks;
    std::free(block);
}

// libcurl takes the functions of the first who begins with it.
class CountedLibcurl {
 public:
    CountedLibcurl() {
        curl_blocks = 0;
        curl_global_init_mem(CURL_GLOBAL_ALL, &countedMalloc, &countedFree, &countedRealloc, &countedDuplicate,
                             &countedCalloc);
    }
    ~CountedLibcurl() { curl_global_cleanup(); }
    CountedLibcurl(const CountedLibcurl&) = delete;
    CountedLibcurl& operator=(const CountedLibcurl&) = delete;
};

NginxServer::Options withTls() {
    NginxServer::Options options;
    options.tls = true;
    return options;
}

// HTTP/2: one connection for two requests, of which one pauses in its body and the other goes on.
class EnginePausedMemoryTest : public EngineTest {
 protected:
    EnginePausedMemoryTest() {
        nginx_.writeFile("large", std::string(1U << 20U, 'x'));
        nginx_.writeFile("small", std::string(1000, 'x'));
        startEngine();
        startOther();
    }
    ~EnginePausedMemoryTest() override { stopEngine(); }

    RequestConfig of(const std::string& target) const {
        RequestConfig config;
        config.url = nginx_.tlsUrl(target);
        config.ca_file = TestCertificates::shared().caFile();
        return config;
    }

    void startOther() {
        other_ = request(of("/limit/large?rate=20k"));
        other_->onData = [this](std::string_view) {
            seen_.add("other");
            return 0;
        };
        other_->runRequest();
        seen_.await("other");
    }

    // Once its bytes are held back.
    RecordingRequestPtr startPaused(RequestConfig config) {
        auto paused = request(config);
        paused->onData = [this](std::string_view) {
            seen_.add("paused");
            return 1;
        };
        seen_.clear();
        paused->runRequest();
        seen_.await("paused");
        paused->pauseRequest();
        drain();
        return paused;
    }

    void expectTheOtherToGoOn() {
        seen_.clear();
        seen_.await("other");
        EXPECT_THAT(other_->outcome.events(), IsEmpty());
    }

    long blocksAtTheEnd() {
        stopEngine();
        return curl_blocks;
    }

    CountedLibcurl libcurl_;
    TestHost device_{withTestDevice};
    NginxServer nginx_{withTls()};
    EventLog seen_;
    RecordingRequestPtr other_;
};

TEST_F(EnginePausedMemoryTest, CancelledWhilePausedItLeavesNothing) {
    const auto paused = startPaused(of("/small"));
    paused->tryToCancelRequest();
    drain();
    expectTheOtherToGoOn();
    EXPECT_THAT(paused->outcome.events(), IsEmpty());
    EXPECT_EQ(seen_.count("paused"), 0U) << "who has cancelled is given the bytes";
    EXPECT_EQ(blocksAtTheEnd(), 0);
}

TEST_F(EnginePausedMemoryTest, TimedOutWhilePausedItLeavesNothing) {
    RequestConfig config = of("/small");
    config.timeout = std::chrono::milliseconds(1000);
    const auto paused = startPaused(config);
    paused->outcome.awaitCount(1);
    EXPECT_THAT(paused->outcome.events(), Contains(HasSubstr("Operation timed out after 10")));
    expectTheOtherToGoOn();
    EXPECT_EQ(seen_.count("paused"), 0U) << "who has timed out is given the bytes";
    EXPECT_EQ(blocksAtTheEnd(), 0);
}

// Two of them, as the last transfer of all has the connection for itself.
TEST_F(EnginePausedMemoryTest, PausedAtTheEngineEndItLeavesNothing) {
    const auto paused = startPaused(of("/small"));
    const auto another = startPaused(of("/small"));
    EXPECT_EQ(blocksAtTheEnd(), 0);
    EXPECT_THAT(another->outcome.events(), IsEmpty());
    EXPECT_THAT(paused->outcome.events(), IsEmpty());
}

}  // namespace
}  // namespace kel::http::test
