// What every fuzzer shares: the input as text, and a check that fails loudly (libFuzzer reports
// an abort as a finding, with the input that caused it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace sagely::fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

inline void require(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

}  // namespace sagely::fuzz
