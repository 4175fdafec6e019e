// The reply bubble while text streams in lays out only what is new: a long reply costs linear
// time, not quadratic (the figures are in bench/WorkspaceBench).
#include "UiTestSupport.h"

#include "ConversationPane.h"

#include <QAbstractTextDocumentLayout>
#include <QTextDocument>
#include <QTextEdit>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sagely::testing {
namespace {

std::string paragraph(int index) {
    return "Step " + std::to_string(index) +
           ": open the **flow** in the editor, then click `Schedule` once more.\n";
}

TEST(StreamingReplyLayout, EachNewPieceLaysOutOnlyTheEndOfTheReply) {
    ui::detail::ConversationPane pane(tesselBranding(), {}, {});
    pane.resize(700, 500);
    pane.show();
    settle();
    std::string text;
    for (int i = 0; i < 40; ++i) text += paragraph(i);
    pane.setPartialReply(text);
    settle();
    auto* shown = qobject_cast<QTextEdit*>(pane.partialReplyView());
    ASSERT_NE(shown, nullptr);
    QTextDocument* document = shown->document();
    const qreal heightBefore = document->size().height();
    ASSERT_GT(heightBefore, 200);

    std::vector<QRectF> laidOut;
    QObject::connect(document->documentLayout(), &QAbstractTextDocumentLayout::update,
                     [&](const QRectF& area) { laidOut.push_back(area); });
    for (int i = 40; i < 60; ++i) {
        text += paragraph(i);
        pane.setPartialReply(text);
        settle();
    }

    EXPECT_EQ(shown->toPlainText().toStdString(), text);
    EXPECT_GT(document->size().height(), heightBefore);
    ASSERT_FALSE(laidOut.empty());
    // Nothing from the top: the paragraphs already shown keep their layout.
    for (const QRectF& area : laidOut) EXPECT_GE(area.top(), heightBefore / 2) << area.top();
}

}  // namespace
}  // namespace sagely::testing
