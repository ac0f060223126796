// SPDX-License-Identifier: MIT
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

#include "curl/CookieTest.h"
#include "support/Emulator.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Each request in a process of its own.
class EngineCookieRestartTest : public CookieTest {
 protected:
    // The cookies that the process's request carried, and its exit code or what waitpid(2) says instead.
    Cookies carriedByProcess(const std::vector<std::string>& options, const Reply& reply = Reply(200)) {
        server.enqueue(reply);
        std::vector<std::string> words = commandOf("cookie_process");
        words.insert(words.end(), {folder.path(), server.url()});
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        pid_t process = -1;
        int status = -1;
        EXPECT_EQ(posix_spawn(&process, arguments[0], nullptr, nullptr, arguments.data(), environ), 0);
        EXPECT_EQ(waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
        const auto requests = server.requests();
        if (requests.empty()) throw std::runtime_error("the process has sent nothing");
        return cookiesOf(requests.back());
    }
};

const Reply Welcome = Reply(200)
                          .header("Set-Cookie", "session=1")
                          .header("Set-Cookie", "kept=2; Max-Age=1000")
                          .header("Set-Cookie", "hidden=3; HttpOnly; Max-Age=1000");

TEST_F(EngineCookieRestartTest, SessionOfAWriterSurvives) {
    EXPECT_THAT(carriedByProcess({"write"}, Welcome), IsEmpty());
    EXPECT_THAT(carriedByProcess({}), ElementsAre("hidden=3", "kept=2", "session=1"));
    EXPECT_THAT(carriedByProcess({"write"}, Reply(200).header("Set-Cookie", "kept=; Max-Age=0")),
                ElementsAre("hidden=3", "kept=2", "session=1"));
    EXPECT_THAT(carriedByProcess({}), ElementsAre("hidden=3", "session=1"));
}

TEST_F(EngineCookieRestartTest, SessionOfAReaderEndsWithItsProcess) {
    EXPECT_THAT(carriedByProcess({}, Welcome), IsEmpty());
    EXPECT_THAT(folder.names(), IsEmpty());
    EXPECT_THAT(carriedByProcess({}), IsEmpty());
}

TEST_F(EngineCookieRestartTest, ReaderLeavesTheFileAlone) {
    folder.store({{"127.0.0.1", "a", "1"}});
    const CookieFolder::Stamp before = folder.stamp();
    EXPECT_THAT(carriedByProcess({}, Welcome), ElementsAre("a=1"));
    EXPECT_THAT(carriedByProcess({"fresh"}, Welcome), IsEmpty());
    EXPECT_TRUE(folder.stamp() == before);
}

TEST_F(EngineCookieRestartTest, FreshReaderSendsNoCookieOfTheHostAndForgetsNone) {
    carriedByProcess({"write"}, Welcome);
    EXPECT_THAT(carriedByProcess({"fresh"}), ElementsAre("hidden=3"));
    EXPECT_THAT(carriedByProcess({}), ElementsAre("hidden=3", "kept=2", "session=1"));
}

TEST_F(EngineCookieRestartTest, FreshWriterSendsNoCookieOfTheHostAndForgetsThem) {
    carriedByProcess({"write"}, Welcome);
    EXPECT_THAT(carriedByProcess({"write", "fresh"}, Reply(200).header("Set-Cookie", "new=4")),
                ElementsAre("hidden=3"));
    EXPECT_THAT(carriedByProcess({}), ElementsAre("hidden=3", "new=4"));
}

}  // namespace
}  // namespace kel::http::test
