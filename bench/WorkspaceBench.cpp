// How long the workspace takes to show a long conversation, and what it costs in memory.
//
// A conversation of 500 mixed messages (questions, plain replies, procedure replies with
// Markdown, replies with cards, a few lessons) is saved for a coach's namespace; each run opens
// it in a new workspace view on Qt's offscreen platform and measures the time until the first
// full layout is done (goal: 250 ms or less), and the heap and resident memory the view adds.
// A second benchmark switches a visible workspace from an empty conversation to the long one.
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
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <memory>

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
