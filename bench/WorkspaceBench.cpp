// How long the workspace takes to show a long conversation, and what it costs in memory.
//
// A conversation of 500 mixed messages (questions, plain replies, procedure replies with
// Markdown, replies with cards, a few lessons) is saved for a coach's namespace; each run opens
// it in a new workspace view on Qt's offscreen platform and measures the time until the first
// full layout is done (goal: 250 ms or less), and the heap and resident memory the view adds.
// A second benchmark switches a visible workspace from an empty conversation to the long one.
// A third streams a 100 KB and a 1 MB reply into a workspace's reply bubble, 1 KB per update
// (what a fast stream brings in one ~30 ms announcement), letting the view lay out and paint
// after each; reported: the wall and CPU time and the memory of each, and the ratios 1 MB / 100 KB
// (linear: ~10; the CPU ratio is the one to read on a loaded machine).
#include "ConversationPane.h"
#include "support/TemporaryDirectory.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/SecretStore.h>
#include <sagely/StaticCoachContextProvider.h>
#include <sagely/ui/CoachWorkspaceView.h>
#include <sagely/ui/MessageBubble.h>
#include <sagely/ui/QtMainExecutor.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QScrollArea>
#include <QScrollBar>

#include <malloc.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <memory>
#include <string>

namespace {

using namespace sagely;
using ui::CoachBranding;
using ui::CoachWorkspaceView;

constexpr int kMessages = 500;

const char* const kProcedure =
    "Here is how to schedule it.Step 1: Open the flow in the editor.Step 2: Click **Schedule** "
    "in the toolbar.\n- Choose *every weekday*\n- Pick `8:00`\nStep 3: Press Save and check the "
    "status bar.";
const char* const kPlain =
    "Teach records what you do in other apps and turns it into a tile. Start it from the menu "
    "bar with **Start Teach**, do the task once, then stop and *save as tile*.\n\nRecorded "
    "passwords are never stored.";

CoachMessage mixedMessage(int index) {
    if (index % 2 == 0)
        return CoachMessage(CoachMessage::Role::user,
                            "Question number " + std::to_string(index / 2) + ": how do I do it?");
    if (index % 50 == 49)
        return CoachMessage(CoachMessage::Role::assistant, "Here is the guide.", std::nullopt,
                            CoachLessonLibrary::speechSetup());
    if (index % 10 == 3) {
        CoachCard card{CoachCard::Style::info,
                       "What Tessel sees",
                       "Live observation",
                       {{"Open project", {"Team Onboarding", "12 tiles"}}},
                       {"How do I grant Accessibility?"}};
        return CoachMessage(CoachMessage::Role::assistant, kPlain, card);
    }
    return CoachMessage(CoachMessage::Role::assistant, index % 4 == 1 ? kProcedure : kPlain);
}

struct Memory {
    std::size_t heap = mallinfo2().uordblks;
    std::size_t resident = [] {
        long pages = 0;
        long resident = 0;
        std::ifstream("/proc/self/statm") >> pages >> resident;
        return std::size_t(resident) * std::size_t(sysconf(_SC_PAGESIZE));
    }();
};

double megabytes(std::size_t after, std::size_t before) {
    return after > before ? double(after - before) / (1024.0 * 1024.0) : 0.0;
}

// Runs the event loop until no layout work is left.
void finishLayout(QWidget& view) {
    for (int round = 0; round < 4; ++round) {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    }
    (void)view.findChild<QScrollArea*>()->verticalScrollBar()->maximum();
}

class World {
public:
    World() {
        CoachSettingsStore::Options options;
        options.secretStore = std::make_shared<InMemorySecretStore>();
        options.storageRoot = storage.path();
        settings = std::make_unique<CoachSettingsStore>("bench", "bench", options);
        CoachConversation conversation("Five hundred messages");
        for (int i = 0; i < kMessages; ++i) conversation.append(mixedMessage(i));
        std::ofstream(settings->conversationURL("bench")) << encodeConversations({conversation});
        auto guide = std::make_shared<StaticCoachContextProvider>("Tessel", "", "# Guide");
        coach = std::make_unique<AICoach>(std::make_shared<ui::QtMainExecutor>(), guide,
                                          settings.get(), "bench");
    }

