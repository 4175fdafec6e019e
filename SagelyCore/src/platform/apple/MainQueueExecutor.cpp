#include <sagely/MainQueueExecutor.h>

#include <dispatch/dispatch.h>

#include <memory>

namespace sagely {
namespace {

// The queue calls this C function with the context given to dispatch_async_f; it owns the
// closure from here on. Nothing may unwind into the dispatch machinery.
void runPostedWork(void* context) noexcept {
    std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(context));
    try {
        if (*work) (*work)();
    } catch (...) {
    }
}

}  // namespace

void MainQueueExecutor::post(std::function<void()> work) {
    auto* context = new std::function<void()>(std::move(work));
    dispatch_async_f(dispatch_get_main_queue(), context, &runPostedWork);
}

}  // namespace sagely
