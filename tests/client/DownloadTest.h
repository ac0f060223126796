// SPDX-License-Identifier: MIT
#pragma once

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <string>

#include "checksum/Digest.h"
#include "fixture/ClientTest.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace kel::http::test {

// Bytes of every value, no two rows alike.
std::string pattern(std::size_t size);

// Makes a file of so many bytes, no two of its parts alike, without having all of them in memory. Its SHA-256.
std::string writeLargeFile(const std::string& path, std::size_t size);

// In lower-case hexadecimal. The first: of a whole file.
std::string sha256OfFile(const std::string& path);
std::string sha256Of(const std::string& bytes);

// The name of the file beside the target "f.bin" in which its data arrives.
testing::Matcher<std::string> isPart();

// A client that downloads to `target`, in a folder of its own.
class DownloadTest : public ClientTest {
 protected:
    explicit DownloadTest(Handler handler = Handler::inline_call) : ClientTest(handler) {}

    // Downloads to the target and waits until the engine has let go of it: the request goes then, and what it had
    // opened. The outcome is the only one, and of the kind that the name says.
    ResponseData response(const RequestConfig& config);
    ErrorData error(const RequestConfig& config);

    // Of a download that has been started.
    ResponseData responseOf(Client::RequestId id);
    ErrorData errorOf(Client::RequestId id);

    Client::RequestId startDownload(const RequestConfig& config);
    using ClientTest::startDownload;

    // Another client in the place of this one, whose downloads have such a checksum.
    void useDigest(const std::function<std::unique_ptr<checksum::Digest>()>& factory);

    RequestConfig resuming() const;
    RequestConfig keeping() const;

    std::string content() const { return readWholeFile(target); }

    const TemporaryDirectory directory;
    const std::string target = directory.path("f.bin");

 private:
    Recorder::Outcome onlyOutcomeOf(Client::RequestId id);
};

}  // namespace kel::http::test
