// SPDX-License-Identifier: MIT
#include <algorithm>
#include <cctype>

#include "DownloadToolTest.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

// Of "abc".
constexpr const char* Sum = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
// Of nothing.
constexpr const char* SumOfNothing = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";

class ToolChecksumTest : public DownloadToolTest {
 protected:
    ToolResult run(const std::vector<std::string>& arguments) {
        server.enqueue(Reply(200).body("abc"));
        ToolProcess::Input here;
        here.folder = directory.path();
        return runTool(arguments, here);
    }

    const std::string line = std::string(Sum) + "  " + target + '\n';
};

TEST_F(ToolChecksumTest, IsPrintedAsSha256sumDoes) {
    const ToolResult result = download(Reply(200).body("abc"), {"--sha256"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, line);
    EXPECT_EQ(download(Reply(204), {"--sha256"}).out, std::string(SumOfNothing) + "  " + target + '\n');
}

TEST_F(ToolChecksumTest, ANameThatWouldBreakTheLineIsEscaped) {
    const std::string odd = directory.path("a\\b\nc");
    EXPECT_EQ(run({"download", server.url("/file"), odd, "--sha256"}).out,
              '\\' + std::string(Sum) + "  " + directory.path("a\\\\b\\nc") + '\n');
    EXPECT_EQ(readWholeFile(odd), "abc");
}

TEST_F(ToolChecksumTest, StandsAtAnyPlaceOfTheCommandLine) {
    const std::string url = server.url("/file");
    const std::string in_folder = std::string(Sum) + "  file\n";
    EXPECT_EQ(run({"download", "--sha256", Sum, url}).out, in_folder);
    EXPECT_EQ(run({"download", "--sha256", url}).out, in_folder);
    EXPECT_EQ(run({"download", url, "--sha256"}).out, in_folder);
    EXPECT_EQ(run({"download", url, "--sha256", Sum}).out, in_folder);
    EXPECT_EQ(run({"download", url, target, "--sha256", Sum}).out, line);
    EXPECT_EQ(run({"download", url, "--sha256", target}).out, line);
    EXPECT_EQ(run({"--sha256", "download", url, target}).out, line);
    EXPECT_EQ(run({"download", url, target, std::string("--sha256=") + Sum}).out, line);
}

TEST_F(ToolChecksumTest, AnExpectedOneMayBeInCapitals) {
    std::string capitals = Sum;
    std::transform(capitals.begin(), capitals.end(), capitals.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    const ToolResult result = download(Reply(200).body("abc"), {"--sha256", capitals});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, line);
}

TEST_F(ToolChecksumTest, ALineOfSha256sumIsNeitherAChecksumNorAPath) {
    const std::string sum = Sum;
    for (const std::string& mistaken :
         {sum + "  file", sum + " *folder/file", '\\' + sum + "  a\\nb", sum + '\r', sum + '\n', ' ' + sum,
          "sha256:" + sum, sum + ":file", "SHA256 (folder/file) = " + sum, sum.substr(4) + "  file"}) {
        const ToolResult result = run({"download", server.url("/file"), "--sha256", mistaken});
        EXPECT_EQ(result.exit_code, 1) << mistaken;
        EXPECT_THAT(result.err, HasSubstr("is no checksum: give its 64 hexadecimal digits")) << mistaken;
        EXPECT_THAT(result.err, Not(HasSubstr("\r"))) << mistaken;
    }
    EXPECT_THAT(directory.names(), IsEmpty());
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(ToolChecksumTest, UrlsAndPathsWithAChecksumInThemAreWhatTheyAre) {
    const std::string sum = Sum;
    const std::string in_folder = sum + "  " + sum + '\n';
    EXPECT_EQ(run({"download", "--sha256", server.url("/" + sum)}).out, in_folder);
    EXPECT_EQ(run({"download", "--sha256", server.authority() + '/' + sum}).out, in_folder);
    EXPECT_EQ(run({"download", server.url("/file"), "--sha256", "./sha256:" + sum}).out,
              sum + "  ./sha256:" + sum + '\n');
}

TEST_F(ToolChecksumTest, IsAskedForOnce) {
    for (const std::vector<std::string>& twice : std::vector<std::vector<std::string>>{
             {"--sha256", SumOfNothing, "--sha256", Sum}, {"--sha256", SumOfNothing, "--sha256"}}) {
        const ToolResult result = run(words(twice));
        EXPECT_EQ(result.exit_code, 1);
        EXPECT_THAT(result.err, HasSubstr("--sha256 goes once"));
    }
    EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(ToolChecksumTest, AnotherFileReplacesNoOldOne) {
    writeWholeFile(target, "good");
    const ToolResult result = download(Reply(200).body("abc"), {"--sha256", SumOfNothing});
    EXPECT_EQ(result.exit_code, 5);
    EXPECT_EQ(result.out, std::string(Sum) + "  " + part + '\n');
    EXPECT_THAT(result.err, HasSubstr(std::string("the file's SHA-256 is ") + Sum + ", expected was " + SumOfNothing));
    EXPECT_THAT(result.err, HasSubstr("it is in '" + part + "', and '" + target + "' is what it was"));
    EXPECT_EQ(readWholeFile(target), "good");
    EXPECT_EQ(readWholeFile(part), "abc");
}

TEST_F(ToolChecksumTest, AnotherFileIsKeptWhereThereIsNoOldOne) {
    const ToolResult result = download(Reply(200).body("abc"), {"--sha256", SumOfNothing});
    EXPECT_EQ(result.exit_code, 5);
    EXPECT_THAT(result.err, HasSubstr("it is in '" + target + "')"));
    EXPECT_EQ(readWholeFile(target), "abc");
    EXPECT_THAT(directory.names(), ElementsAre("file"));
}

TEST_F(ToolChecksumTest, IsThatOfTheWholeFileAfterAResume) {
    writeWholeFile(part, "a");
    EXPECT_EQ(download(rest("abc", 1), {"--resume", "--sha256", Sum}).exit_code, 0);
    writeWholeFile(part, "abc");
    const Reply complete = Reply(416).header("Content-Range", "bytes */3");
    EXPECT_EQ(download(complete, {"--resume", "--sha256", Sum}).out, line);
}

TEST_F(ToolChecksumTest, APartOfAnotherFileIsToBeDropped) {
    writeWholeFile(part, "x");
    const ToolResult result = download(rest("abc", 1), {"--resume", "--sha256", Sum});
    EXPECT_EQ(result.exit_code, 5);
    EXPECT_THAT(result.err, HasSubstr("start again without --resume"));
}

TEST_F(ToolChecksumTest, OfALargeFileIsRightToo) {
    const std::string whole(9 * 1024 * 1024, 'k');
    const ToolResult result = download(Reply(200).body(whole), {"--sha256"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_THAT(result.out, HasSubstr("cf227d45d3b95fef136ba9f899cd5c3b661bb13254e252ba59720b7aced99ce3"));
}

TEST_F(ToolChecksumTest, OfAFailedDownloadIsNotPrinted) {
    EXPECT_EQ(download(Reply(404).body("page"), {"--sha256"}).out, "");
}

}  // namespace
}  // namespace kel::http::test
