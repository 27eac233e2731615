#include "engine_client/SSEEventCutter.h"

#include "engine_client/Utf8Prefix.h"

namespace {
constexpr QByteArrayView kBoundary("\n\n");
constexpr QByteArrayView kDataField("data:");

QByteArrayView trimmedSpaces(QByteArrayView text) {
    qsizetype begin = 0, end = text.size();
    while (begin < end && (text[begin] == ' ' || text[begin] == '\t'))
        ++begin;
    while (end > begin && (text[end - 1] == ' ' || text[end - 1] == '\t'))
        --end;
    return text.sliced(begin, end - begin);
}
} // namespace

SSEEventCutter::SSEEventCutter(ConsoleLineSink console)
    : m_console(std::move(console)) {}

std::optional<QByteArray> SSEEventCutter::acceptUtf8(QByteArrayView chunk) {
    QByteArray bytes = m_pendingBytes;
    bytes.append(chunk);
    m_pendingBytes.clear();
    const std::optional<qsizetype> complete = completeUtf8Prefix(bytes);
    if (!complete)
        return std::nullopt;
    m_pendingBytes = bytes.sliced(*complete);
    bytes.truncate(*complete);
    return bytes;
}

void SSEEventCutter::normaliseLineEnds(QByteArray& text) {
    if (m_pendingCR)
        text.prepend('\r');
    m_pendingCR = text.endsWith('\r');
    if (m_pendingCR)
        text.chop(1);
    if (text.contains('\r'))
        text.replace("\r\n", "\n");
}

bool SSEEventCutter::skipToBoundary() {
    const qsizetype end = m_buffer.indexOf(kBoundary);
    if (end < 0) {
        const bool keepLastLF = m_buffer.endsWith('\n');
        m_buffer.clear();
        if (keepLastLF)
            m_buffer.append('\n');
        return false;
    }
    m_buffer.remove(0, end + kBoundary.size());
    m_scanFrom = 0;
    m_skipping = false;
    return true;
}

QList<QByteArray> SSEEventCutter::feed(QByteArrayView chunk) {
    QList<QByteArray> events;
    std::optional<QByteArray> text = acceptUtf8(chunk);
    if (!text)
        return events;
    normaliseLineEnds(*text);
    m_buffer.append(*text);
    if (m_skipping && !skipToBoundary())
        return events;

    qsizetype start = 0;
    for (;;) {
        const qsizetype end = m_buffer.indexOf(kBoundary, std::max(start, m_scanFrom));
        if (end < 0)
            break;
        if (std::optional<QByteArray> data = dataOf(QByteArrayView(m_buffer).sliced(start, end - start)))
            events.append(std::move(*data));
        start = end + kBoundary.size();
    }
    m_buffer.remove(0, start);
    m_scanFrom = std::max<qsizetype>(0, m_buffer.size() - 1);
    if (m_buffer.size() > maxBufferBytes) {
        m_console(
            QStringLiteral("[SSE] plus de %1 octets reçus sans fin d'événement : ignorés jusqu'au suivant")
                .arg(maxBufferBytes));
        m_buffer.clear();
        m_scanFrom = 0;
        m_skipping = true;
    }
    return events;
}

std::optional<QByteArray> SSEEventCutter::dataOf(QByteArrayView block) {
    std::optional<QByteArray> data;
    qsizetype lineStart = 0;
    while (lineStart <= block.size()) {
        qsizetype lineEnd = block.indexOf('\n', lineStart);
        if (lineEnd < 0)
            lineEnd = block.size();
        const QByteArrayView line = block.sliced(lineStart, lineEnd - lineStart);
        if (line.startsWith(kDataField)) {
            if (data)
                data->append('\n');
            else
                data.emplace();
            data->append(trimmedSpaces(line.sliced(kDataField.size())));
        }
        lineStart = lineEnd + 1;
    }
    return data;
}
