// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <tuple>

#include "fixture/EngineHold.h"
#include "fixture/EngineTest.h"
#include "support/SilentListener.h"

namespace kel::http::test {

// The moments in a transfer's life at which something may interfere with it.
enum class Moment {
    queued,           // the engine has not taken it up yet
    connecting,       // nobody accepts the connection
    sending,          // the server has stopped reading the body
    headers_awaited,  // the request has been read
    inside_headers,   // the status line is there
    inside_body,      // half of the body is there
    paused,           // the same, and the request is paused
};

// Each combination of a moment and a way to run completions.
using MomentAndHandler = std::tuple<Moment, Handler>;

std::string nameOf(const testing::TestParamInfo<MomentAndHandler>& info);

inline auto inEveryWay(std::initializer_list<Moment> moments) {
    return testing::Combine(testing::ValuesIn(moments), testing::Values(Handler::inline_call, Handler::posting));
}

// A transfer held up at the test's moment.
class MomentTest : public EngineTest, public testing::WithParamInterface<MomentAndHandler> {
 protected:
    static constexpr const char* FirstHalf = "first half";
    static constexpr const char* SecondHalf = "second half";

    MomentTest() { startEngine(std::get<Handler>(GetParam())); }

    // Starts a request and waits until it has come to its moment.
    RecordingRequestPtr reach();
    // Ends the hold-up: but for `connecting`, the server answers with both halves.
    void letGo();

    Moment moment() const { return std::get<Moment>(GetParam()); }

 private:
    RecordingRequestPtr runAndAwait(const Reply& reply, const std::string& event);

    std::optional<EngineHold> hold_;
    std::optional<SilentListener> nobody_;
};

}  // namespace kel::http::test
