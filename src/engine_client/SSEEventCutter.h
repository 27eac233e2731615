#pragma once

#include "audio/ConsoleLine.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QList>
#include <optional>

// Cuts a server-sent event stream, chunk by chunk, into the data texts of its events. Line ends CR LF
// count as LF; events end at a blank line; only "data:" lines are kept, trimmed and joined with LF.
// A chunk that is not valid UTF-8 is dropped; the bytes of a character cut by the end of a chunk wait for
// the next one. Text that grows past `maxBufferBytes` without ending an event is discarded up to the
// next event boundary, with a console line.
class SSEEventCutter {
public:
    static constexpr qsizetype maxBufferBytes = 16 * 1024 * 1024;

    explicit SSEEventCutter(ConsoleLineSink console = printConsoleLine);

    // The data texts of the events this chunk completes, in order.
    QList<QByteArray> feed(QByteArrayView chunk);
    // The joined data lines of one event block; none when it has no data line.
    static std::optional<QByteArray> dataOf(QByteArrayView block);

    qsizetype bufferedBytes() const { return m_buffer.size(); }

private:
    // The chunk as text to append: none when dropped.
    std::optional<QByteArray> acceptUtf8(QByteArrayView chunk);
    void normaliseLineEnds(QByteArray& text);
    bool skipToBoundary();

    ConsoleLineSink m_console;
    QByteArray m_pendingBytes; // start of a character cut by the end of the last chunk
    bool m_pendingCR = false;  // the last chunk ended with CR
    QByteArray m_buffer;
    qsizetype m_scanFrom = 0; // no boundary starts before this offset of m_buffer
    bool m_skipping = false;  // dropping an oversized event up to its end
};
