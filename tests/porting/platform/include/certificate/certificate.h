// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace certificate {

int sslctx_data_index();
bool ca_pem_exists(const std::string& name);
std::string ca_path(const std::string& name);

}  // namespace certificate
