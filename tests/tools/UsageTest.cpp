// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

#include "ToolProcess.h"

namespace kel::http::test {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

// Nothing listens there; a request that were sent would end with another exit code.
constexpr const char* Url = "http://127.0.0.1:1/";

struct Mistake {
    std::vector<std::string> arguments;
    std::string told;
};

void PrintTo(const Mistake& mistake, std::ostream* stream) {
    *stream << "kel-http";
    for (const std::string& argument : mistake.arguments) *stream << ' ' << argument;
}

class ToolMistakeTest : public testing::TestWithParam<Mistake> {};

TEST_P(ToolMistakeTest, IsToldWithThePlaceToReadMore) {
    const ToolResult result = runTool(GetParam().arguments);
    EXPECT_EQ(result.exit_code, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_THAT(result.err, StartsWith("kel-http: "));
    EXPECT_THAT(result.err, HasSubstr(GetParam().told));
}

INSTANTIATE_TEST_SUITE_P(
    CommandLine, ToolMistakeTest,
    testing::Values(Mistake{{}, "name a command first"}, Mistake{{"fetch", Url}, "name a command first"},
                    Mistake{{"get"}, "URL is required"}, Mistake{{"get", ""}, "the URL is empty"},
                    Mistake{{"get", Url, "another"}, "another"}, Mistake{{"get", Url, "--nonsense"}, "--nonsense"},
                    Mistake{{"get", Url, "-d", "x"}, "get sends no body"},
                    Mistake{{"post", Url, "--upload", "x"}, "--upload goes with put"},
                    Mistake{{"put", Url, "-F", "a=b"}, "post only"},
                    Mistake{{"post", Url, "-d", "x", "-F", "a=b"}, "only one of"},
                    Mistake{{"put", Url, "--upload", "-"}, "--data-file -"},
                    Mistake{{"post", Url, "-F", "a"}, "--form"}, Mistake{{"post", Url, "-F", "=a"}, "--form"},
                    Mistake{{"get", Url, "-H", "no colon"}, "no colon"},
                    Mistake{{"get", Url, "-H", "A: 1", "-H", "a: 2"}, "'a' is given twice"},
                    Mistake{{"get", Url, "-o", ""}, "-o/--output"}, Mistake{{"get", Url, "--auth", "magic"}, "magic"},
                    Mistake{{"get", Url, "--auth", "basic"}, "-u/--user"}, Mistake{{"get", Url, "-u", ""}, "-u/--user"},
                    Mistake{{"get", Url, "-u", "a:b"}, "colon"}));

INSTANTIATE_TEST_SUITE_P(
    Trust, ToolMistakeTest,
    testing::Values(Mistake{{"get", Url, "--cert", "x"}, "give it with --key"},
                    Mistake{{"get", Url, "--key", "x"}, "give it with --cert"},
                    Mistake{{"get", Url, "--cert", "x", "--key", "x", "--device-cert-dir", "x"}, "one certificate"},
                    Mistake{{"get", Url, "--insecure", "--ca-file", "x"}, "--insecure trusts everybody"},
                    Mistake{{"get", Url, "--insecure", "--ca-dir", "x"}, "--insecure trusts everybody"},
                    Mistake{{"get", Url, "--insecure", "--partial-chain"}, "--insecure trusts everybody"},
                    Mistake{{"get", Url, "--min-tls", "1.3"}, "'1.3' is not one of 1.0|1.1|1.2"},
                    Mistake{{"get", Url, "--min-tls", ""}, "is not one of"}));

INSTANTIATE_TEST_SUITE_P(
    Detours, ToolMistakeTest,
    testing::Values(Mistake{{"get", Url, "--proxy", "host", "--no-proxy"}, "leave it out, or --proxy"},
                    Mistake{{"get", Url, "--proxy", ""}, "http://host:port"},
                    Mistake{{"get", Url, "--proxy", "http://"}, "http://host:port"},
                    Mistake{{"get", Url, "--proxy", "ftp://host"}, "'ftp://host'"},
                    Mistake{{"get", Url, "--proxy", "http://me:a/b@host"}, "use --proxy-user"},
                    Mistake{{"get", Url, "--proxy-user", "me:x"}, "goes with --proxy"},
                    Mistake{{"get", Url, "--proxy-user", "me:x", "--no-proxy"}, "goes with --proxy"},
                    Mistake{{"get", Url, "--proxy", "host", "--proxy-user", ":x"}, "has no name"},
                    Mistake{{"get", Url, "--proxy", "me:x@host", "--proxy-user", "me:x"}, "login of its own"}));

INSTANTIATE_TEST_SUITE_P(Memory, ToolMistakeTest,
                         testing::Values(Mistake{{"get", Url, "--cookies", "eat"},
                                                 "'eat' is not one of none|read|write"},
                                         Mistake{{"get", Url, "--cookies", "none", "--temp-dir", "x"}, "--temp-dir"}));

constexpr const char* Sum = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

INSTANTIATE_TEST_SUITE_P(
    Downloads, ToolMistakeTest,
    testing::Values(Mistake{{"download"}, "URL is required"}, Mistake{{"download", ""}, "is empty"},
                    Mistake{{"download", Url}, "names no file: give a PATH"},
                    Mistake{{"download", Url, "a", "b"}, "'b' follows another PATH"},
                    Mistake{{"download", Url, "a", Url, "a"}, "two downloads would be written to 'a'"},
                    Mistake{{"download", Url, "a", "-d", "x"}, "download sends no body"},
                    Mistake{{"download", Url, "a", "--upload", "x"}, "download sends no body"},
                    Mistake{{"download", Url, "-o", "a"}, "leave out -o"},
                    Mistake{{"download", Url, "a", "-i"}, "leave out -i"},
                    Mistake{{"download", Url, "a", "--limit-rate", "0"}, "1 to 4294967295"},
                    Mistake{{"get", Url, "--resume"}, "--resume goes with download"},
                    Mistake{{"get", Url, "--keep-partial"}, "--keep-partial goes with download"},
                    Mistake{{"get", Url, "--sha256"}, "--sha256 goes with download"}));

INSTANTIATE_TEST_SUITE_P(
    Checksums, ToolMistakeTest,
    testing::Values(Mistake{{"download", Url, "a", "--sha256", "abc"}, "'abc' is no checksum"},
                    Mistake{{"download", Url, "a", std::string("--sha256=x") + Sum}, "is no checksum"},
                    Mistake{{"download", Url, "--sha256", std::string(Sum) + "0"}, "is no checksum"},
                    Mistake{{"download", Url, "--sha256", 'g' + std::string(Sum).substr(1)}, "is no checksum"},
                    Mistake{{"download", Url, "a", "--sha256="}, "'' is no checksum"},
                    Mistake{{"download", Url, "a", "--sha256", ""}, "is empty"},
                    Mistake{{"download", Url, "a", Url, "b", "--sha256", Sum}, "goes with one URL"}));

INSTANTIATE_TEST_SUITE_P(Units, ToolMistakeTest,
                         testing::Values(Mistake{{"get", Url, "--timeout", "5x"}, "5x"},
                                         Mistake{{"get", Url, "--timeout", ""}, "duration"},
                                         Mistake{{"get", Url, "--timeout", "-1"}, "-1"},
                                         Mistake{{"get", Url, "--timeout", "inf"}, "inf"},
                                         Mistake{{"get", Url, "--timeout", "9999999m"}, "9999999m"},
                                         Mistake{{"get", Url, "--size-limit", "1T"}, "1T"},
                                         Mistake{{"get", Url, "--size-limit", "4G"}, "4294967295"},
                                         Mistake{{"get", Url, "--limit-rate", "0"}, "1 to 4294967295"}));

TEST(ToolUsageTest, HelpListsCommandsOptionsExitCodesAndExamples) {
    const ToolResult result = runTool({"--help"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.err, "");
    for (const char* const text : {"Usage:", "Commands:", "Exit codes:", "Examples:", "--data-file", "--limit-rate",
                                   "Download:", "--sha256 [EXPECTED]"}) {
        EXPECT_THAT(result.out, HasSubstr(text));
    }
    EXPECT_EQ(runTool({"post", "-h"}).out, result.out);
    EXPECT_EQ(runTool({"get", Url, "--help"}).out, result.out);
    EXPECT_EQ(runTool({"download", "--help"}).out, result.out);
}

TEST(ToolUsageTest, VersionIsThatOfTheLibrary) {
    const ToolResult result = runTool({"--version"});
    EXPECT_EQ(result.exit_code, 0);
    EXPECT_EQ(result.out, "kel-http " KEL_TEST_VERSION "\n");
}

}  // namespace
}  // namespace kel::http::test
