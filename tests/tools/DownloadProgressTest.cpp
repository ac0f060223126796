// SPDX-License-Identifier: MIT
#include <algorithm>
#include <chrono>
#include <csignal>

#include "DownloadToolTest.h"
#include "TestTerminal.h"

namespace kel::http::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

class ToolProgressTest : public DownloadToolTest {
 protected:
    static ToolProcess::Input on(const TestTerminal& terminal, const std::string& kind = "xterm") {
        ToolProcess::Input input;
        input.environment = {"TERM=" + kind};
        input.terminal = terminal.descriptor();
        return input;
    }

    // What is written meanwhile.
    std::string downloadOn(TestTerminal& terminal, const std::vector<std::string>& options = {}) {
        EXPECT_EQ(ToolProcess(words(options), on(terminal)).wait().exit_code, 0);
        return terminal.close();
    }

    const std::string whole = noise(200000);
};

TEST_F(ToolProgressTest, WithoutATerminalALineTellsTheEnd) {
    const ToolResult result = download(Reply(200).body(whole));
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, HasSubstr("kel-http: " + target + ": 195 KiB in 0:"));
    EXPECT_EQ(result.err.back(), '\n');
}

TEST_F(ToolProgressTest, WithoutATerminalThereIsOneLineASecondAtMost) {
    const auto begin = std::chrono::steady_clock::now();
    server.enqueue(Reply(200).drip({whole.substr(0, 50000), whole.substr(50000, 50000), whole.substr(100000)}));
    ToolProcess tool(words());
    for (const char* const part_of_whole : {"25%", "50%"}) {
        tool.awaitErrorText(std::string(": ") + part_of_whole + " of 195 KiB");
        server.release();
    }
    const ToolResult result = tool.wait();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_LE(std::count(result.err.begin(), result.err.end(), '\n'), seconds + 1);
    EXPECT_THAT(result.err, HasSubstr("kel-http: " + target + ": 25% of 195 KiB"));
    EXPECT_THAT(result.err, HasSubstr("kel-http: " + target + ": 195 KiB in 0:"));
    EXPECT_THAT(result.err, Not(HasSubstr("\x1b")));
}

TEST_F(ToolProgressTest, SeveralTakeTurns) {
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("a little").stallBeforeEnd(); });
    ToolProcess tool({"download", server.url("/a"), target, server.url("/b"), target + "2"});
    tool.awaitErrorText(target + ": 50% of 16 B");
    tool.awaitErrorText(target + "2: 50% of 16 B");
    server.release(2);
    EXPECT_EQ(tool.wait().exit_code, 0);
}

TEST_F(ToolProgressTest, AResumedPartCounts) {
    writeWholeFile(part, whole.substr(0, 100000));
    ToolProcess tool(words({"--resume"}));
    server.awaitRequests(1);
    server.enqueue(
        Reply(206).header("Content-Range", "bytes 100000-199999/200000").body("").stallBeforeEnd(whole.substr(100000)));
    tool.awaitErrorText(target + ": 50% of 195 KiB");
    server.release();
    const ToolResult result = tool.wait();
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.err, HasSubstr(target + ": 195 KiB in"));
}

TEST_F(ToolProgressTest, JsonLeavesItOut) {
    TestTerminal terminal(80, 24);
    server.enqueue(Reply(200).body(whole));
    EXPECT_EQ(downloadOn(terminal, {"--json", "--limit-rate", "150K"}), "");
}

TEST_F(ToolProgressTest, ATerminalShowsABarInPlaceThatEndsComplete) {
    TestTerminal terminal(80, 24);
    server.enqueue(Reply(200).body(whole.substr(0, 100000)).stallBeforeEnd(whole.substr(100000)));
    ToolProcess tool(words(), on(terminal));
    terminal.await("50%", 2);
    server.release();
    EXPECT_EQ(tool.wait().exit_code, 0);
    const std::string written = terminal.close();
    EXPECT_THAT(screenAfter(written),
                ElementsAre(AllOf(StartsWith("file                100% [===========]"), HasSubstr("195 KiB/195 KiB"))));
    EXPECT_TRUE(readWholeFile(target) == whole);
}

TEST_F(ToolProgressTest, SeveralBarsStandBelowEachOtherAndFinishedOnesAbove) {
    TestTerminal terminal(60, 24);
    server.onRequest([](const ReceivedRequest& request) {
        if (request.target == "/quick") return Reply(200).body("quick");
        return Reply(200).body("a little").stallBeforeEnd();
    });
    ToolProcess tool({"download", server.url("/a"), directory.path("a"), server.url("/quick"), directory.path("quick"),
                      server.url("/b"), directory.path("b")},
                     on(terminal));
    terminal.await("b               50%");
    terminal.await("quick          100%");
    terminal.await("b               50%", 4);
    server.release(2);
    EXPECT_EQ(tool.wait().exit_code, 0);
    const auto screen = screenAfter(terminal.close(), 60);
    ASSERT_EQ(screen.size(), 3U);
    EXPECT_THAT(screen[0], MatchesRegex("quick +100%.*"));
    EXPECT_THAT(screen, testing::Contains(MatchesRegex("a +100%.*")));
    EXPECT_THAT(screen, testing::Contains(MatchesRegex("b +100%.*")));
}

