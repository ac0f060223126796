// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "kel-http/RequestConfig.h"
#include "support/ReceivedRequest.h"
#include "support/Reply.h"
#include "support/Sockets.h"

namespace kel::http::torture {

// File names in a folder, and what stands in them.
using Files = std::map<std::string, std::string>;

// What a request needs to know of where it runs.
struct Surroundings {
    std::string folder;
    std::string server;                // "http://127.0.0.1:4711"
    std::vector<std::string> proxies;  // the first one refuses connections
};

// One request of a scenario: a download when there is a target.
struct Step {
    RequestConfig config;
    std::string target;
};

// A request, or a few, from beginning to end.
struct Scenario {
    std::string name;
    std::function<std::vector<Step>(const Surroundings&)> steps;
    // What the server says; called on its thread.
    std::function<test::Reply(const test::ReceivedRequest&)> answer;
    // The folder's files at the beginning, for their owner alone; who puts others in their place keeps it so.
    Files files = {};
    // Whether a file may be there, with these bytes, when all is over. By default those of the beginning alone.
    std::function<bool(const std::string& name, const std::string& bytes, bool succeeded)> mayStand = {};
    // What libcurl leaves out without a word when there is no memory for it: whether a request may lack this header line,
    // and whether this may be the answer as well. By default neither.
    std::function<bool(const std::string& line)> mayLack = {};
    std::function<bool(const std::string& text)> mayAnswer = {};
    test::Family family = test::Family::IPv4;
    bool proxies = false;
    bool tls = false;
    int log_level = 1;
};

const std::vector<Scenario>& scenarios();
const Scenario& scenarioNamed(const std::string& name);

}  // namespace kel::http::torture
