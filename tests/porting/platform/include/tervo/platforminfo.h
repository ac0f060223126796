// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace tervo::platforminfo {

std::string get_resource_filepath(const std::string& type);
bool is_release_build();
bool is_test_mode();

}  // namespace tervo::platforminfo
