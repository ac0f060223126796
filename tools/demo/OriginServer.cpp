// SPDX-License-Identifier: MIT
#include "OriginServer.h"

#include <fmt/format.h>
#include <httplib.h>
#include <sys/socket.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>
#include <utility>

#include "checksum/Digest.h"
#include "ko/to_hex.h"

namespace kel::http::demo {
namespace {

using Json = nlohmann::ordered_json;

// One thread serves one connection, as long as that lasts.
constexpr std::size_t most_connections = 256;
constexpr int listen_backlog = 512;
constexpr std::size_t piece_bytes = 65536;

Json content_of(const std::string& bytes) {
    return {{"length", bytes.size()}, {"sha256", sha256_of(bytes)}};
}

Json parts_of(const httplib::Request& request) {
    Json parts = Json::object();
    for (const auto& [name, part] : request.files) {
        parts[name] = {{"file_name", part.filename}, {"content_type", part.content_type}};
        parts[name].update(content_of(part.content));
    }
    return parts;
}

void echo(const httplib::Request& request, httplib::Response& response) {
    const std::string type = request.get_header_value("Content-Type");
    Json arrived = {{"method", request.method}, {"content_type", type.substr(0, type.find(';'))}};
    if (request.is_multipart_form_data()) {
        arrived["parts"] = parts_of(request);
    } else {
        arrived.update(content_of(request.body));
    }
    response.set_content(arrived.dump(), "application/json");
}

void redirect(const httplib::Request& request, httplib::Response& response) {
    const int remaining = std::stoi(request.matches[1].str());
    if (remaining == 0) {
        response.set_content("arrived", "text/plain");
    } else {
        response.set_redirect(fmt::format("/redirect/{}", remaining - 1));
    }
}

// No two places look alike: a piece that is lost, doubled or misplaced shows in the checksum.
std::string make_image() {
    std::string image(OriginServer::image_bytes, '\0');
    for (std::size_t place = 0; place < image.size(); place += sizeof(std::uint64_t)) {
        const std::uint64_t word = (std::uint64_t{place} + 1) * 0x9E3779B97F4A7C15U;
        std::memcpy(&image[place], &word, sizeof word);
    }
    return image;
}

}  // namespace

struct OriginServer::Impl {
    void route();
    void bind();
    void send_image(httplib::Response& response);
    void stall();
    void end();

    const std::string image = make_image();
    httplib::Server server;
    int port = 0;
    std::thread thread;
    std::mutex mutex;
    std::condition_variable changed;
    bool ending = false;
    std::function<void()> stall_callback = [] {};
};

void OriginServer::Impl::route() {
    server.Get("/echo", echo);
    server.Post("/echo", echo);
    server.Put("/echo", echo);
    server.Patch("/echo", echo);
    server.Delete("/echo", echo);
    server.Get(R"(/redirect/(\d))", redirect);
    server.Get("/stall", [this](const httplib::Request&, httplib::Response&) { stall(); });
    server.Get("/image", [this](const httplib::Request&, httplib::Response& response) { send_image(response); });
}

// The server library asks for the part that the request names.
void OriginServer::Impl::send_image(httplib::Response& response) {
    const auto send = [this](std::size_t begin, std::size_t length, httplib::DataSink& sink) {
        return sink.write(&image[begin], std::min(length, piece_bytes));
    };
    response.set_header("Accept-Ranges", "bytes");
    response.set_content_provider(image.size(), "application/octet-stream", send);
}

void OriginServer::Impl::bind() {
    server.new_task_queue = [] { return new httplib::ThreadPool(most_connections); };
    server.set_tcp_nodelay(true);  // head and body go out in two pieces; the second must not wait for an answer
    int descriptor = -1;
    server.set_socket_options([&descriptor](int created) { descriptor = created; });
    port = server.bind_to_any_port("127.0.0.1");
    if (port <= 0) throw std::runtime_error("the demonstration's server found no free port on 127.0.0.1");
    // The server library lets 5 connections wait; with 200 at once the others would be a second late.
    listen(descriptor, listen_backlog);
}

void OriginServer::Impl::stall() {
    std::unique_lock<std::mutex> lock(mutex);
    stall_callback();
    changed.wait(lock, [this] { return ending; });
}

void OriginServer::Impl::end() {
    const std::lock_guard<std::mutex> lock(mutex);
    ending = true;
    changed.notify_all();
}

OriginServer::OriginServer() : impl_(std::make_unique<Impl>()) {
    impl_->route();
    impl_->bind();
    impl_->thread = std::thread([this] { impl_->server.listen_after_bind(); });
    while (!impl_->server.is_running()) std::this_thread::yield();  // only a running server can be stopped
}

OriginServer::~OriginServer() {
    impl_->end();
    impl_->server.stop();
    impl_->thread.join();
}

std::string OriginServer::url(const std::string& path) const {
    return fmt::format("http://127.0.0.1:{}{}", impl_->port, path);
}

std::string OriginServer::image_checksum() const {
    return sha256_of(impl_->image);
}

void OriginServer::on_stall(std::function<void()> callback) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->stall_callback = std::move(callback);
}

std::string sha256_of(const std::string& bytes) {
    const auto digest = checksum::sha256();
    digest->do_update({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
    return ko::to_hex(digest->done());
}

}  // namespace kel::http::demo
