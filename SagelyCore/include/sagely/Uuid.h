// Uuid — a 128-bit identifier written in the canonical upper-case 8-4-4-4-12 form.
#pragma once

#include <sagely/Export.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace sagely {

class SAGELY_EXPORT Uuid {
public:
    /// A fresh random version-4 identifier.
    static Uuid random();

    /// Parses the canonical 8-4-4-4-12 hexadecimal form, case-insensitively. Anything else
    /// (wrong length, misplaced dashes, non-hex digits, braces) yields none.
    static std::optional<Uuid> parse(std::string_view text);

    /// The canonical form with upper-case hexadecimal digits.
    std::string toString() const;

    const std::array<std::uint8_t, 16>& bytes() const { return m_bytes; }

    friend bool operator==(const Uuid&, const Uuid&) = default;
    friend auto operator<=>(const Uuid&, const Uuid&) = default;

private:
    explicit Uuid(const std::array<std::uint8_t, 16>& bytes) : m_bytes(bytes) {}
    std::array<std::uint8_t, 16> m_bytes{};
};

}  // namespace sagely
