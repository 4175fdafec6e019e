// RawValueTable — the raw strings of an enumeration whose cases are numbered 0, 1, 2… in
// declaration order, and the exact, case-sensitive way back.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace sagely::detail {

template <class E, std::size_t N>
struct RawValueTable {
    std::array<std::string_view, N> names;

    constexpr std::string_view rawValue(E value) const {
        return names[static_cast<std::size_t>(value)];
    }
    constexpr std::optional<E> fromRawValue(std::string_view raw) const {
        for (std::size_t i = 0; i < N; ++i)
            if (names[i] == raw) return static_cast<E>(i);
        return std::nullopt;
    }
};

}  // namespace sagely::detail
