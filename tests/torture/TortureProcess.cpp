// SPDX-License-Identifier: MIT
#include <execinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "support/Environment.h"
#include "support/OpenDescriptors.h"
#include "torture/Courses.h"
#include "torture/Judge.h"

// The failures of one scenario, one after the other.
//
//   torture_process SCENARIO STRIDE PATIENCE [COURSE FIRST]
//
// Of calls for memory each STRIDE-th one fails, of the others each. PATIENCE: seconds that an outcome may take. With COURSE
// (a number) and FIRST it begins there: where an earlier process ended.
//
// Prints "@at COURSE CALL" before each run, "@finding TEXT" after it where something was wrong, then "@site CALL" with a
// backtrace of the failing call up to "@site end"; "@end" behind the last run. "@stuck": nothing more
// can be done in this process. A process that dies prints "@died SIGNAL",
// the site and "@where" with its own backtrace; one that hangs is for the caller to end.
namespace kel::http::torture {
namespace {

void say(const std::string& line) {
    std::cout << line << std::endl;  // at once: this process may not live to the next line
}

extern "C" void tellOfDeath(int signal) {
    setRoleOfThread(Role::bystander);
    std::array<char, 32> text{};
    const int length = std::snprintf(text.data(), text.size(), "@died %d\n", signal);
    if (write(STDOUT_FILENO, text.data(), static_cast<std::size_t>(length)) < 0) _exit(2);
    faults::writeSite(STDOUT_FILENO);
    std::array<void*, 32> frames{};
    if (write(STDOUT_FILENO, "@where\n", 7) < 0) _exit(2);
    backtrace_symbols_fd(frames.data(), backtrace(frames.data(), frames.size()), STDOUT_FILENO);
    if (write(STDOUT_FILENO, "@where end\n", 11) < 0) _exit(2);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void listenForDeath() {
    std::array<void*, 1> frame{};
    backtrace(frame.data(), 1);  // loads what it needs
    for (const int signal : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL}) std::signal(signal, &tellOfDeath);
}

int unreadInput() {
    int bytes = 0;
    return ioctl(STDIN_FILENO, FIONREAD, &bytes) == 0 ? bytes : -1;
}

class Torture {
 public:
    Torture(const Scenario& scenario, long stride, std::chrono::seconds patience)
        : scenario_(scenario), place_(scenario), stride_(stride), patience_(patience) {
        run(std::nullopt);  // makes what is made but once in a process
        reference_ = run(std::nullopt);
    }

    bool isSound() {
        for (const std::string& finding : judge(scenario_, reference_, reference_))
            say("@finding without a failure: " + finding);
        return reference_.transcript.succeeded(scenario_.steps(place_.surroundings()).size());
    }

    void failAll(std::size_t first_course, long first_call) {
        for (std::size_t i = first_course; i < courses().size(); ++i) failAlong(i, i == first_course ? first_call : 0);
    }

 private:
    Trail run(const std::optional<Plan>& plan) {
        place_.furnish();
        Trail trail;
        const test::OpenDescriptors before;
        trail.transcript = Life(scenario_, place_, patience_).run(plan);
        if (trail.transcript.stuck) return trail;
        place_.awaitSilence();
        trail.requests = place_.requests();
        trail.proxy_requests = place_.proxyRequests();
        trail.connections = place_.connections();
        trail.files = place_.files();
        trail.descriptors = before.opened();
        trail.input_bytes = unreadInput();
        return trail;
    }

    // A handshake needs memory some thousand times, mostly to read a few certificates.
    long stepOf(const Course& course) const {
        if (course.kind != Kind::memory) return 1;
        return scenario_.tls && stride_ > 1 ? 10 * stride_ : stride_;
    }

    // Until there are no such calls any more; their number differs a little from run to run.
    void failAlong(std::size_t number, long first) {
        const Course& course = courses()[number];
        const long step = stepOf(course);
        long call = first != 0 ? first : 1 + static_cast<long>(number) % step;
        for (int in_vain = 0; in_vain < 2; call += step) {
            say("@at " + std::to_string(number) + ' ' + std::to_string(call));
            const Trail trail = run(Plan{course.kind, course.role, call, course.count});
            in_vain = faults::fired() ? 0 : in_vain + 1;
            tell(judge(scenario_, reference_, trail));
            if (trail.transcript.stuck) awaitEnd();
        }
    }

    // What is there is for others to look at.
    static void awaitEnd() {
        say("@stuck");
        for (;;) pause();
    }

    static void tell(const std::vector<std::string>& findings) {
        for (const std::string& finding : findings) say("@finding " + finding);
        if (!findings.empty()) faults::writeSite(STDOUT_FILENO);
    }

    const Scenario& scenario_;
    Place place_;
    const long stride_;
    const std::chrono::seconds patience_;
    Trail reference_;
};

}  // namespace
}  // namespace kel::http::torture

int main(int argc, char** argv) {
    using namespace kel::http::torture;
    if (argc < 4) return 2;
    kel::http::test::clearProxyEnvironment();
    listenForDeath();
    Torture torture(scenarioNamed(argv[1]), std::atol(argv[2]), std::chrono::seconds(std::atol(argv[3])));
    if (!torture.isSound()) {
        say("@finding the scenario fails by itself");
        return 1;
    }
    torture.failAll(argc > 5 ? static_cast<std::size_t>(std::atol(argv[4])) : 0, argc > 5 ? std::atol(argv[5]) : 0);
    say("@end");
    return 0;
}
