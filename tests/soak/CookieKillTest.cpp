// SPDX-License-Identifier: MIT
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <iostream>
#include <list>
#include <random>

#include "fixture/CookieFolder.h"
#include "support/Emulator.h"
#include "support/Files.h"
#include "support/Instruments.h"
#include "support/ScriptedServer.h"
#include "support/ServerProcess.h"

namespace kel::http::test {
namespace {

// Sanitizers make each process slow, and have nothing to say about one that is killed.
const unsigned Kills_of_writers = underSanitizer() ? 30 : 200;

// Processes that write cookies all the time, killed while they do.
class CookieKillTest : public testing::Test {
 protected:
    static constexpr std::size_t stored_ = 60;

    CookieKillTest() {
        std::cout << "seed " << seed_ << '\n';
        std::vector<StoredCookie> cookies;
        for (std::size_t i = 0; i < stored_; ++i) {
            cookies.push_back({"127.0.0.1", "c" + std::to_string(i), std::string(200, 'v')});
        }
        folder_.store(cookies);
        // The file is another one after each request, in another size.
        server_.onRequest([this](const ReceivedRequest&) {
            const unsigned count = ++answered_;
            return Reply(200).header("Set-Cookie", "c0=" + std::string(100 + count % 100, 'n') + "; Max-Age=10000");
        });
    }

    void start(ServerProcess& process) const {
        ServerProcess::Program program;
        program.words = commandOf("cookie_process");
        program.words.insert(program.words.end(), {folder_.path(), server_.url(), "write", "forever"});
        for (char** variable = environ; *variable != nullptr; ++variable) program.environment.emplace_back(*variable);
        program.log_file = logs_.path("log");
        program.stop_signal = SIGKILL;
        process.start(program);
    }

    void awaitMoreAnswers(unsigned count) const { server_.awaitRequests(answered_ + count); }

    // All cookies are in the file, the one that changes in an old form or a new one.
    void checkFile() const {
        const std::string bytes = readWholeFile(folder_.file());
        ASSERT_FALSE(bytes.empty()) << "seed " << seed_;
        ASSERT_EQ(bytes.back(), '\n') << "seed " << seed_;
        const std::vector<std::string> lines = folder_.cookies();
        ASSERT_EQ(lines.size(), stored_) << "seed " << seed_;
        for (const std::string& line : lines) ASSERT_EQ(std::count(line.begin(), line.end(), '\t'), 6) << line;
    }

    // Whether there is one, a process has been killed inside a write.
    bool hasSibling() const {
        const std::vector<std::string> names = folder_.names();
        return std::find(names.begin(), names.end(), "httpcookies.new") != names.end();
    }

    const unsigned seed_ = std::random_device()();
    std::mt19937 random_{seed_};
    std::atomic<unsigned> answered_{0};
    const CookieFolder folder_;
    const TemporaryDirectory logs_;
    ScriptedServer server_;
};

TEST_F(CookieKillTest, FileIsNeverEmptyAndNeverCut) {
    std::uniform_int_distribution<int> moment(0, 3000);
    unsigned inside = 0;
    for (unsigned kills = 0; kills < Kills_of_writers; ++kills) {
        ServerProcess process;
        start(process);
        awaitMoreAnswers(2);
        EXPECT_FALSE(process.awaitEnd(std::chrono::microseconds(moment(random_))));
        process.stop();
        ASSERT_NO_FATAL_FAILURE(checkFile());
        inside += hasSibling() ? 1U : 0U;
    }
    std::cout << inside << " inside a write\n";
    EXPECT_GT(inside, 0U);

    ServerProcess process;
    start(process);
    awaitMoreAnswers(3);
    while (hasSibling()) awaitMoreAnswers(1);
    process.stop();
    ASSERT_NO_FATAL_FAILURE(checkFile());
}

TEST_F(CookieKillTest, ProcessesThatWriteAtTheSameTimeNeverCutTheFile) {
    std::list<ServerProcess> processes(3);
    for (ServerProcess& process : processes) start(process);
    for (unsigned looks = 0; looks < 10 * Kills_of_writers; ++looks) {
        awaitMoreAnswers(1);
        ASSERT_NO_FATAL_FAILURE(checkFile());
    }
}

}  // namespace
}  // namespace kel::http::test
