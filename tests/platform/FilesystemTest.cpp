// SPDX-License-Identifier: MIT
#include "ko/filesystem.h"

#include <gtest/gtest.h>

#include <boost/system/error_code.hpp>
#include <random>
#include <set>
#include <string>

#include "ko/random.h"

namespace {

boost::system::error_code set_error() {
    return make_error_code(boost::system::errc::io_error);
}

TEST(FilesystemTest, EveryPercentSignBecomesADigitAndTheRestStays) {
    auto ec = set_error();
    const std::string name = ko::filesystem::unique_path("/a%/%b.downloading-%%%%%%%%", ec).string();
    ASSERT_EQ(27U, name.size());
    EXPECT_EQ(std::string::npos, name.find('%'));
    EXPECT_EQ("/a", name.substr(0, 2));
    EXPECT_EQ("b.downloading-", name.substr(5, 14));
    EXPECT_EQ(std::string::npos,
              (name.substr(2, 1) + name.substr(4, 1) + name.substr(19)).find_first_not_of("0123456789abcdef"));
}

TEST(FilesystemTest, ErrorCodeIsCleared) {
    auto ec = set_error();
    ko::filesystem::unique_path("name", ec);
    EXPECT_FALSE(ec);
}

TEST(FilesystemTest, PatternWithoutPercentSignsIsReturnedAsItIs) {
    boost::system::error_code ec;
    EXPECT_EQ("/data/f.bin", ko::filesystem::unique_path("/data/f.bin", ec));
    EXPECT_EQ("", ko::filesystem::unique_path("", ec));
}

TEST(FilesystemTest, DigitsAreDrawnFromTheThreadsEngineInTheTablesOrder) {
    constexpr char table[] = "0123456789abdcef";
    std::minstd_rand0 engine(42);
    std::string expected;
    for (int i = 0; i < 64; ++i) {
        expected += table[std::uniform_int_distribution<int>(0, 15)(engine)];
    }
    ko::randint_e_().seed(42);
    boost::system::error_code ec;
    EXPECT_EQ(expected, ko::filesystem::unique_path(std::string(64, '%'), ec).string());
}

TEST(FilesystemTest, AllSixteenDigitsAreUsedAndNoOther) {
    ko::randint_e_().seed(7);
    boost::system::error_code ec;
    const std::string name = ko::filesystem::unique_path(std::string(4096, '%'), ec).string();
    EXPECT_EQ(std::set<char>({'0', '1', '2', '3', '4', '5', '6', '7', '8', '9', 'a', 'b', 'c', 'd', 'e', 'f'}),
              std::set<char>(name.begin(), name.end()));
}

TEST(FilesystemTest, TwoNamesDiffer) {
    boost::system::error_code ec;
    EXPECT_NE(ko::filesystem::unique_path("%%%%%%%%%%%%%%%%", ec), ko::filesystem::unique_path("%%%%%%%%%%%%%%%%", ec));
}

}  // namespace
