// Saving and loading a history through ConversationFile: conversations of 500 messages, 4 of
// them (about 1 MB) and 100 (about 25 MB), the benchmarks' argument. The coach saves after every
// message on the main thread, so the save is a hot path. Besides the times, the load reports how
// much memory it needed on top of what was in use before, as a multiple of the file size: the peak
// of resident memory (pages really touched) and the peak of heap bytes allocated (an upper bound:
// parsers reserve buffers sized for the worst case and touch only part of them).
#include <sagely/ConversationFile.h>

#include "support/TemporaryDirectory.h"

#include <benchmark/benchmark.h>

#include <malloc.h>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <string>
#include <vector>

// ---- Heap accounting: every operator new/delete of the process goes through these. ----------

namespace {

std::atomic<long long> g_inUse{0};
std::atomic<long long> g_peak{0};

void noteAllocated(std::size_t size) {
    long long now = g_inUse.fetch_add(static_cast<long long>(size)) + static_cast<long long>(size);
    long long peak = g_peak.load();
    while (now > peak && !g_peak.compare_exchange_weak(peak, now)) {
    }
}

// The size travels in front of the block so that delete can account for it.
constexpr std::size_t kHeader = alignof(std::max_align_t);

void* allocate(std::size_t size) {
    void* block = std::malloc(size + kHeader);
    if (!block) throw std::bad_alloc();
    *static_cast<std::size_t*>(block) = size;
    noteAllocated(size);
    return static_cast<char*>(block) + kHeader;
}

void release(void* pointer) noexcept {
    if (!pointer) return;
    void* block = static_cast<char*>(pointer) - kHeader;
    g_inUse.fetch_sub(static_cast<long long>(*static_cast<std::size_t*>(block)));
    std::free(block);
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) {
    std::size_t align = std::max(static_cast<std::size_t>(alignment), kHeader);
    void* block = std::aligned_alloc(align, ((size + align + align - 1) / align) * align);
    if (!block) throw std::bad_alloc();
    char* user = static_cast<char*>(block) + align;
    reinterpret_cast<std::size_t*>(user)[-1] = size;
    reinterpret_cast<std::size_t*>(user)[-2] = align;
    noteAllocated(size);
    return user;
}

void releaseAligned(void* pointer) noexcept {
    if (!pointer) return;
    char* user = static_cast<char*>(pointer);
    std::size_t size = reinterpret_cast<std::size_t*>(user)[-1];
    std::size_t align = reinterpret_cast<std::size_t*>(user)[-2];
    g_inUse.fetch_sub(static_cast<long long>(size));
    std::free(user - align);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocateAligned(size, alignment);
}
void operator delete(void* pointer) noexcept {
    release(pointer);
}
void operator delete[](void* pointer) noexcept {
    release(pointer);
}
void operator delete(void* pointer, std::size_t) noexcept {
    release(pointer);
}
void operator delete[](void* pointer, std::size_t) noexcept {
    release(pointer);
}
void operator delete(void* pointer, std::align_val_t) noexcept {
    releaseAligned(pointer);
}
void operator delete[](void* pointer, std::align_val_t) noexcept {
    releaseAligned(pointer);
}
void operator delete(void* pointer, std::size_t, std::align_val_t) noexcept {
    releaseAligned(pointer);
}
void operator delete[](void* pointer, std::size_t, std::align_val_t) noexcept {
    releaseAligned(pointer);
}

// ---- The history --------------------------------------------------------------------------

namespace {

using sagely::CoachConversation;
using sagely::CoachMessage;

constexpr int kSmall = 4;
constexpr int kLarge = 100;
constexpr int kMessagesPerConversation = 500;

// About 400 characters of ordinary reply text, varied per message, with the escapes a real
// reply has (quotes, line breaks) and some non-ASCII text.
std::string messageText(int conversation, int message) {
    std::string text = "Step " + std::to_string(message % 9 + 1) +
                       ": Open **Preferences \u2192 Speech** and choose \"Whisper\" (offline) for "
                       "conversation " +
                       std::to_string(conversation) + ".\n";
    while (text.size() < 400)
        text += "Then press Save; the change applies to the next recording at once. ";
    return text;
}

std::vector<CoachConversation> makeHistory(int count) {
    std::vector<CoachConversation> list;
    list.reserve(count);
    for (int c = 0; c < count; ++c) {
        CoachConversation conversation("Conversation " + std::to_string(c));
        for (int m = 0; m < kMessagesPerConversation; ++m)
            conversation.append(
                CoachMessage(m % 2 ? CoachMessage::Role::assistant : CoachMessage::Role::user,
                             messageText(c, m)));
        list.push_back(std::move(conversation));
    }
    return list;
}

const std::vector<CoachConversation>& history(int count) {
    static const std::vector<CoachConversation> small = makeHistory(kSmall);
    static const std::vector<CoachConversation> large = makeHistory(kLarge);
    return count == kSmall ? small : large;
}

// Resident memory in bytes from /proc/self/status ("VmRSS" now, "VmHWM" its peak).
long long statusBytes(const std::string& field) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(field + ":", 0) == 0)
            return std::atoll(line.c_str() + field.size() + 1) * 1024;
    return -1;
}

