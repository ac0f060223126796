// SPDX-License-Identifier: MIT
// Requests of every kind and callers with second thoughts, in callbacks as well.
#include <array>

#include "GeneratorParts.h"
#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::int64_t second = 1'000'000;

class CallersGenerator {
 public:
    CallersGenerator(Script& script, std::uint64_t seed)
        : script_(script), random_(seed ^ 0xCA11E25ULL), switches_(random_.next()) {}

    void add() {
        if (random_.oneIn(3)) return;
        if (trouble(0, 2)) script_.world.posting = 1;
        if (trouble(1, 2)) script_.world.executors = random_.between(2, 3);
        if (trouble(2, 2)) script_.world.digest = 1;
        for (ReplyScript& reply : script_.replies) {
            if (trouble(3, 3)) reply.cookies = random_.between(1, 3);
        }
        for (RequestScript& request : script_.requests) addKind(request);
        for (std::size_t number = 0; number < script_.requests.size(); ++number) {
            addDeeds(script_.requests[number]);
            addFileDeeds(script_.requests[number]);
        }
        if (trouble(29, 12)) addDeed(Deed::endExecutor, anyone());
        if (trouble(30, 8)) addDeed(Deed::destroyEngine, anyone());
    }

 private:
    bool trouble(unsigned kind, std::int64_t one_in) {
        return ((switches_ >> kind) & 1U) != 0 && random_.oneIn(one_in);
    }
    std::int64_t anyone() {
        return script_
            .requests[static_cast<std::size_t>(random_.below(static_cast<std::int64_t>(script_.requests.size())))]
            .id;
    }

    void addKind(RequestScript& request) {
        if (trouble(4, 4)) {
            request.own = 1;
            request.handle = 0;
        } else if (trouble(5, 3)) {
            addDownload(request);
        }
        addBody(request);
        if (trouble(9, 2)) request.cookies = random_.below(3);
        if (trouble(10, 6)) request.speedLimit = random_.between(500, 50000);
        if (trouble(11, 3)) request.timing = 1;
        if (trouble(13, 3)) request.headers = random_.oneIn(8) ? 3 : random_.between(1, 2);
        if (trouble(14, 12)) request.badUrl = random_.between(1, 4);
        if (trouble(15, 6) && request.id > 0) request.after = random_.below(request.id);
    }

    void addDownload(RequestScript& request) {
        request.download = random_.between(1, 4);
        if (random_.oneIn(3)) request.keepPartial = 1;
        if (request.download < 2) return;
        const std::int64_t size = script_.reply(request.exchange, 0).body;
        request.present = request.download == 3 ? random_.between(0, size) : random_.between(0, 2 * size + 10);
        if (request.download < 3) return;
        request.verb = Verb::GET;
        if (!random_.oneIn(4)) serveParts(request);
    }

    // A server that knows ranges: without one nothing can be resumed.
    void serveParts(const RequestScript& request) {
        for (ReplyScript& reply : script_.replies) {
            if (reply.exchange != request.exchange) continue;
            reply.status = 200;
            reply.location = -1;
            reply.range = Range::right;
        }
    }

    void addBody(RequestScript& request) {
        if (trouble(7, 6) && request.download < 3) {
            request.verb = Verb::POST;
            request.form = random_.between(1, 4);
            request.formFiles = random_.below(16);
            request.body = 0;
        } else if (trouble(8, 6) && request.download < 3) {
            request.verb = Verb::PUT;
            request.bodyFile = random_.oneIn(6) ? 2 : 1;
            request.body = random_.oneIn(2) ? random_.between(0, 100) : random_.between(0, 30000);
        }
    }

    void addDeeds(const RequestScript& request) {
        static constexpr std::array<Deed, 8> deeds = {Deed::cancel,     Deed::pause, Deed::resume, Deed::settle,
                                                      Deed::dropClient, Deed::rerun, Deed::queue,  Deed::listen};
        for (unsigned kind = 0; kind < deeds.size(); ++kind) {
            const Deed deed = deeds[kind];
            if (trouble(16 + kind, deed == Deed::rerun && request.own != 0 ? 2 : 12)) addDeed(deed, request.id);
        }
    }

    void addFileDeeds(const RequestScript& request) {
        if (request.download < 3 && request.bodyFile == 0 && request.form == 0) return;
        if (!trouble(28, 3)) return;
        const auto deed =
            static_cast<Deed>(random_.between(static_cast<int>(Deed::grow), static_cast<int>(Deed::remove)));
        if (random_.oneIn(2)) return addDeed(deed, request.id);
        ActionScript action;
        action.deed = deed;
        action.request = request.id;
        action.at = request.at + random_.between(0, 300'000);
        script_.actions.push_back(action);
    }

    void addDeed(Deed deed, std::int64_t request) {
        ActionScript action;
        action.deed = deed;
        action.request = request;
        if (random_.oneIn(2)) {
            action.when = static_cast<Moment>(random_.between(1, 6));
            action.whose = random_.oneIn(2) ? request : anyone();
        } else {
            action.at = random_.between(0, 4 * second);
        }
        script_.actions.push_back(action);
        // What has been paused goes on some time, as far as that can be told.
        if (deed == Deed::pause && random_.oneIn(2)) {
            action.deed = Deed::resume;
            action.when = Moment::time;
            action.at = random_.between(second, 9 * second);
            script_.actions.push_back(action);
        }
    }

    Script& script_;
    Random random_;
    const std::uint64_t switches_;
};

}  // namespace

void addCallers(Script& script, std::uint64_t seed) {
    CallersGenerator(script, seed).add();
}

}  // namespace kel::http::simulation
