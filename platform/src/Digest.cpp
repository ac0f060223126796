// SPDX-License-Identifier: MIT
#include "checksum/Digest.h"

#include <openssl/evp.h>

#include "ko/assert.h"

namespace checksum {
namespace {

class Sha256 final : public Digest {
 public:
    Sha256() : context_(EVP_MD_CTX_new()) {
        KO_ASSERT(context_ != nullptr);
        start();
    }
    ~Sha256() override { EVP_MD_CTX_free(context_); }
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    void do_update(ko::span<const unsigned char> data) override {
        const int updated = EVP_DigestUpdate(context_, data.data(), data.size());
        KO_ASSERT(updated == 1);
    }

    std::vector<unsigned char> done() override {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(EVP_MD_size(EVP_sha256())));
        const int finished = EVP_DigestFinal_ex(context_, bytes.data(), nullptr);
        KO_ASSERT(finished == 1);
        start();
        return bytes;
    }

 private:
    void start() {
        const int started = EVP_DigestInit_ex(context_, EVP_sha256(), nullptr);
        KO_ASSERT(started == 1);
    }

    EVP_MD_CTX* const context_;
};

}  // namespace

Digest::~Digest() = default;

std::unique_ptr<Digest> sha256() {
    return std::make_unique<Sha256>();
}

}  // namespace checksum
