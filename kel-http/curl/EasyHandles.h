// SPDX-License-Identifier: MIT
#pragma once

#include <curl/curl.h>

#include <array>
#include <cstddef>
#include <memory>

namespace kel::http {

struct RequestConfig;

// Its progress is switched off: cleaning up may otherwise report once more for a transfer that has ended.
struct EasyEnd {
    void operator()(CURL* easy) const noexcept {
        curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 1L);
        curl_easy_cleanup(easy);
    }
};
using EasyHandle = std::unique_ptr<CURL, EasyEnd>;

// libcurl's easy handles, some of which are kept for the next transfer: to make one and to free it again is a tenth of what
// a small request costs.
//
// A kept handle is as good as new. It is wiped when its transfer is over, so that it borrows nothing meanwhile; what
// libcurl does not wipe, the cookies and what is shared, TLS sessions among it, is taken out first.
//
// Engine thread; made and cleared by the engine's owner while that thread is not running.
class EasyHandles {
 public:
    // More are freed at once. Each is a few KiB.
    static constexpr std::size_t most_kept = 16;
    // libcurl holds on to the last answer's header lines, and to the parts of the URL, until the next transfer. A handle
    // with more than so many bytes of either is freed.
    static constexpr std::size_t most_held_bytes = 16384;

    // With a libcurl of this version, by default the one that the process runs with.
    explicit EasyHandles(unsigned int libcurl_version = curl_version_info(CURLVERSION_NOW)->version_num);

    // Whether this request's handle may serve others before and after it. Who asks for a state of its own, decides whom
    // to trust, names a host of its own or resumes a download has a handle of its own as well.
    static bool mayServeOthers(const RequestConfig& config);

    // One without options. Throws std::bad_alloc.
    EasyHandle take(bool may_serve_others);

    // Keeps one whose transfer is complete, removed from the multi handle, for the next; not when it took several requests,
    // for a redirect or a challenge, and not while memory is short, or may be.
    void giveBack(EasyHandle easy) noexcept;

    std::size_t size() const { return count; }
    void clear() noexcept;

 private:
    const bool canWipe;
    std::array<EasyHandle, most_kept> kept;
    std::size_t count = 0;
};

}  // namespace kel::http
