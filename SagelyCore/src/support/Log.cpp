#include <sagely/Log.h>

#include <cstdio>
#include <mutex>
#include <string>

namespace sagely {
namespace {

std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}

LogSink& currentSink() {
    static LogSink sink;
    return sink;
}

void writeToStandardError(std::string_view line) {
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
}

}  // namespace

void log(std::string_view message) {
    std::string line = "[Sagely] ";
    line.append(message);
    LogSink sink;
    {
        std::lock_guard lock(sinkMutex());
        sink = currentSink();
    }
    if (!sink) {
        writeToStandardError(line);
        return;
    }
    try {
        sink(line);
    } catch (...) {
        // A failing sink must not take the caller down; the line is dropped.
    }
}

LogSink setLogSink(LogSink sink) {
    std::lock_guard lock(sinkMutex());
    LogSink previous = std::move(currentSink());
    currentSink() = std::move(sink);
    return previous;
}

}  // namespace sagely
