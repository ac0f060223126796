// SPDX-License-Identifier: MIT
#include "client/Arrivals.h"

#include <limits>

#include "support/Deadline.h"

namespace kel::http::test {
namespace {

constexpr std::size_t Never = std::numeric_limits<std::size_t>::max();

}  // namespace

class Arrivals::Feed : public checksum::Digest {
 public:
    explicit Feed(Arrivals& arrivals) : arrivals_(arrivals) {}

    void do_update(ko::span<const unsigned char> data) override {
        inner_->do_update(data);
        arrivals_.note(data.size());
    }
    std::vector<unsigned char> done() override { return inner_->done(); }

 private:
    Arrivals& arrivals_;
    const std::unique_ptr<checksum::Digest> inner_ = checksum::sha256();
};

std::unique_ptr<checksum::Digest> Arrivals::digest() {
    return std::make_unique<Feed>(*this);
}

// No exception may pass through libcurl: the test's own wait tells when a stop is not ended.
void Arrivals::note(std::size_t bytes) {
    std::unique_lock lock(mutex_);
    bytes_ += bytes;
    stopped_ = bytes_ >= stop_at_;
    if (stopped_) stop_at_ = Never;
    changed_.notify_all();
    changed_.wait_for(lock, Deadline, [this] { return !stopped_; });
}

std::size_t Arrivals::bytes() const {
    const std::lock_guard lock(mutex_);
    return bytes_;
}

void Arrivals::await(std::size_t bytes) const {
    std::unique_lock lock(mutex_);
    awaitUntil(changed_, lock, std::to_string(bytes) + " bytes", [this, bytes] { return bytes_ >= bytes; });
}

void Arrivals::stopAt(std::size_t bytes) {
    const std::lock_guard lock(mutex_);
    stop_at_ = bytes;
}

void Arrivals::awaitStop() const {
    std::unique_lock lock(mutex_);
    awaitUntil(changed_, lock, "the piece to stop at", [this] { return stopped_; });
}

void Arrivals::goOn() {
    const std::lock_guard lock(mutex_);
    stopped_ = false;
    changed_.notify_all();
}

}  // namespace kel::http::test
