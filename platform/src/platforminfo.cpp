// SPDX-License-Identifier: MIT
#include "tervo/platforminfo.h"

#include "host_settings.h"
#include "private_folder.h"

namespace tervo {
namespace platforminfo {

std::string get_resource_filepath(const std::string& type) {
    if (type != "PATH_TYPE_TEMP") return {};
    const std::string& configured = ko::host::current_settings().temporary_directory;
    return configured.empty() ? ko::host::private_folder() : configured;
}

bool is_release_build() {
    return ko::host::current_settings().release_build;
}

bool is_test_mode() {
    return ko::host::current_settings().test_mode;
}

}  // namespace platforminfo
}  // namespace tervo
