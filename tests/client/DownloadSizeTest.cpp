// SPDX-License-Identifier: MIT

#include "client/DownloadTest.h"
#include "client/FolderWatch.h"
#include "support/NginxServer.h"

namespace kel::http::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

NginxServer::Options serving(const std::string& path) {
    NginxServer::Options options;
    options.directives = "location = /source { alias " + path + "; }";
    return options;
}

class DownloadSizeTest : public DownloadTest, public testing::WithParamInterface<std::size_t> {
 protected:
    // The temporary name in the folder's events, which are all that may happen there.
    std::string temporaryName() {
        const std::vector<std::string> events = watch_.events();
        if (events.size() != 3) {
            ADD_FAILURE() << testing::PrintToString(events);
            return {};
        }
        const std::string name = events[0].substr(events[0].find(' ') + 1);
        EXPECT_THAT(events, ElementsAre("create " + name, "from " + name, "to f.bin"));
        return name;
    }

    const TemporaryDirectory sources_;
    const std::string source_ = sources_.path("source");
    FolderWatch watch_{directory.path()};
};

TEST_P(DownloadSizeTest, ArrivesUnderATemporaryNameAndIsEqual) {
    const std::string sum = writeLargeFile(source_, GetParam());
    const NginxServer nginx(serving(source_));
    RequestConfig config;
    config.url = nginx.url("/source");
    const ResponseData data = response(config);
    EXPECT_EQ(data.status, 200);
    EXPECT_EQ(data.body, "");
    EXPECT_EQ(data.headers.at("Content-Length"), std::to_string(GetParam()));
    EXPECT_EQ(recorder.outcomes().size(), 1U);

    EXPECT_EQ(sha256OfFile(target), sum);
    EXPECT_THAT(directory.names(), ElementsAre("f.bin"));
    if (GetParam() == 0) {
        EXPECT_THAT(temporaryName(), MatchesRegex("f\\.bin\\.[0123456789abdcef]{8}"));
    } else {
        EXPECT_THAT(temporaryName(), isPart());
    }
}

// libcurl hands a body over in pieces of 16 KiB.
INSTANTIATE_TEST_SUITE_P(Bytes, DownloadSizeTest, testing::Values(0, 1, 16383, 16384, 16385, 5 << 20, 300 << 20),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace kel::http::test
