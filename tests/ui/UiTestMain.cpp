// The main of every UI test: a QApplication on the offscreen platform (unless the environment
// chose another), a fixed style and font so that sizes are the same on every machine, then
// GoogleTest.
#include <gtest/gtest.h>

#include <QApplication>
#include <QFont>
#include <QStyleFactory>

namespace {

QtMessageHandler defaultHandler = nullptr;

// The offscreen platform reports, once per top-level window, that it cannot propagate size
// hints; that is expected here and only buries the messages that matter.
void filterMessages(QtMsgType type, const QMessageLogContext& context, const QString& message) {
    if (message.contains(QLatin1String("does not support propagateSizeHints"))) return;
    defaultHandler(type, context, message);
}

}  // namespace

int main(int argc, char** argv) {
    defaultHandler = qInstallMessageHandler(filterMessages);
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication app(argc, argv);
    QFont font(QStringLiteral("DejaVu Sans"));
    font.setPointSizeF(10);
    QApplication::setFont(font);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
