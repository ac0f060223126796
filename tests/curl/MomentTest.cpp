// SPDX-License-Identifier: MIT
#include "curl/MomentTest.h"

namespace kel::http::test {
namespace {

Reply halves() {
    return Reply(200).body("first half").stallBeforeEnd("second half");
}

std::string nameOf(Moment moment) {
    switch (moment) {
        case Moment::queued:
            return "WhileQueued";
        case Moment::connecting:
            return "WhileConnecting";
        case Moment::sending:
            return "WhileSending";
        case Moment::headers_awaited:
            return "WhileAwaitingHeaders";
        case Moment::inside_headers:
            return "InsideHeaders";
        case Moment::inside_body:
            return "InsideTheBody";
        case Moment::paused:
            return "WhilePaused";
    }
    return {};
}

}  // namespace

std::string nameOf(const testing::TestParamInfo<MomentAndHandler>& info) {
    const bool posting = std::get<Handler>(info.param) == Handler::posting;
    return nameOf(std::get<Moment>(info.param)) + (posting ? "WithAPostingHandler" : "WithAnInlineHandler");
}

RecordingRequestPtr MomentTest::reach() {
    switch (moment()) {
        case Moment::queued: {
            server.enqueue(Reply(200).body(FirstHalf).body(SecondHalf));
            hold_.emplace(engine());
            return run(get());
        }
        case Moment::connecting: {
            nobody_.emplace(SilentListener::Connects::Hang);
            RequestConfig config;
            config.url = nobody_->url();
            RecordingRequestPtr made = run(config);
            drain();
            return made;
        }
        case Moment::sending: {
            server.enqueue(Reply(200).body(FirstHalf).body(SecondHalf).stallBeforeRequestBody());
            RequestConfig config = get();
            config.method = Method::PUT;
            config.body.assign(16U << 20U, 'x');
            RecordingRequestPtr made = run(config);
            server.awaitHeaderBlocks(1);
            return made;
        }
        case Moment::headers_awaited: {
            RecordingRequestPtr made = run(get());
            server.awaitRequests(1);
            return made;
        }
        case Moment::inside_headers:
            return runAndAwait(Reply(200).body(FirstHalf).body(SecondHalf).stallInsideHeaders(),
                               "header HTTP/1.1 200 OK");
        case Moment::inside_body:
            return runAndAwait(halves(), "data 10");
        case Moment::paused: {
            RecordingRequestPtr made = runAndAwait(halves(), "data 10");
            made->pauseRequest();
            drain();
            return made;
        }
    }
    return nullptr;
}

RecordingRequestPtr MomentTest::runAndAwait(const Reply& reply, const std::string& event) {
    server.enqueue(reply);
    RecordingRequestPtr made = run(get());
    made->hooks.await(event);
    return made;
}

void MomentTest::letGo() {
    if (moment() == Moment::queued) return hold_.reset();
    if (moment() == Moment::headers_awaited) return server.enqueue(Reply(200).body(FirstHalf).body(SecondHalf));
    server.release();
}

}  // namespace kel::http::test
