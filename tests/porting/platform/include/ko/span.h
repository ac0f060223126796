// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace ko {

template <typename T>
class span {
 public:
    span(T* data, std::size_t size) : data_(data), size_(size) {}
    template <typename Container>
    span(const Container& container) : span(container.data(), container.size()) {}

    T* data() const { return data_; }
    std::size_t size() const { return size_; }

 private:
    T* data_;
    std::size_t size_;
};

}  // namespace ko
