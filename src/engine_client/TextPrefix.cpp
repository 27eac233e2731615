#include "engine_client/TextPrefix.h"

#include <QTextBoundaryFinder>

QString textPrefix(const QString& text, int count) {
    if (count <= 0)
        return QString();
    QTextBoundaryFinder graphemes(QTextBoundaryFinder::Grapheme, text);
    int seen = 0;
    while (graphemes.toNextBoundary() != -1) {
        if (++seen == count)
            return text.left(graphemes.position());
    }
    return text;
}
