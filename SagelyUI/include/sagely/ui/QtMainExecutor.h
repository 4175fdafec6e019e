// QtMainExecutor — the kit's MainExecutor on a Qt event loop.
//
// post() may be called from any thread; the work runs, in posting order, on the thread of the
// executor's receiver (the thread that constructed the executor, normally the GUI thread), the
// next time that thread's event loop runs. Work posted after the executor is gone, or after the
// receiver's thread has stopped its loop, is dropped. An exception thrown by the work is logged
// and never reaches Qt's event loop.
//
// Thread rules: construct it on the GUI thread; post() from anywhere.
#pragma once

#include <sagely/MainExecutor.h>
#include <sagely/ui/Export.h>

#include <QObject>

#include <functional>

namespace sagely::ui {

class SAGELY_UI_EXPORT QtMainExecutor final : public MainExecutor {
public:
    QtMainExecutor();
    ~QtMainExecutor() override;
    QtMainExecutor(const QtMainExecutor&) = delete;
    QtMainExecutor& operator=(const QtMainExecutor&) = delete;

    void post(std::function<void()> work) override;

private:
    QObject* m_receiver;
};

}  // namespace sagely::ui
