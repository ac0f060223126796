// SPDX-License-Identifier: MIT
#include "tervo/platforminfo.h"

#include "host_settings.h"

namespace tervo {
namespace platforminfo {

std::string get_resource_filepath(const std::string& type) {
    if (type != "PATH_TYPE_TEMP") return {};
    return ko::host::current_settings().temporary_directory;
}

bool is_release_build() {
    return ko::host::current_settings().release_build;
}

bool is_test_mode() {
    return ko::host::current_settings().test_mode;
}

}  // namespace platforminfo
}  // namespace tervo
