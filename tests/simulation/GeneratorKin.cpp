// SPDX-License-Identifier: MIT
#include "GeneratorKin.h"

#include <algorithm>

#include "world/Random.h"

namespace kel::http::simulation {
namespace {

constexpr std::uint64_t own_kin = 0x4B494E;
constexpr std::int64_t millisecond = 1000;
constexpr std::int64_t second = 1'000'000;

class KinGenerator {
 public:
    KinGenerator(Script& script, std::uint64_t seed) : script_(script), random_(seed * 31 + own_kin) {}

    void add() {
        if (!random_.oneIn(4)) return;
        if (!random_.oneIn(4)) beAlone();
        host_.id = static_cast<std::int64_t>(script_.hosts.size());
        host_.connectDelay = random_.between(0, 50 * millisecond);
        for (const RequestScript& request : script_.requests) next_ = std::max(next_, request.id + 1);
        begin_ = random_.between(0, 500 * millisecond);
        (this->*kind())();
        script_.hosts.push_back(host_);
    }

 private:
    using Kind = void (KinGenerator::*)();

    Kind kind() {
        static constexpr std::array<Kind, 11> kinds = {
            &KinGenerator::addTwins,           &KinGenerator::addRepeatedUploads, &KinGenerator::addHeldTrailers,
            &KinGenerator::addLimits,          &KinGenerator::addResumed,         &KinGenerator::addEarlyPauses,
            &KinGenerator::addCommonPauses,    &KinGenerator::addEndOfExecutor,   &KinGenerator::addEndOfEngine,
            &KinGenerator::addFreshBehindUsed, &KinGenerator::addFailedSetUps};
        return kinds[static_cast<std::size_t>(random_.below(kinds.size()))];
    }

    void beAlone() {
        const std::int64_t order = script_.world.order;
        script_ = Script();
        script_.world.order = order;
        if (random_.oneIn(3)) script_.world.posting = 1;
    }

    // Whole, and in one piece.
    ReplyScript reply(std::int64_t body) {
        ReplyScript reply;
        reply.framing = random_.oneIn(3) ? Framing::chunked : Framing::length;
        reply.body = body;
        reply.delay = random_.between(0, 30 * millisecond);
        return reply;
    }

    RequestScript request(std::int64_t at) {
        RequestScript request;
        request.id = next_++;
        request.at = at;
        request.client = random_.below(2);
        request.host = host_.id;
        request.exchange = request.id * 10;
        return request;
    }

    std::int64_t add(const RequestScript& request, ReplyScript answer) {
        answer.exchange = request.exchange;
        script_.replies.push_back(answer);
        script_.requests.push_back(request);
        return request.id;
    }

    void act(std::int64_t at, Deed deed, std::int64_t request) { script_.actions.push_back({at, deed, request}); }

    // Of the first byte of the answer, over a new connection.
    std::int64_t arrivalOf(const RequestScript& request, const ReplyScript& answer) const {
        return request.at + host_.connectDelay + answer.delay;
    }

    // All that comes of them comes in the same instant.
    void addTwins() {
        const ReplyScript answer = reply(random_.between(0, 3000));
        for (std::int64_t count = random_.between(2, 4); count > 0; --count) {
            RequestScript twin = request(begin_);
            if (random_.oneIn(4)) twin.own = 1;
            add(twin, answer);
        }
    }

    // A kept connection breaks while libcurl has read of the body already, and sent nothing of it.
    void addRepeatedUploads() {
        const bool is_chance = random_.oneIn(3);
        if (is_chance) {
            host_.interrupted = random_.between(2, 3);
        } else {
            host_.headOnly = random_.between(1, 300 * millisecond);
        }
        add(request(begin_), reply(10));
        for (std::int64_t count = random_.between(1, 3); count > 0; --count) {
            begin_ += second;
            RequestScript upload = request(begin_);
            upload.verb = random_.oneIn(6) ? Verb::POST : Verb::PUT;
            upload.body = random_.between(1, 20000);
            if (upload.verb == Verb::PUT && random_.oneIn(4)) upload.bodyFile = 1;
            add(upload, reply(10));
            if (is_chance) addReset(begin_);
        }
    }

    void addReset(std::int64_t at) {
        TroubleScript reset;
        reset.at = reset.until = at;
        reset.kind = Trouble::reset;
        reset.host = host_.id;
        script_.troubles.push_back(reset);
    }

    // Its caller pauses in the instant in which body and trailers come: these wait until it goes on.
    void addHeldTrailers() {
        for (std::int64_t count = random_.between(2, 3); count > 0; --count) {
            const RequestScript held = request(begin_);
            ReplyScript answer = reply(random_.between(1, 2000));
            answer.framing = Framing::chunked;
            answer.trailers = random_.between(2, 3);
            add(held, answer);
            pause(held.id, arrivalOf(held, answer));
        }
    }

