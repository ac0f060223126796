// SPDX-License-Identifier: MIT
#include <unistd.h>

#include "DownloadToolTest.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;

// Whoever starts the tool may have closed what it writes to. Its words must not end up in a file then, nor on a
// connection, that got the number.
class ToolClosedStreamsTest : public DownloadToolTest {
 protected:
    int run(const std::vector<std::string>& arguments, const std::vector<int>& closed) {
        server.enqueue(Reply(200).body("the file"));
        ToolProcess::Input input;
        input.closed = closed;
        return runTool(arguments, input).exit_code;
    }

    void expectCleanFile() {
        EXPECT_EQ(readWholeFile(target), "the file");
        EXPECT_THAT(directory.names(), ElementsAre("file"));
    }
};

TEST_F(ToolClosedStreamsTest, WithoutStandardErrorADownloadIsWhatTheServerSent) {
    EXPECT_EQ(run(words(), {STDERR_FILENO}), 0);
    expectCleanFile();
    EXPECT_EQ(run(words({"-vvvv"}), {STDERR_FILENO}), 0);
    expectCleanFile();
}

TEST_F(ToolClosedStreamsTest, WithoutStandardOutputAResultThatCanNotBeToldIsAnError) {
    for (const char* const option : {"--sha256", "--json"}) {
        EXPECT_EQ(run(words({option}), {STDOUT_FILENO}), 4) << option;
        expectCleanFile();
    }
}

TEST_F(ToolClosedStreamsTest, WithoutAnyStreamADownloadIsWhatTheServerSent) {
    EXPECT_EQ(run(words(), {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}), 0);
    expectCleanFile();
}

TEST_F(ToolClosedStreamsTest, ABodyThatCanNotBePrintedIsAnErrorAndNothingElseIsSent) {
    EXPECT_EQ(run({"get", server.url("/page")}, {STDOUT_FILENO}), 4);
    EXPECT_EQ(run({"get", server.url("/page"), "-vvvv"}, {STDERR_FILENO}), 0);
    EXPECT_EQ(server.requests().size(), 2U);
}

TEST_F(ToolClosedStreamsTest, WithoutStandardInputThereIsNoBodyToSend) {
    EXPECT_EQ(run({"post", server.url("/page"), "--data-file", "-"}, {STDIN_FILENO}), 4);
    EXPECT_EQ(server.connectionCount(), 0U);
}

}  // namespace
}  // namespace kel::http::test
