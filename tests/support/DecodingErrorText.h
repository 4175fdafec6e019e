// The message of the DecodingError a decoding call throws, for exact comparisons in tests.
#pragma once

#include <sagely/Error.h>

#include <string>

namespace sagely::testing {

/// The DecodingError's text; a marker when the call throws none.
template <class F>
std::string decodingError(F&& decode) {
    try {
        decode();
    } catch (const sagely::DecodingError& error) {
        return error.what();
    }
    return "<no DecodingError>";
}

}  // namespace sagely::testing
