// SPDX-License-Identifier: MIT
#pragma once

namespace kel::http::test {

// Takes all the variables that name a proxy out of the environment: tests talk to the loopback interface only.
//
// Threads: to be called before there is a second one.
void clearProxyEnvironment();

}  // namespace kel::http::test
