// SPDX-License-Identifier: MIT
#ifndef KO_SPAN_H
#define KO_SPAN_H

#include <cstddef>
#include <type_traits>
#include <utility>

namespace ko {

// A view of `size()` adjacent elements that somebody else owns. As cheap to copy as a pointer and a length.
//
// Ownership: none. The elements have to outlive the view; a temporary container is fine as an argument of a call.
template <typename T>
class span {
    // Elements may gain `const` on the way in, and nothing else: a pointer to derived objects is no array of bases.
    template <typename Container>
    using element_of = std::remove_pointer_t<decltype(std::declval<Container&>().data())>;
    template <typename Container>
    using if_container =
        std::enable_if_t<!std::is_same_v<std::remove_cv_t<std::remove_reference_t<Container>>, span> &&
                         std::is_convertible_v<element_of<Container> (*)[], T (*)[]> &&
                         std::is_convertible_v<decltype(std::declval<Container&>().size()), std::size_t>>;

 public:
    // No elements.
    constexpr span() noexcept = default;
    // `size` elements from `data` on.
    constexpr span(T* data, std::size_t size) noexcept : data_(data), size_(size) {}
    // From anything with data() and size(): std::vector, std::array, std::string, another span.
    template <typename Container, typename = if_container<Container>>
    constexpr span(Container&& container) noexcept : data_(container.data()), size_(container.size()) {}

    // The first element; null or not when there are none.
    constexpr T* data() const noexcept { return data_; }
    // Elements, not bytes.
    constexpr std::size_t size() const noexcept { return size_; }
    // Whether there are none.
    constexpr bool empty() const noexcept { return size_ == 0; }
    // For loops over all elements.
    constexpr T* begin() const noexcept { return data_; }
    constexpr T* end() const noexcept { return data_ + size_; }

 private:
    T* data_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace ko

#endif  // KO_SPAN_H
