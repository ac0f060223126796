// SPDX-License-Identifier: MIT
#pragma once

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

#include "ToolError.h"

namespace kel::http::tool {

// An option that takes one of a few words, each of which stands for a value.
template <typename T>
using Choices = std::vector<std::pair<std::string, T>>;

template <typename T>
std::string words_of(const Choices<T>& choices) {
    std::string words;
    for (const auto& choice : choices) words += (words.empty() ? "" : "|") + choice.first;
    return words;
}

template <typename T, typename Value>
CLI::Option* add_choice(CLI::App& app, const char* name, Value& value, const Choices<T>& choices,
                        const char* description) {
    const auto choose = [name, &value, choices](const std::string& word) {
        for (const auto& choice : choices) {
            if (choice.first == word) return void(value = choice.second);
        }
        usage_error(fmt::format("{} '{}' is not one of {}", name, word, words_of(choices)));
    };
    return app.add_option_function<std::string>(name, choose, description)->option_text(words_of(choices));
}

}  // namespace kel::http::tool
