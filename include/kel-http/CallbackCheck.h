// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "kel-http/ErrorData.h"
#include "kel-http/ProgressData.h"
#include "kel-http/ResponseData.h"

// Tells, among the compiler's errors, which callback fits none of a Client's calls, or why they fit two. For Client.h.
namespace kel::http::detail {

// What the calls that return an id want, and what those that return a handle do.
template <typename Data>
using WithId = std::function<void(std::uint32_t, const Data&)>;
template <typename Data>
using WithoutId = std::function<void(const Data&)>;

// The calls, as far as callbacks decide which one is meant.
struct ClientCalls {
    // Without a body: nothing is called, the compiler is asked which one it would take.
    static void start(const WithId<ResponseData>&, const WithId<ErrorData>&);
    static void start(const WithoutId<ResponseData>&, const WithoutId<ErrorData>&);
    static void start(const WithId<ResponseData>&, const WithId<ErrorData>&, const WithId<ProgressData>&);
    static void start(const WithoutId<ResponseData>&, const WithoutId<ErrorData>&, const WithoutId<ProgressData>&);
};

// Whether the compiler takes one of them.
template <typename Void, typename... Callbacks>
struct NamesOneCall : std::false_type {};
template <typename... Callbacks>
struct NamesOneCall<std::void_t<decltype(ClientCalls::start(std::declval<Callbacks>()...))>, Callbacks...>
    : std::true_type {};

// What compiles without this check compiles with it: it steps in where the compiler would not know which call is meant. A
// number is not asked about: 0 and NULL are empty callbacks, but no longer so once they have been passed on.
template <typename... Callbacks>
using IfUnclear = std::enable_if_t<!NamesOneCall<void, Callbacks...>::value &&
                                       !(... || std::is_arithmetic_v<std::remove_reference_t<Callbacks>>),
                                   int>;

// How one callback can be called.
template <typename Callback, typename Data>
struct Fit {
    // With an id in front of the data, with data alone, in one of these ways, and in one alone.
    static constexpr bool with_id = std::is_convertible_v<Callback, WithId<Data>>;
    static constexpr bool without_id = std::is_convertible_v<Callback, WithoutId<Data>>;
    static constexpr bool any = with_id || without_id;
    static constexpr bool only_with_id = with_id && !without_id;
    static constexpr bool only_without_id = without_id && !with_id;
};

// Stands in for the progress of a plain request, and for one that is given as {}.
struct CalledEitherWay {
    // Takes everything.
    template <typename... Arguments>
    void operator()(Arguments&&... /*arguments*/) const {}
};

// Returned where nothing is started: as an id or a handle it adds no error of its own.
struct NothingStarted {
    // Becomes everything.
    template <typename Result>
    operator Result() const;
};

// The steps of refuse() stop the compiler with the name of each callback that has to change: one that fits nothing ...
template <typename R, typename E, typename P>
void refuseWhatFitsNoCall() {
    static_assert(
        R::any,
        "The response callback fits no call: let it take (Client::RequestId, const ResponseData&), as the others, "
        "for a call that returns an id, or (const ResponseData&) for one that returns a handle");
    static_assert(
        E::any,
        "The error callback fits no call: let it take (Client::RequestId, const ErrorData&), as the others, for a "
        "call that returns an id, or (const ErrorData&) for one that returns a handle");
    static_assert(
        P::any,
        "The progress callback fits no call: let it take (Client::RequestId, const ProgressData&), as the others, "
        "for a call that returns an id, or (const ProgressData&) for one that returns a handle");
}

// ... one that takes no id beside one that does ...
template <bool an_id_is_taken, typename R, typename E, typename P>
void refuseWhatTakesNoId() {
    static_assert(!an_id_is_taken || !R::only_without_id,
                  "The response callback takes no id, but another one does: let it take (Client::RequestId, const "
                  "ResponseData&), or the others no id");
    static_assert(!an_id_is_taken || !E::only_without_id,
                  "The error callback takes no id, but another one does: let it take (Client::RequestId, const "
                  "ErrorData&), or the others no id");
    static_assert(!an_id_is_taken || !P::only_without_id,
                  "The progress callback takes no id, but another one does: let it take (Client::RequestId, const "
                  "ProgressData&), or the others no id");
}

// ... or all of them, where nothing tells what they are meant for.
template <bool each_fits, bool they_differ>
void refuseWhatFitsTwoCalls() {
    static_assert(
        !each_fits || they_differ,
        "The callbacks fit two calls: write out what one of them takes, (Client::RequestId, const ResponseData&) "
        "for the call that returns an id, or (const ResponseData&) for the one that returns a handle");
}

// What Client calls for callbacks that fit none of its calls, or two.
template <typename Response, typename Error, typename Progress = CalledEitherWay>
NothingStarted refuse() {
    using R = Fit<Response, ResponseData>;
    using E = Fit<Error, ErrorData>;
    using P = Fit<Progress, ProgressData>;
    constexpr bool an_id_is_taken = R::only_with_id || E::only_with_id || P::only_with_id;
    constexpr bool none_is_taken = R::only_without_id || E::only_without_id || P::only_without_id;
    refuseWhatFitsNoCall<R, E, P>();
    refuseWhatTakesNoId<an_id_is_taken, R, E, P>();
    refuseWhatFitsTwoCalls<R::any && E::any && P::any, an_id_is_taken && none_is_taken>();
    return {};
}

}  // namespace kel::http::detail
