// SPDX-License-Identifier: MIT
#include <openssl/evp.h>
#include <openssl/ssl.h>

#include <cstdarg>
#include <cstdlib>
#include <functional>
#include <future>
#include <random>
#include <string>

#include "certificate/certificate.h"
#include "checksum/Digest.h"
#include "ko/filesystem.h"
#include "ko/thread.h"
#include "ko/to_hex.h"
#include "logging/Logger.h"
#include "logging/tovanlog.h"
#include "sec/secure_store.h"
#include "tervo/platforminfo.h"
#include "uri/uri.h"

namespace {

constexpr std::string_view digits = "0123456789abcdef";

thread_local const char thread_marker = 0;  // has an address of its own in each thread

void free_text(void* /*context*/, void* text, CRYPTO_EX_DATA* /*data*/, int /*index*/, long /*argl*/, void* /*argp*/) {
    OPENSSL_free(text);
}

class Sha256 final : public checksum::Digest {
 public:
    void do_update(ko::span<const unsigned char> data) override {
        pieces_.append(reinterpret_cast<const char*>(data.data()), data.size());
    }

    std::vector<unsigned char> done() override {
        std::vector<unsigned char> bytes(32);
        EVP_Digest(pieces_.data(), pieces_.size(), bytes.data(), nullptr, EVP_sha256(), nullptr);
        pieces_.clear();
        return bytes;
    }

 private:
    std::string pieces_;
};

}  // namespace

std::unique_ptr<checksum::Digest> checksum::sha256() {
    return std::make_unique<Sha256>();
}

int certificate::sslctx_data_index() {
    static const int index = SSL_CTX_get_ex_new_index(0, nullptr, nullptr, nullptr, &free_text);
    return index;
}

bool certificate::ca_pem_exists(const std::string& /*name*/) {
    return false;
}

std::string certificate::ca_path(const std::string& /*name*/) {
    return {};
}

int sec_get_deviceCert(int /*slot*/, unsigned char* /*buffer*/, unsigned int* /*length*/) {
    return -1;
}

int sec_get_priv_key(int /*slot*/, unsigned char* /*buffer*/, unsigned int* /*length*/) {
    return -1;
}

std::string tervo::platforminfo::get_resource_filepath(const std::string& /*type*/) {
    return {};  // no folder that is this user's alone: cookies end with the process
}

bool tervo::platforminfo::is_release_build() {
    return true;
}

bool tervo::platforminfo::is_test_mode() {
    return false;
}

logging::Logger* logging::getLogger(const char* /*name*/, int /*group*/) {
    static Logger logger;
    return &logger;
}

void tovanlog_write(int /*severity*/, int /*channel*/, const char* /*text*/, std::size_t /*length*/) {}

void tovanlog_fatal(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::abort();
}

boost::filesystem::path ko::filesystem::unique_path(const boost::filesystem::path& pattern,
                                                    boost::system::error_code& ec) {
    ec.clear();
    std::random_device random;
    std::string name = pattern.string();
    for (char& character : name) {
        if (character == '%') character = digits[random() % digits.size()];
    }
    return name;
}

std::string ko::to_hex(span<const unsigned char> bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text += digits[bytes.data()[i] >> 4U];
        text += digits[bytes.data()[i] & 0x0FU];
    }
    return text;
}

ko::thread_id ko::this_thread::get_id() noexcept {
    return reinterpret_cast<thread_id>(&thread_marker);
}

ko::thread ko::thread::create_thread(const char* /*name*/, const attributes& /*attributes*/, thread_id& id,
                                     const std::function<void()>& body) {
    std::promise<thread_id> own_id;
    thread created;
    created.thread_ = std::thread([&own_id, body] {
        own_id.set_value(this_thread::get_id());
        body();
    });
    created.id_ = id = own_id.get_future().get();
    return created;
}

// Knows no more of URLs than "scheme://host:port/".
uri::uri::uri(const std::string& text) {
    const std::size_t scheme = text.find("://");
    const std::size_t begin = scheme == std::string::npos ? 0 : scheme + 3;
    host_ = text.substr(begin, text.find_first_of(":/?#", begin) - begin);
}
