#include "OutputBox.h"

void OutputBox::append(const QByteArray& chunk, const std::function<void(const QString&)>& onLine) {
    QMutexLocker locker(&m_lock);
    m_data.append(chunk);
    m_pending += m_decoder.decode(chunk);
    qsizetype start = 0;
    for (qsizetype end = m_pending.indexOf(QLatin1Char('\n')); end >= 0;
         end = m_pending.indexOf(QLatin1Char('\n'), start)) {
        QString line = m_pending.mid(start, end - start);
        if (line.endsWith(QLatin1Char('\r')))
            line.chop(1);
        if (onLine)
            onLine(line);
        start = end + 1;
    }
    m_pending.remove(0, start);
}

QString OutputBox::text() const {
    QMutexLocker locker(&m_lock);
    return QString::fromUtf8(m_data);
}
