// Log — where the kit writes its diagnostic lines.
//
// Every line starts with "[Sagely] ". The default sink writes the line and a line feed to standard
// error. A host may replace the sink (for example to route lines into its own logging); a sink
// that throws is ignored. Thread-safe.
#pragma once

#include <sagely/Export.h>

#include <functional>
#include <string>
#include <string_view>

namespace sagely {

using LogSink = std::function<void(std::string_view line)>;

/// Writes "[Sagely] " + message to the current sink.
SAGELY_EXPORT void log(std::string_view message);

/// Replaces the sink; an empty function restores the default (standard error). Returns the
/// previous sink.
SAGELY_EXPORT LogSink setLogSink(LogSink sink);

}  // namespace sagely
