// SPDX-License-Identifier: MIT
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <malloc.h>
#include <openssl/crypto.h>
#include <openssl/ssl.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "fixture/TestHost.h"
#include "kel-http/curl/Tls.h"
#include "sec/secure_store.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"
#include "support/TestCertificates.h"

namespace {

// What was wiped, as it was before. One thread.
std::vector<std::string>& wiped() {
    static std::vector<std::string> contents;
    return contents;
}

constexpr std::size_t BufferBytes = 4096;

// The key that must not be in memory that is given back, and how often it was.
const std::string* key_to_look_for = nullptr;
int keys_left = 0;

// What the secure store tells of its answers' lengths is wrong.
bool lengths_are_wrong = false;
// It throws what is no std::exception.
bool store_throws = false;

using StoreFunction = int (*)(int, unsigned char*, unsigned int*);

int askStore(StoreFunction real, int slot, unsigned char* buffer, unsigned int* length) {
    if (store_throws) throw slot;
    const int result = real(slot, buffer, length);
    if (lengths_are_wrong) *length = 1;
    return result;
}

void giveBack(void* memory) noexcept {
    if (key_to_look_for != nullptr && memory != nullptr) {
        const std::string_view content(static_cast<const char*>(memory), malloc_usable_size(memory));
        if (content.find(*key_to_look_for) != std::string_view::npos) ++keys_left;
    }
    std::free(memory);
}

}  // namespace

// The memory of all C++ code.
void* operator new(std::size_t size) {
    if (void* const memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept {
    giveBack(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    giveBack(memory);
}

int sec_get_deviceCert(int slot, unsigned char* buffer, unsigned int* length) {
    static auto* const real = reinterpret_cast<StoreFunction>(dlsym(RTLD_NEXT, "_Z18sec_get_deviceCertiPhPj"));
    return askStore(real, slot, buffer, length);
}
int sec_get_priv_key(int slot, unsigned char* buffer, unsigned int* length) {
    static auto* const real = reinterpret_cast<StoreFunction>(dlsym(RTLD_NEXT, "_Z16sec_get_priv_keyiPhPj"));
    return askStore(real, slot, buffer, length);
}

// In the place of OpenSSL's own, for callers outside of OpenSSL.
extern "C" void OPENSSL_cleanse(void* bytes, std::size_t size) {
    static auto* const real = reinterpret_cast<void (*)(void*, std::size_t)>(dlsym(RTLD_NEXT, "OPENSSL_cleanse"));
    if (size == BufferBytes) wiped().emplace_back(static_cast<const char*>(bytes), size);
    real(bytes, size);
}

namespace kel::http::test {
namespace {

using ::testing::Each;
using ::testing::SizeIs;
using ::testing::StartsWith;

class InterposedKeyWipeTest : public testing::Test {
 protected:
    InterposedKeyWipeTest() { wiped().clear(); }
    ~InterposedKeyWipeTest() override { lengths_are_wrong = store_throws = false; }

    CURLcode setUpWith(const std::string& certificate_bytes, const std::string& key_bytes) {
        writeWholeFile(directory.path("device_cert.der"), certificate_bytes);
        writeWholeFile(directory.path("device_key.der"), key_bytes);
        const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
        RequestConfig config;
        return tls::setMicToCtx(nullptr, context.get(), &config);
    }

    const TemporaryDirectory directory;
    const TestHost host{[this](ko::host::Settings& settings) { settings.secure_store_directory = directory.path(); }};
    const std::string device = TestCertificates::shared().device();
    const std::string certificate = readWholeFile(device + "/device_cert.der");
    const std::string key = readWholeFile(device + "/device_key.der");
};

TEST_F(InterposedKeyWipeTest, BufferOfTheKeyIsWipedWhateverBecomesOfIt) {
    EXPECT_EQ(setUpWith(certificate, key), CURLE_OK);
    const std::string other = readWholeFile(TestCertificates::shared().issueDevice("wipe", {}) + "/device_cert.der");
    EXPECT_EQ(setUpWith(other, key), CURLE_FAILED_INIT);
    EXPECT_THAT(wiped(), SizeIs(2));
    EXPECT_THAT(wiped(), Each(StartsWith(key)));
    // A key that breaks off.
    const std::string half = key.substr(0, key.size() / 2);
    EXPECT_EQ(setUpWith(certificate, half), CURLE_FAILED_INIT);
    ASSERT_THAT(wiped(), SizeIs(3));
    EXPECT_THAT(wiped().back(), StartsWith(half));
}

TEST_F(InterposedKeyWipeTest, LengthThatTheStoreTellsDoesNotMatter) {
    lengths_are_wrong = true;
    EXPECT_EQ(setUpWith(certificate, key), CURLE_OK);
}

TEST_F(InterposedKeyWipeTest, WhateverTheStoreThrowsEndsItsConnectionAlone) {
    store_throws = true;
    const std::unique_ptr<SSL_CTX, void (*)(SSL_CTX*)> context(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    RequestConfig config;
    EXPECT_EQ(tls::setupSSLCTXCallback(nullptr, context.get(), &config), CURLE_FAILED_INIT);
}

TEST_F(InterposedKeyWipeTest, NoKeyIsLeftInMemoryThatIsGivenBack) {
    writeWholeFile(directory.path("device_cert.der"), certificate);
    writeWholeFile(directory.path("device_key.der"), key);
    std::array<unsigned char, BufferBytes> buffer{};
    unsigned int length = BufferBytes;
    keys_left = 0;
    key_to_look_for = &key;
    const int result = sec_get_priv_key(0, buffer.data(), &length);
    key_to_look_for = nullptr;
    EXPECT_EQ(result, 0);
    EXPECT_EQ(keys_left, 0);
}

// The test above would pass as well if nobody looked.
TEST_F(InterposedKeyWipeTest, KeyInMemoryThatIsGivenBackIsNoticed) {
    keys_left = 0;
    key_to_look_for = &key;
    std::string(key + "and more").swap(*std::make_unique<std::string>());
    key_to_look_for = nullptr;
    EXPECT_GT(keys_left, 0);
}

}  // namespace
}  // namespace kel::http::test