    void pause(std::int64_t id, std::int64_t at) {
        act(at, Deed::pause, id);
        act(at + random_.between(second / 2, 4 * second), Deed::resume, id);
    }

    // One byte less than there is, as much, and one more.
    void addLimits() {
        const std::int64_t body = random_.oneIn(3) ? random_.between(16000, 40000) : random_.between(2, 3000);
        const ReplyScript answer = reply(body);
        for (std::int64_t limit = body - 1; limit <= body + 1; ++limit) {
            RequestScript limited = request(begin_);
            limited.sizeLimit = limit;
            if (random_.oneIn(3)) limited.download = 1;
            add(limited, answer);
        }
    }

    // Slow enough to hear of it.
    void addResumed() {
        RequestScript resumed = request(begin_);
        ReplyScript answer = reply(random_.between(2, 30000));
        answer.range = Range::right;
        answer.piece = random_.between(answer.body / 10 + 1, answer.body + 200);
        answer.gap = random_.between(0, 2 * second);
        resumed.download = random_.oneIn(4) ? 4 : 3;
        resumed.present = random_.between(0, answer.body - 1) | 1;
        add(resumed, answer);
    }

    // Before the engine has set them up.
    void addEarlyPauses() {
        for (std::int64_t count = random_.between(1, 3); count > 0; --count) {
            RequestScript early = request(begin_);
            if (random_.oneIn(4)) early.own = 1;
            add(early, reply(random_.between(1, 3000)));
            pause(early.id, begin_);
        }
    }

    // Both inside of their bodies; each goes on when it is its turn.
    void addCommonPauses() {
        ReplyScript answer = reply(random_.between(500, 3000));
        answer.piece = answer.body / 4;
        answer.gap = 200 * millisecond;
        const std::int64_t at = begin_ + host_.connectDelay + answer.delay + 2 * answer.gap + random_.below(2);
        std::int64_t resumed = at + random_.between(0, 2 * second);
        for (std::int64_t count = random_.between(2, 3); count > 0; --count) {
            RequestScript paused = request(begin_);
            if (random_.oneIn(4)) paused.download = 1;
            add(paused, answer);
            act(at, Deed::pause, paused.id);
            act(resumed, Deed::resume, paused.id);
            resumed += random_.between(second / 2, 2 * second);
        }
    }

    // In the instant in which the engine has something to tell: the first of a body, or more of it a second later.
    void addEndOfExecutor() {
        RequestScript told = request(begin_);
        if (random_.oneIn(2)) told.download = 1;
        ReplyScript answer = reply(random_.between(3000, 6000));
        answer.piece = random_.between(500, 1000);
        answer.gap = random_.between(second, 2 * second);
        add(told, answer);
        act(arrivalOf(told, answer) + random_.below(3) * answer.gap, Deed::endExecutor, told.id);
    }

    // Some have just been started, some wait for their answer, some are inside of it.
    void addEndOfEngine() {
        const std::int64_t end = begin_ + random_.between(0, second);
        for (std::int64_t count = random_.between(1, 4); count > 0; --count) {
            RequestScript left = request(random_.between(begin_, end));
            if (random_.oneIn(3)) left.own = 1;
            ReplyScript answer = reply(random_.between(1000, 3000));
            answer.piece = 200;
            answer.gap = random_.between(1, 500 * millisecond);
            add(left, answer);
        }
        act(end, Deed::destroyEngine, next_ - 1);
    }

    void addFreshBehindUsed() {
        for (std::int64_t count = random_.between(2, 4); count > 0; --count) {
            RequestScript fresh = request(begin_);
            fresh.freshState = random_.below(2);
            add(fresh, reply(random_.between(0, 100)));
            begin_ += random_.between(0, second);
        }
    }

    // Nothing of them may stay, whatever the others do.
    void addFailedSetUps() {
        for (std::int64_t count = random_.between(1, 3); count > 0; --count) {
            RequestScript failed = request(begin_);
            if (random_.oneIn(2)) {
                failed.headers = 3;
            } else {
                failed.verb = Verb::PUT;
                failed.bodyFile = 2;
            }
            if (failed.headers == 3 && random_.oneIn(3)) failed.own = 1;
            add(failed, reply(10));
            if (random_.oneIn(2)) add(request(begin_), reply(random_.between(0, 100)));
        }
    }

    Script& script_;
    Random random_;
    HostScript host_;
    std::int64_t next_ = 0;
    std::int64_t begin_ = 0;
};

}  // namespace

void addKin(Script& script, std::uint64_t seed) {
    KinGenerator(script, seed).add();
}

}  // namespace kel::http::simulation
