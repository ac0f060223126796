// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <exception>
#include <new>
#include <thread>

namespace kel::http {

// What a caller is told when there was no memory for more. Short enough for a std::string that takes none.
constexpr const char* out_of_memory = "Out of memory";

// How long a step that found no memory waits for the next attempt.
constexpr std::chrono::milliseconds memory_pause(10);

// Takes `step` again and again until it has thrown no std::bad_alloc. For what can neither be left out nor be told to
// anybody, such as handing an outcome over. Anything else that it throws stops the process. Any thread, which is held up
// for as long as memory is short.
template <typename Step>
void untilMemorySuffices(const Step& step) noexcept {
    for (;;) {
        try {
            step();
            return;
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(memory_pause);
        } catch (...) {
            std::terminate();  // which tells what was thrown, as long as it is being handled
        }
    }
}

}  // namespace kel::http
