// SPDX-License-Identifier: MIT
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <thread>

#include "fixture/TestDevice.h"
#include "kel-http/curl/Engine.h"
#include "soak/Caller.h"
#include "soak/Growth.h"
#include "soak/Peers.h"
#include "support/Environment.h"
#include "support/Instruments.h"

// A mixture of all kinds of requests on real sockets, for a given time, by several callers at once who cancel, pause and
// resume, drop handles and clients.
//
//   mixture [TIME] [--seed=N] [--callers=N] [--only=KIND,...] [--without=KIND,...]
//
// TIME is a number with s, m or h behind it, 1m by default. One line a minute and a last one tell what has happened. The exit
// status is 1 when an outcome was lost, came twice or after a cancellation, when a response was wrong, when something is
// left behind, or when memory or descriptors grow without end.
namespace kel::http::soak {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Peers are made anew for each round, so that whoever is connected to them sees them go.
constexpr milliseconds longest_round{15000};
constexpr milliseconds shortest_round{250};
constexpr int least_rounds = 9;
constexpr milliseconds tick{100};

struct Options {
    milliseconds time{60000};
    std::uint32_t seed = 1;
    unsigned callers = 8;
    std::vector<Kind> mixture = kinds();
};

[[noreturn]] void refuse(const std::string& argument) {
    std::cerr << "usage: mixture [TIME] [--seed=N] [--callers=N] [--only=KIND,...] [--without=KIND,...], not '"
              << argument << "'\nkinds:";
    for (const Kind& kind : kinds()) std::cerr << ' ' << kind.name;
    std::cerr << std::endl;
    std::exit(2);
}

milliseconds timeOf(const std::string& argument) {
    char* end = nullptr;
    const long number = std::strtol(argument.c_str(), &end, 10);
    if (number > 0 && std::strcmp(end, "s") == 0) return std::chrono::seconds(number);
    if (number > 0 && std::strcmp(end, "m") == 0) return std::chrono::minutes(number);
    if (number > 0 && std::strcmp(end, "h") == 0) return std::chrono::hours(number);
    refuse(argument);
}

std::vector<Kind> mixtureOf(const std::string& argument, const std::string& names, bool only) {
    std::vector<Kind> chosen;
    for (const Kind& kind : kinds()) {
        const bool named = (',' + names + ',').find(',' + kind.name + ',') != std::string::npos;
        if (named == only) chosen.push_back(kind);
    }
    if (chosen.empty()) refuse(argument);
    return chosen;
}

Options read(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        const std::string name = argument.substr(0, argument.find('='));
        const std::string value = argument.substr(std::min(name.size() + 1, argument.size()));
        if (name == "--seed") {
            options.seed = static_cast<std::uint32_t>(std::strtoul(value.c_str(), nullptr, 10));
        } else if (name == "--callers" && std::atoi(value.c_str()) > 0) {
            options.callers = static_cast<unsigned>(std::atoi(value.c_str()));
        } else if (name == "--only" || name == "--without") {
            options.mixture = mixtureOf(argument, value, name == "--only");
        } else {
            options.time = timeOf(argument);
        }
    }
    return options;
}

class Mixture {
 public:
    explicit Mixture(const Options& options) : options_(options) {
        for (unsigned i = 0; i < options.callers; ++i) {
            const std::uint32_t seed = options.seed * 1000 + i;
            callers_.push_back(std::make_unique<Caller>("caller" + std::to_string(i), seed, options.mixture, tally_));
        }
        engine_ = std::make_unique<Engine>([](const std::function<void()>& completion) { completion(); });
        engine_->setProxyConfig(Engine::ProxyConfigMode::PACUrl, "", "", "");
    }

    bool run() {
        const milliseconds round = std::clamp(options_.time / least_rounds, shortest_round, longest_round);
        while (Clock::now() < end_) runRound(std::min(end_, Clock::now() + round));
        const std::string grown = growth_.verdict(!test::underSanitizer());
        if (!grown.empty()) tally_.noteFault(grown);
        if (tally_.ends("response") == 0) tally_.noteFault("no response at all");
        std::cout << tally_.line() << std::endl;
        engine_.reset();
        return tally_.faults() == 0;
    }

 private:
    void runRound(Clock::time_point until) {
        {
            Peers peers;
            for (const auto& caller : callers_) caller->begin(peers.addresses());
            while (Clock::now() < until) {
                std::this_thread::sleep_for(tick);
                peers.tick();
                report();
            }
            for (const auto& caller : callers_) caller->finish();
            peers.tick();
            for (const auto& caller : callers_) caller->awaitEnd();
            engine_->settle();
            // A download that is cancelled when it is through may still get its name, which has no dot, but nothing else stays.
            for (const std::string& file : peers.files()) {
                if (file.find('.') != std::string::npos) tally_.noteFault("a file is left: " + file);
            }
        }
        growth_.add(presentUsage());
    }

    void report() {
        if (Clock::now() < next_report_) return;
        next_report_ += std::chrono::minutes(1);
        std::cout << tally_.line() << std::endl;
    }

    const Options options_;
    const Clock::time_point end_ = Clock::now() + options_.time;
    Clock::time_point next_report_ = Clock::now() + std::chrono::minutes(1);
    Tally tally_;
    Growth growth_;
    std::vector<std::unique_ptr<Caller>> callers_;  // their executors outlive the engine
    std::unique_ptr<Engine> engine_;
};

}  // namespace
}  // namespace kel::http::soak

int main(int argc, char** argv) {
    using namespace kel::http;
    test::clearProxyEnvironment();
    const soak::Options options = soak::read(argc, argv);
    const test::TemporaryDirectory folder;
    const test::TestHost device([&folder](ko::host::Settings& settings) {
        test::withTestDevice(settings);
        settings.temporary_directory = folder.path();
    });
    std::cout << "seed " << options.seed << std::endl;
    return soak::Mixture(options).run() ? 0 : 1;
}
