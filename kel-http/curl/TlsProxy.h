// SPDX-License-Identifier: MIT
#pragma once

#include "kel-http/curl/Request.h"

namespace kel::http {

// Whether libcurl may speak TLS with a proxy for this request: its proxy, or one that the process's environment names, has
// a URL that begins with "https:". libcurl keeps TLS sessions with proxies as well, but whom they were made for can not be
// told apart there. Engine thread, when the proxy has been chosen.
bool mayMeetTlsProxy(const Request& request);

}  // namespace kel::http
