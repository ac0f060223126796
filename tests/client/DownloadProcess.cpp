// SPDX-License-Identifier: MIT
#include <sched.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <set>

#include "fixture/ClientTest.h"
#include "support/Environment.h"
#include "support/Files.h"

// One process with an engine and one download, for tests that kill it, and for those about a real full disk.
//
//   download_process URL FOLDER [resume] [disk=OPTIONS] [old=TEXT] [full]
//
// Downloads to FOLDER/f. A disk is a small one of its own, mounted there for this process only: "size=65536". "old"
// makes the target first, "full" then takes all the room that is left.
//
// Prints "response STATUS" or "error FAILURE TEXT", then the files on the disk: "NAME BYTES".
namespace kel::http::test {
namespace {

struct Task {
    std::string url;
    std::string folder;
    std::string disk;
    std::string old;
    bool resume = false;
    bool full = false;

    std::string target() const { return folder + "/f"; }
};

Task readTask(char** arguments, int count) {
    Task task;
    task.url = arguments[1];
    task.folder = arguments[2];
    for (int i = 3; i < count; ++i) {
        const std::string word = arguments[i];
        if (word == "resume") task.resume = true;
        if (word == "full") task.full = true;
        if (word.compare(0, 5, "disk=") == 0) task.disk = word.substr(5);
        if (word.compare(0, 4, "old=") == 0) task.old = word.substr(4);
    }
    return task;
}

bool mountDisk(const Task& task) {
    return unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", task.folder.c_str(), "tmpfs", 0, task.disk.c_str()) == 0;
}

void fillDisk(const Task& task) {
    std::ofstream filler(task.folder + "/filler");
    const std::string page(4096, 'x');
    while (filler << page << std::flush) {
    }
}

void printFiles(const Task& task) {
    std::set<std::string> lines;
    for (const auto& file : std::filesystem::directory_iterator(task.folder)) {
        lines.insert(file.path().filename().string() + ' ' + std::to_string(file.file_size()));
    }
    for (const std::string& line : lines) std::cout << line << '\n';
}

Recorder::Outcome download(const Task& task) {
    RequestConfig config;
    config.url = task.url;
    config.resume = task.resume;
    Recorder recorder;
    RecordingExecutor executor;
    const Engine engine([](const std::function<void()>& completion) { completion(); });
    Client::RequestId id = NoRequestId;
    executor.run([&] {
        id = createClient(executor, *logging::getLogger("TestClient", 0))
                 ->start_download(config, task.target(), {}, recorder.onResponse(), recorder.onError(),
                                  recorder.onProgress());
    });
    return recorder.await(id);
}

}  // namespace
}  // namespace kel::http::test

int main(int argc, char** argv) {
    using namespace kel::http::test;
    if (argc < 3) return 2;
    clearProxyEnvironment();
    const Task task = readTask(argv, argc);
    if (!task.disk.empty() && !mountDisk(task)) {
        std::cout << "no disk: " << std::strerror(errno) << '\n';
        return 1;
    }
    if (!task.old.empty()) writeWholeFile(task.target(), task.old);
    if (task.full) fillDisk(task);

    const Recorder::Outcome outcome = download(task);
    if (outcome.response) std::cout << "response " << outcome.response->status << '\n';
    if (outcome.error) {
        std::cout << "error " << static_cast<int>(outcome.error->failure) << ' ' << outcome.error->message << '\n';
    }
    if (!task.disk.empty()) printFiles(task);
    return 0;
}
