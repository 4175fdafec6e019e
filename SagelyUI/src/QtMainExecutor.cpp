#include <sagely/ui/QtMainExecutor.h>

#include <sagely/Log.h>

#include <QMetaObject>
#include <QThread>

#include <exception>

namespace sagely::ui {

QtMainExecutor::QtMainExecutor() : m_receiver(new QObject) {}

QtMainExecutor::~QtMainExecutor() {
    // The last owner may release the executor on a worker thread; the receiver belongs to the
    // GUI thread, which then deletes it itself (dropping what is still queued for it).
    if (m_receiver->thread() == QThread::currentThread())
        delete m_receiver;
    else
        m_receiver->deleteLater();
}

void QtMainExecutor::post(std::function<void()> work) {
    QMetaObject::invokeMethod(
        m_receiver,
        [work = std::move(work)] {
            try {
                work();
            } catch (const std::exception& error) {
                log(std::string("Posted work failed: ") + error.what());
            } catch (...) {
                log("Posted work failed.");
            }
        },
        Qt::QueuedConnection);
}

}  // namespace sagely::ui
