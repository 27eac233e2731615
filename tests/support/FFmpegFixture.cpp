#include "FFmpegFixture.h"

#include <QProcess>
#include <QtTest>

namespace TestSupport {
bool makeWithFFmpeg(const QStringList& arguments) {
    QProcess process;
    process.start(QStringLiteral("ffmpeg"), QStringList{"-y", "-v", "error"} + arguments);
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        qWarning("ffmpeg %s failed: %s", qPrintable(arguments.join(QLatin1Char(' '))),
                 process.readAllStandardError().constData());
        return false;
    }
    return true;
}
} // namespace TestSupport
