// Cancelling a request while its host name is still being looked up returns at once: the
// lookup is left to finish on its own thread.
//
// A getaddrinfo() defined here (and exported from this executable) comes before the C
// library's, so libcurl's resolver thread calls it: names under ".slow-lookup.test" take three
// seconds and then do not exist; every other name goes to the next definition.
#include <sagely/CancellationToken.h>
#include <sagely/CoachLLMError.h>

#include "llm/HttpTransport.h"

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <netdb.h>

#include <chrono>
#include <cstring>
#include <future>
#include <string_view>
#include <thread>

using namespace std::chrono_literals;

namespace {

constexpr std::string_view kSlowSuffix = ".slow-lookup.test";
std::atomic<int> g_slowLookupsStarted{0};

bool isSlowName(const char* node) {
    if (node == nullptr) return false;
    std::string_view name(node);
    return name.size() > kSlowSuffix.size() &&
           name.substr(name.size() - kSlowSuffix.size()) == kSlowSuffix;
}

}  // namespace

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** result) {
    if (isSlowName(node)) {
        ++g_slowLookupsStarted;
        std::this_thread::sleep_for(3s);
        return EAI_NONAME;
    }
    using Next = int (*)(const char*, const char*, const addrinfo*, addrinfo**);
    static const auto next = reinterpret_cast<Next>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return next(node, service, hints, result);
}

namespace {

TEST(HostNameLookupCancellation, StoppingDuringASlowLookupReturnsWithinAFewTensOfMilliseconds) {
    sagely::CancellationToken token;
    sagely::detail::HttpRequest request;
    request.url = "http://api.slow-lookup.test:8080/v1/chat";
    request.body = "{}";
    const int before = g_slowLookupsStarted.load();
    auto pending = std::async(std::launch::async, [&] { sagely::detail::post(request, token); });
    const auto waitStarted = std::chrono::steady_clock::now();
    while (g_slowLookupsStarted.load() == before &&
           std::chrono::steady_clock::now() - waitStarted < 5s) {
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_GT(g_slowLookupsStarted.load(), before) << "the lookup never started";
    std::this_thread::sleep_for(100ms);

    const auto stopped = std::chrono::steady_clock::now();
    token.requestStop();
    ASSERT_EQ(pending.wait_for(2500ms), std::future_status::ready)
        << "the request waited for the lookup";
    const auto latency = std::chrono::steady_clock::now() - stopped;
    EXPECT_THROW(pending.get(), sagely::CancelledError);
    // A regression to waiting for the lookup takes about 2.9 s; the bound leaves room for a
    // loaded machine.
    EXPECT_LT(latency, 900ms);
    std::printf("cancellation latency during a slow lookup: %.1f ms\n",
                std::chrono::duration<double, std::milli>(latency).count());
}

TEST(HostNameLookupCancellation, TheNextRequestIsNotHeldUpByTheAbandonedLookup) {
    sagely::CancellationToken token;
    sagely::detail::HttpRequest request;
    request.url = "http://other.slow-lookup.test/v1/chat";
    auto pending = std::async(std::launch::async, [&] { sagely::detail::post(request, token); });
    std::this_thread::sleep_for(150ms);
    token.requestStop();
    EXPECT_THROW(pending.get(), sagely::CancelledError);

    // A name the C library answers at once (an unused port: refused) fails promptly.
    sagely::detail::HttpRequest next;
    next.url = "http://localhost:1/";
    const auto started = std::chrono::steady_clock::now();
    EXPECT_THROW(sagely::detail::post(next, {}), sagely::TransportError);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
}

}  // namespace
