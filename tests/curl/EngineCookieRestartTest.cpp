// SPDX-License-Identifier: MIT
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <stdexcept>

#include "curl/CookieTest.h"
#include "support/Emulator.h"
#include "support/SpoiledFolder.h"

namespace kel::http::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Each request in a process of its own.
class EngineCookieRestartTest : public CookieTest {
 protected:
    // The cookies that the process's request carried, and its exit code or what waitpid(2) says instead.
    Cookies carriedByProcess(const std::vector<std::string>& options, const Reply& reply = Reply(200)) {
        return carriedByProcess(folder.path(), options, reply);
    }

    // The same with another folder, "" for the host's own choice.
    Cookies carriedByProcess(const std::string& there, const std::vector<std::string>& options, const Reply& reply) {
        server.enqueue(reply);
        std::vector<std::string> words = commandOf("cookie_process");
        words.insert(words.end(), {there, server.url()});
        words.insert(words.end(), options.begin(), options.end());
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        std::string session = "XDG_RUNTIME_DIR=" + folder.path();
        std::vector<char*> variables = {session.data()};
        for (char** variable = environ; *variable != nullptr; ++variable) {
            if (std::strncmp(*variable, "XDG_RUNTIME_DIR=", 16) != 0) variables.push_back(*variable);
        }
        variables.push_back(nullptr);
        pid_t process = -1;
        int status = -1;
        EXPECT_EQ(posix_spawn(&process, arguments[0], nullptr, nullptr, arguments.data(), variables.data()), 0);
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

TEST_F(EngineCookieRestartTest, HostsOwnFolderIsThisUsersAlone) {
    EXPECT_THAT(carriedByProcess("", {"write"}, Welcome), IsEmpty());
    EXPECT_THAT(folder.names(), ElementsAre("kel-http"));
    for (const char* const name : {"/kel-http", "/kel-http/httpcookies"}) {
        struct stat status {};
        EXPECT_EQ(lstat((folder.path() + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0077U, 0U) << name;
    }
    EXPECT_THAT(carriedByProcess("", {}, Reply(200)), ElementsAre("hidden=3", "kept=2", "session=1"));
}

TEST_F(EngineCookieRestartTest, NothingIsKeptWhereTheFolderIsNotThisUsersAlone) {
    EXPECT_THAT(carriedByProcess("", {"write"}, Welcome), IsEmpty());
    ASSERT_EQ(chmod((folder.path() + "/kel-http").c_str(), 0755), 0);
    const SpoiledFolder shared;
    EXPECT_THAT(carriedByProcess("", {"write"}, Reply(200).header("Set-Cookie", "lost=1")), IsEmpty());
    EXPECT_THAT(carriedByProcess("", {"write", "fresh"}, Reply(200)), IsEmpty());
    ASSERT_EQ(chmod((folder.path() + "/kel-http").c_str(), 0700), 0);
    EXPECT_THAT(carriedByProcess("", {}, Reply(200)), ElementsAre("hidden=3", "kept=2", "session=1"));
}

}  // namespace
}  // namespace kel::http::test
