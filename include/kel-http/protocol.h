// SPDX-License-Identifier: MIT
#pragma once

#include "kel-http/Export.h"

// Classes of HTTP status codes (RFC 9110, section 15), as the engine judges a completed transfer. Pure functions.
namespace kel::http::protocol {

// 100 to 599: a status that HTTP knows.
KEL_HTTP_EXPORT bool valid_status(long status);

// 100 to 399. 3xx counts as success: the caller may follow it.
KEL_HTTP_EXPORT bool success_status(unsigned int status);

// 401, 403 and 407.
KEL_HTTP_EXPORT bool auth_failure(unsigned int status);

// 200 to 299.
KEL_HTTP_EXPORT bool ok_status(unsigned int status);

}  // namespace kel::http::protocol
