// Timestamp — a moment in time as seconds since 2001-01-01 00:00:00 UTC.
//
// That reference date is the one the kit's JSON files use: a timestamp is written as a bare
// number of seconds (a double) relative to it.
#pragma once

#include <sagely/Export.h>

#include <compare>

namespace sagely {

class SAGELY_EXPORT Timestamp {
public:
    /// Seconds between the Unix epoch (1970) and the reference date (2001).
    static constexpr double kReferenceDateUnixOffset = 978307200.0;

    constexpr Timestamp() = default;
    constexpr explicit Timestamp(double secondsSinceReferenceDate)
        : m_seconds(secondsSinceReferenceDate) {}

    /// The system clock read now.
    static Timestamp now();
    static constexpr Timestamp fromUnixSeconds(double unixSeconds) {
        return Timestamp(unixSeconds - kReferenceDateUnixOffset);
    }

    constexpr double secondsSinceReferenceDate() const { return m_seconds; }
    constexpr double unixSeconds() const { return m_seconds + kReferenceDateUnixOffset; }

    friend constexpr bool operator==(Timestamp, Timestamp) = default;
    friend constexpr auto operator<=>(Timestamp, Timestamp) = default;

private:
    double m_seconds = 0.0;
};

}  // namespace sagely
