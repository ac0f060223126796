// SPDX-License-Identifier: MIT
#include "checksum/Digest.h"

#include <openssl/evp.h>

#include <new>

#include "ko/assert.h"

namespace checksum {
namespace {

class Sha256 final : public Digest {
 public:
    Sha256() { start(); }

    void do_update(ko::span<const unsigned char> data) override {
        startAnew();
        const int updated = EVP_DigestUpdate(context_.get(), data.data(), data.size());
        KO_ASSERT(updated == 1);
    }

    std::vector<unsigned char> done() override {
        startAnew();
        std::vector<unsigned char> bytes(static_cast<std::size_t>(EVP_MD_size(EVP_sha256())));
        const int finished = EVP_DigestFinal_ex(context_.get(), bytes.data(), nullptr);
        KO_ASSERT(finished == 1);
        started_ = false;
        return bytes;
    }

 private:
    struct Release {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };

    // Not before somebody wants another checksum: beginning takes memory.
    void startAnew() {
        if (!started_) start();
    }

    void start() {
        if (!context_ || EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr) != 1) throw std::bad_alloc();
        started_ = true;
    }

    const std::unique_ptr<EVP_MD_CTX, Release> context_{EVP_MD_CTX_new()};
    bool started_ = false;
};

}  // namespace

Digest::~Digest() = default;

std::unique_ptr<Digest> sha256() {
    return std::make_unique<Sha256>();
}

}  // namespace checksum
