// MainQueueExecutor — the MainExecutor of macOS hosts: post() hands the work to the main
// dispatch queue, which runs it in order on the main thread.
//
// Thread rules: post() may be called from any thread. A closure that throws is stopped at the
// queue boundary. Only macOS has a main dispatch queue; elsewhere this header declares nothing
// (hosts there use their toolkit's executor or ManualExecutor).
#pragma once

#include <sagely/Export.h>
#include <sagely/MainExecutor.h>

#if defined(__APPLE__)

namespace sagely {

class SAGELY_EXPORT MainQueueExecutor final : public MainExecutor {
public:
    void post(std::function<void()> work) override;
};

}  // namespace sagely

#endif