TEST_F(ToolProgressTest, LettersOfMoreBytesOrColumnsEatNoLineAboveTheirBars) {
    struct Case {
        std::string name;
        unsigned short columns;
    };
    for (const auto& [name, columns] :
         {Case{"gr\u00f6\u00dfere-\u00e4\u00f6\u00fc-datei.bin", 80}, Case{"\u56fa\u4ef6\u66f4\u65b0\u6587.bin", 40}}) {
        TestTerminal terminal(columns, 24);
        server.onRequest([](const ReceivedRequest& request) {
            if (request.target == "/quick") return Reply(200).body("quick");
            return Reply(200).drip({"a ", "li", "ttle"});
        });
        ToolProcess tool(
            {"download", server.url("/quick"), directory.path("quick"), server.url("/slow"), directory.path(name)},
            on(terminal));
        terminal.await("100%");
        server.release();
        terminal.await(" 50%");
        server.release();
        EXPECT_EQ(tool.wait().exit_code, 0);
        EXPECT_THAT(screenAfter(terminal.close(), columns), ElementsAre(HasSubstr("quick"), HasSubstr(".bin"))) << name;
    }
}

TEST_F(ToolProgressTest, BarsFitIntoANarrowTerminalAndASmallOne) {
    TestTerminal terminal(20, 3);
    server.onRequest([](const ReceivedRequest&) { return Reply(200).body("a little").stallBeforeEnd(); });
    std::vector<std::string> arguments = {"download"};
    for (const char* const name : {"a", "b", "c", "d"}) {
        arguments.push_back(server.url(std::string("/") + name));
        arguments.push_back(directory.path(name));
    }
    ToolProcess tool(arguments, on(terminal));
    terminal.await("3 more", 2);
    server.release(4);
    EXPECT_EQ(tool.wait().exit_code, 0);
    const auto screen = screenAfter(terminal.close(), 20, 3);
    EXPECT_EQ(screen.size(), 4U);
    for (const std::string& line : screen) {
        EXPECT_THAT(line, StartsWith("100% ["));
        EXPECT_LE(line.size(), 19U);
    }
}

TEST_F(ToolProgressTest, ATerminalThatGetsNarrowerIsFollowed) {
    TestTerminal terminal(80, 24);
    server.enqueue(Reply(200).body("a little").stallBeforeEnd());
    ToolProcess tool(words(), on(terminal));
    terminal.await("50%");
    terminal.resize(30, 24);
    terminal.await("\x1b[3A");  // the line of before takes three rows now
    server.release();
    EXPECT_EQ(tool.wait().exit_code, 0);
    EXPECT_THAT(terminal.close(), HasSubstr("file    100% ["));
}

TEST_F(ToolProgressTest, AnUnknownLengthEndsComplete) {
    TestTerminal terminal(80, 24);
    server.enqueue(Reply(200).chunked().body("a little").stallBeforeEnd());
    ToolProcess tool(words(), on(terminal));
    terminal.await("file                 ");
    server.release();
    EXPECT_EQ(tool.wait().exit_code, 0);
    const std::string written = terminal.close();
    EXPECT_THAT(written, Not(HasSubstr("50%")));
    EXPECT_THAT(screenAfter(written), ElementsAre(HasSubstr("100% [===========]")));
}

TEST_F(ToolProgressTest, AMessageTakesThePlaceOfTheBar) {
    TestTerminal terminal(200, 24);
    server.enqueue(Reply(200).body(noise(100000)).stallBeforeEnd());
    ToolProcess tool(words(), on(terminal));
    server.awaitRequests(1);
    awaitSize(part, 90000);
    terminal.await("97.7 KiB");
    tool.send(SIGINT);
    EXPECT_EQ(tool.wait().exit_code, 130);
    EXPECT_THAT(screenAfter(terminal.close(), 200),
                ElementsAre(AllOf(StartsWith("kel-http: download "), HasSubstr("cancelled")), HasSubstr("--resume")));
}

TEST_F(ToolProgressTest, AnErrorPageIsNoProgress) {
    TestTerminal terminal(80, 24);
    server.enqueue(Reply(404).body(noise(100000)).stallBeforeEnd());
    ToolProcess tool(words(), on(terminal));
    server.awaitRequests(1);
    awaitSize(part, 90000);
    terminal.await("\x1b[1A", 2);
    server.release();
    EXPECT_EQ(tool.wait().exit_code, 2);
    EXPECT_THAT(terminal.close(), Not(HasSubstr("KiB")));
}

TEST_F(ToolProgressTest, ADumbTerminalAndALogGetLines) {
    TestTerminal dumb(80, 24);
    server.enqueue(Reply(200).body("x"));
    EXPECT_EQ(ToolProcess(words(), on(dumb, "dumb")).wait().exit_code, 0);
    EXPECT_THAT(dumb.close(), AllOf(HasSubstr("kel-http: " + target + ": 1 B in 0:"), Not(HasSubstr("\x1b"))));
    TestTerminal terminal(80, 24);
    server.enqueue(Reply(200).body("x"));
    EXPECT_THAT(downloadOn(terminal, {"-v"}), Not(HasSubstr("\x1b")));
}

TEST_F(ToolProgressTest, ATerminalThatDoesNotKnowItsSizeCountsAsTheUsualOne) {
    TestTerminal terminal(0, 0);
    server.enqueue(Reply(200).body("x"));
    EXPECT_THAT(screenAfter(downloadOn(terminal)), ElementsAre(HasSubstr("100% [===========]")));
}

}  // namespace
}  // namespace kel::http::test
