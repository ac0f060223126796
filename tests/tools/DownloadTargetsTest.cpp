// SPDX-License-Identifier: MIT
#include "kel-http/DownloadTargets.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "kel-http/ToolError.h"

namespace kel::http::tool {

bool operator==(const DownloadTarget& a, const DownloadTarget& b) {
    return a.url == b.url && a.path == b.path;
}

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

std::string complaint(const std::vector<std::string>& words) {
    try {
        download_targets(words);
    } catch (const ToolError& error) {
        EXPECT_EQ(error.exit_code, UsageError);
        return error.what();
    }
    return "none";
}

TEST(DownloadTargetsTest, OneFileUnderTwoNamesIsFoundOut) {
    const std::string there = std::filesystem::current_path() / "f";
    EXPECT_THAT(complaint({"http://host/a", "f", "http://host/b", there}), HasSubstr("two downloads would be written"));
    EXPECT_THAT(complaint({"http://host/a", "f", "http://host/b", "./x/../f"}), HasSubstr("two downloads"));
}

TEST(DownloadTargetsTest, StandardOutputIsNoFile) {
    EXPECT_THAT(complaint({"http://host/a", "-"}), HasSubstr("./-"));
    EXPECT_EQ(complaint({"http://host/a", "./-"}), "none");
}

TEST(FileNameInUrlTest, IsTheLastSegmentOfThePath) {
    EXPECT_EQ(file_name_in("http://host/folder/image.bin"), "image.bin");
    EXPECT_EQ(file_name_in("host/image.bin"), "image.bin");
    EXPECT_EQ(file_name_in("http://host/image.bin?version=1/2#top/3"), "image.bin");
    EXPECT_EQ(file_name_in("http://host/a?from=ftp://other/b"), "a");
}

TEST(FileNameInUrlTest, IsDecodedWhereThatDoesNoHarm) {
    EXPECT_EQ(file_name_in("http://host/my%20image%2Ebin"), "my image.bin");
    EXPECT_EQ(file_name_in("http://host/%c3%A4"), "\xc3\xa4");
    EXPECT_EQ(file_name_in("http://host/100%"), "100%");
    EXPECT_EQ(file_name_in("http://host/%zz%4"), "%zz%4");
    EXPECT_EQ(file_name_in("http://host/..%2Fpasswd"), "..%2Fpasswd");
    EXPECT_EQ(file_name_in("http://host/a%00b"), "a%00b");
    EXPECT_EQ(file_name_in("http://host/a%0Ab"), "a%0Ab");
}

TEST(FileNameInUrlTest, MayBeMissing) {
    for (const char* const url : {"http://host", "host", "http://host/", "http://host/folder/", "http://host/?a=b/c",
                                  "http://host/..", "http://host/.", "http://host/%2e%2E", "http://host?name/x"}) {
        EXPECT_EQ(file_name_in(url), std::nullopt) << url;
    }
}

TEST(DownloadTargetsTest, PathsFollowTheirUrlsOrAreLeftOut) {
    EXPECT_THAT(download_targets({"host/a"}), ElementsAre(DownloadTarget{"host/a", "a"}));
    EXPECT_THAT(download_targets({"host", "to/b"}), ElementsAre(DownloadTarget{"host", "to/b"}));
    EXPECT_THAT(download_targets({"host/a", "http://host/b", "c", "https://host/d"}),
                ElementsAre(DownloadTarget{"host/a", "a"}, DownloadTarget{"http://host/b", "c"},
                            DownloadTarget{"https://host/d", "d"}));
}

TEST(DownloadTargetsTest, TwoPathsInARowAreTold) {
    EXPECT_THAT(complaint({"host/a", "b", "host/c"}),
                HasSubstr("'host/c' follows another PATH: give one PATH for each URL, and further URLs with http://"));
}

TEST(DownloadTargetsTest, AUrlWithoutANameNeedsAPath) {
    EXPECT_THAT(complaint({"http://host/"}), HasSubstr("'http://host/' names no file: give a PATH after it"));
}

TEST(DownloadTargetsTest, AnEmptyWordIsTold) {
    EXPECT_THAT(complaint({""}), HasSubstr("is empty"));
    EXPECT_THAT(complaint({"host/a", ""}), HasSubstr("is empty"));
}

TEST(DownloadTargetsTest, NoFileIsWrittenToTwice) {
    EXPECT_THAT(complaint({"http://host/a", "http://other/a"}), HasSubstr("written to 'a'"));
    EXPECT_THAT(complaint({"http://host/a", "to/b", "http://host/c", "./to//b"}), HasSubstr("written to './to//b'"));
    EXPECT_THAT(complaint({"http://host/a", "http://host/a.part"}), HasSubstr("written to 'a.part'"));
}

}  // namespace
}  // namespace kel::http::tool
