// Error — the root of the kit's exception hierarchy.
//
// Fallible calls of the kit throw classes derived from sagely::Error. The user-facing text of an
// error is its errorDescription(); what() returns the same text. Messages are stored in the
// std::runtime_error base, so copying an error never throws.
#pragma once

#include <sagely/Export.h>

#include <stdexcept>
#include <string>

namespace sagely {

class SAGELY_EXPORT Error : public std::runtime_error {
public:
    explicit Error(const std::string& description) : std::runtime_error(description) {}

    /// The text shown to the user for this error.
    std::string errorDescription() const { return what(); }
};

/// A JSON value did not have the form of the type being decoded. The message names the key path
/// of the offending value (for example "messages[3].role").
class SAGELY_EXPORT DecodingError : public Error {
public:
    using Error::Error;
};

}  // namespace sagely
