// The text a streaming request has received and the main thread has not yet taken, passed from
// the request's worker thread (which adds to it) to the main thread (which shows it and, on
// Stop, keeps it). Only what is not yet taken is held here: a reply may be tens of megabytes,
// and the main thread already holds what it has shown. The main thread hears of new text
// through one post at a time, at most one per interval, however many pieces arrive meanwhile;
// the last piece is announced within an interval too.
#pragma once

#include <sagely/MainExecutor.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>

namespace sagely::detail {

class PartialReply {
public:
    /// `announce` is posted to `executor` (it runs on the main thread) when text was added.
    PartialReply(std::shared_ptr<MainExecutor> executor, std::function<void()> announce,
                 std::chrono::milliseconds interval = std::chrono::milliseconds(30));
    ~PartialReply();
    PartialReply(const PartialReply&) = delete;
    PartialReply& operator=(const PartialReply&) = delete;

    /// Worker thread.
    void add(std::string_view piece);
    /// Ends the announcing; pieces added later are kept but not announced. Never called from
    /// the main thread: it waits for an announcement being posted.
    void close();
    /// Main thread: the text added since the last call (all of it on the first call).
    std::string takeAdded();

private:
    void announceLoop();

    std::shared_ptr<MainExecutor> m_executor;
    std::function<void()> m_announce;
    std::chrono::milliseconds m_interval;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::string m_added;  // not yet taken
    bool m_unannounced = false;
    bool m_closed = false;
    std::thread m_announcer;  // started with the first piece
};

}  // namespace sagely::detail