    sagely::testing::TemporaryDirectory storage;
    std::unique_ptr<CoachSettingsStore> settings;
    std::unique_ptr<AICoach> coach;
};

CoachBranding branding() {
    return CoachBranding("Tessel", "Tessel Coach", "Ask anything.", {"One", "Two"}, "Ask…",
                         "Add a key.");
}

void BM_OpenLongConversation(benchmark::State& state) {
    World world;
    if (world.coach->currentConversation().get()->messages().size() != kMessages) {
        state.SkipWithError("the conversation did not load");
        return;
    }
    double heap = 0;
    double resident = 0;
    double built = 0;
    for (auto _ : state) {
        const Memory before;
        const auto start = std::chrono::steady_clock::now();
        auto view = std::make_unique<CoachWorkspaceView>(*world.coach, branding());
        view->resize(1000, 800);
        view->show();
        finishLayout(*view);
        const auto elapsed = std::chrono::steady_clock::now() - start;
        state.SetIterationTime(std::chrono::duration<double>(elapsed).count());
        const Memory after;
        heap = megabytes(after.heap, before.heap);
        built = double(view->findChildren<ui::MessageBubble*>().size());
        resident = megabytes(after.resident, before.resident);
        view.reset();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    state.counters["messages"] = kMessages;
    state.counters["bubbles_built"] = built;
    state.counters["heap_added_MB"] = heap;
    state.counters["rss_added_MB"] = resident;
}
BENCHMARK(BM_OpenLongConversation)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(5);

void BM_SwitchToLongConversation(benchmark::State& state) {
    World world;
    const CoachConversation longOne = *world.coach->currentConversation().get();
    for (auto _ : state) {
        world.coach->newConversation();
        CoachWorkspaceView view(*world.coach, branding());
        view.resize(1000, 800);
        view.show();
        finishLayout(view);
        const auto start = std::chrono::steady_clock::now();
        world.coach->selectConversation(longOne);
        finishLayout(view);
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        world.coach->deleteConversation(*world.coach->conversations().get().begin());
    }
}
BENCHMARK(BM_SwitchToLongConversation)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

// A reply of Markdown paragraphs: lines of ~70 characters, a blank line every fifth line.
std::string replyText(std::size_t bytes) {
    std::string text;
    for (std::size_t line = 0; text.size() < bytes; ++line) {
        text += "Step " + std::to_string(line) +
                ": open the **flow** in the editor, then click `Schedule` once more.\n";
        if (line % 5 == 4) text += "\n";
    }
    text.resize(bytes);
    return text;
}

// CPU time of the calling thread: the shared machine's load does not count.
double threadCpuMilliseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return double(now.tv_sec) * 1e3 + double(now.tv_nsec) / 1e6;
}

struct StreamCost {
    double milliseconds = 0;
    double cpuMilliseconds = 0;
    double heapMB = 0;
    double residentMB = 0;
};

// Streams `bytes` into a fresh, visible workspace's reply bubble, 1 KB per update.
StreamCost streamIntoView(AICoach& coach, std::size_t bytes) {
    constexpr std::size_t kUpdate = 1024;
    const std::string reply = replyText(bytes);
    CoachWorkspaceView view(coach, branding());
    view.resize(1000, 800);
    view.show();
    finishLayout(view);
    auto* pane = view.findChild<ui::detail::ConversationPane*>();
    const Memory before;
    const auto start = std::chrono::steady_clock::now();
    const double cpuStart = threadCpuMilliseconds();
    for (std::size_t shown = kUpdate; shown < reply.size() + kUpdate; shown += kUpdate) {
        pane->setPartialReply(reply.substr(0, std::min(shown, reply.size())));
        QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents);
    }
    finishLayout(view);
    StreamCost cost;
    cost.cpuMilliseconds = threadCpuMilliseconds() - cpuStart;
    cost.milliseconds =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    const Memory after;
    cost.heapMB = megabytes(after.heap, before.heap);
    cost.residentMB = megabytes(after.resident, before.resident);
    pane->setPartialReply({});
    return cost;
}

void BM_StreamReplyIntoView(benchmark::State& state) {
    World world;
    world.coach->newConversation();
    StreamCost small;
    StreamCost large;
    for (auto _ : state) {
        small = streamIntoView(*world.coach, 100 * 1024);
        large = streamIntoView(*world.coach, 1024 * 1024);
        state.SetIterationTime((small.milliseconds + large.milliseconds) / 1000.0);
    }
    state.counters["ms_100KB"] = small.milliseconds;
    state.counters["ms_1MB"] = large.milliseconds;
    state.counters["cpu_ms_100KB"] = small.cpuMilliseconds;
    state.counters["cpu_ms_1MB"] = large.cpuMilliseconds;
    state.counters["ratio_1MB_100KB"] = large.milliseconds / small.milliseconds;
    state.counters["cpu_ratio_1MB_100KB"] = large.cpuMilliseconds / small.cpuMilliseconds;
    state.counters["heap_MB_100KB"] = small.heapMB;
    state.counters["heap_MB_1MB"] = large.heapMB;
    state.counters["rss_MB_100KB"] = small.residentMB;
    state.counters["rss_MB_1MB"] = large.residentMB;
}
BENCHMARK(BM_StreamReplyIntoView)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    AICoach::setConversationPersistenceAllowed([] { return true; });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
