// SPDX-License-Identifier: MIT
#include <cstring>

#include "fixture/RecordingRequest.h"
#include "fixture/TestHost.h"
#include "kel-http/curl/Engine.h"
#include "support/Environment.h"

// One process with an engine and one request, for tests about what is left of it; or with one request after the other,
// until it is killed.
//
//   cookie_process FOLDER URL [write] [fresh] [forever]
//
// Ends well when the request did.
int main(int argc, char** argv) {
    using namespace kel::http;
    if (argc < 3) return 2;
    test::clearProxyEnvironment();
    const test::TestHost host([argv](ko::host::Settings& settings) { settings.temporary_directory = argv[1]; });

    RequestConfig config;
    bool forever = false;
    config.url = argv[2];
    for (int i = 3; i < argc; ++i) {
        if (std::strcmp(argv[i], "write") == 0) config.cookie_jar = CookieJar::rw_cookies;
        if (std::strcmp(argv[i], "fresh") == 0) config.reset_state = true;
        if (std::strcmp(argv[i], "forever") == 0) forever = true;
    }
    const Engine engine([](const std::function<void()>& completion) { completion(); });
    do {
        const auto request = std::make_shared<test::RecordingRequest>(config);
        request->runRequest();
        request->outcome.await("end");
    } while (forever);
    return 0;
}
