// SPDX-License-Identifier: MIT
#include "DemoFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace kel::http::demo {

DemoFolder::DemoFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "kel-http-demo-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("can not make a folder for files: " + name);
    path_ = name;
}

DemoFolder::~DemoFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

std::string DemoFolder::make(const std::string& name, std::size_t size) {
    std::string content(size, '\0');
    for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>(i * 7 + i / 256);
    std::string path = path_of(name);
    std::ofstream file(path, std::ios::binary);
    file << content;
    file.close();
    if (!file) throw std::runtime_error("can not write a file to send: " + path);
    return path;
}

std::string content_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace kel::http::demo