// Makes the peak of resident memory start again from what is resident now.
bool resetResidentPeak() {
    std::ofstream clearRefs("/proc/self/clear_refs");
    clearRefs << "5";
    clearRefs.flush();
    return static_cast<bool>(clearRefs);
}

// One load, measured on its own: resident bytes it added at its peak.
double residentPeakOfOneLoad(const std::filesystem::path& file) {
    long long before = statusBytes("VmRSS");
    if (!resetResidentPeak() || before < 0) return -1;
    std::vector<CoachConversation> loaded = sagely::ConversationFile::load(file);
    long long peak = statusBytes("VmHWM");
    benchmark::DoNotOptimize(loaded.data());
    return static_cast<double>(peak - before);
}

struct BenchFolder {
    sagely::testing::TemporaryDirectory folder;
    std::filesystem::path file = folder.path() / "main-conversations.json";
};

void BM_SaveHistory(benchmark::State& state) {
    const auto& conversations = history(static_cast<int>(state.range(0)));
    BenchFolder place;
    for (auto _ : state) {
        if (!sagely::ConversationFile::save(place.file, conversations))
            state.SkipWithError("save failed");
    }
    double bytes = static_cast<double>(std::filesystem::file_size(place.file));
    state.counters["file_MB"] = bytes / 1e6;
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

void BM_LoadHistory(benchmark::State& state) {
    const auto count = static_cast<std::size_t>(state.range(0));
    BenchFolder place;
    if (!sagely::ConversationFile::save(place.file, history(static_cast<int>(count))))
        state.SkipWithError("no file");
    double bytes = static_cast<double>(std::filesystem::file_size(place.file));
    double residentPeak = residentPeakOfOneLoad(place.file);
    double peakExtra = 0;
    for (auto _ : state) {
        long long before = g_inUse.load();
        g_peak.store(before);
        std::vector<CoachConversation> loaded = sagely::ConversationFile::load(place.file);
        peakExtra = std::max(peakExtra, static_cast<double>(g_peak.load() - before));
        if (loaded.size() != count) state.SkipWithError("load failed");
        state.PauseTiming();
        loaded = {};  // freeing half a million messages is not part of the load
        state.ResumeTiming();
    }
    state.counters["file_MB"] = bytes / 1e6;
    state.counters["peak_rss_MB"] = residentPeak / 1e6;
    state.counters["peak_rss_x_file"] = residentPeak / bytes;
    state.counters["peak_heap_MB"] = peakExtra / 1e6;
    state.counters["peak_heap_x_file"] = peakExtra / bytes;
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
}

BENCHMARK(BM_SaveHistory)->Arg(kSmall)->Arg(kLarge)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_LoadHistory)->Arg(kSmall)->Arg(kLarge)->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

int main(int argc, char** argv) {
    // Fixed malloc thresholds: large blocks are always mapped and unmapped, and freed memory is
    // returned, so resident memory measures what a load really holds.
    mallopt(M_MMAP_THRESHOLD, 128 * 1024);
    mallopt(M_TRIM_THRESHOLD, 128 * 1024);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
