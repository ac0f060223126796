// SPDX-License-Identifier: MIT
#include "ko/host.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "ConfiguredHost.h"
#include "certificate/certificate.h"
#include "logging/Logger.h"
#include "tervo/platforminfo.h"

namespace {

using HostTest = ConfiguredHost;

TEST_F(HostTest, LaterCallReplacesTheSettings) {
    settings.temporary_directory = "/first";
    ko::host::configure(settings);
    settings.temporary_directory = "/second";
    ko::host::configure(settings);
    EXPECT_EQ("/second", tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP"));
}

TEST_F(HostTest, ReplacedSinkIsReleasedAndHearsNothingMore) {
    const auto token = std::make_shared<int>(0);
    settings.log_sink = [token](const ko::host::LogLine&) { ++*token; };
    ko::host::configure(settings);
    logging::getLogger("HostTest", 0)->write(1, "heard");
    settings.log_sink = nullptr;
    ko::host::configure(settings);
    logging::getLogger("HostTest", 0)->write(1, "not heard");
    EXPECT_EQ(1, *token);
    EXPECT_EQ(1, token.use_count());
}

TEST_F(HostTest, ConfiguringAndAskingMayHappenAtTheSameTime) {
    settings.temporary_directory = "/folder";
    ko::host::configure(settings);
    std::vector<std::thread> threads;
    for (int i = 0; i < 2; ++i) {
        threads.emplace_back([this] {
            for (int n = 0; n < 100; ++n) ko::host::configure(settings);
        });
        threads.emplace_back([] {
            for (int n = 0; n < 100; ++n) {
                EXPECT_EQ("/folder", tervo::platforminfo::get_resource_filepath("PATH_TYPE_TEMP"));
                certificate::ca_path("default");
                logging::getLogger("HostTest", 0)->write(1, "a line");
            }
        });
    }
    for (auto& thread : threads) thread.join();
}

TEST(HostDeathTest, ProcessThatNeverConfiguresHasTheDefaults) {
    const TemporaryFolder session;
    EXPECT_EXIT(
        {
            setenv("XDG_RUNTIME_DIR", session.path().c_str(), 1);
            namespace platforminfo = tervo::platforminfo;
            const bool defaults = platforminfo::get_resource_filepath("PATH_TYPE_TEMP") == session.file("kel-http") &&
                                  !platforminfo::is_release_build() && !platforminfo::is_test_mode() &&
                                  certificate::ca_path("default") == "/etc/ssl/certs/ca-certificates.crt";
            std::exit(defaults ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
