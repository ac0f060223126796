// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ToolProcess.h"
#include "support/Files.h"
#include "support/ScriptedServer.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {

// Bytes without a pattern that a misplaced piece could fit into.
std::string noise(std::size_t size);

// Waits until the file has so many bytes. It has to be there already. Errors: DeadlineMissed.
void awaitSize(const std::string& path, std::size_t bytes);

// Downloads to `target`, whose part is `part`, from a server of which each answer is told.
class DownloadToolTest : public testing::Test {
 protected:
    // "download URL target OPTIONS...", on the server's "/file".
    std::vector<std::string> words(const std::vector<std::string>& options = {}) const;
    ToolResult download(const std::vector<std::string>& options = {}) const { return runTool(words(options)); }
    ToolResult download(const Reply& reply, const std::vector<std::string>& options = {});

    // What the server answers to one who has `from` bytes of `whole`.
    static Reply rest(const std::string& whole, std::size_t from);

    ScriptedServer server;
    TemporaryDirectory directory;
    const std::string target = directory.path("file");
    const std::string part = target + ".part";
};

}  // namespace kel::http::test
