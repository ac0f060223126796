// SPDX-License-Identifier: MIT
#include "tervo/platforminfo.h"

#include <gtest/gtest.h>

#include "ConfiguredHost.h"
#include "ko/host.h"

namespace {

namespace platforminfo = tervo::platforminfo;

using PlatformInfoTest = ConfiguredHost;

TEST_F(PlatformInfoTest, TemporaryFolderIsTheConfiguredOne) {
    settings.temporary_directory = "/var/tmp/device";
    ko::host::configure(settings);
    EXPECT_EQ("/var/tmp/device", platforminfo::get_resource_filepath("PATH_TYPE_TEMP"));
}

TEST_F(PlatformInfoTest, UnknownTypeHasNoFolder) {
    EXPECT_EQ("", platforminfo::get_resource_filepath("PATH_TYPE_UNKNOWN"));
    EXPECT_EQ("", platforminfo::get_resource_filepath(""));
}

TEST_F(PlatformInfoTest, BuildKindIsTheConfiguredOne) {
    settings.release_build = true;
    ko::host::configure(settings);
    EXPECT_TRUE(platforminfo::is_release_build());
    EXPECT_FALSE(platforminfo::is_test_mode());
    settings.release_build = false;
    settings.test_mode = true;
    ko::host::configure(settings);
    EXPECT_FALSE(platforminfo::is_release_build());
    EXPECT_TRUE(platforminfo::is_test_mode());
}

}  // namespace
