#include "diagnostics/LogTail.h"

#include <QFile>
#include <QStringDecoder>

namespace {
bool isBlank(const QString& line) {
    for (const QChar c : line)
        if (c != QLatin1Char(' ') && c != QLatin1Char('\t'))
            return false;
    return true;
}
} // namespace

namespace LogTail {

QStringList lastNonBlankLines(const QString& text, int count) {
    QStringList kept;
    for (const QString& line : text.split(QLatin1Char('\n')))
        if (!isBlank(line))
            kept.append(line);
    return kept.mid(std::max<qsizetype>(0, kept.size() - count));
}

std::optional<QString> readText(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder(file.readAll());
    if (decoder.hasError() || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return text;
}

} // namespace LogTail
