#pragma once

#include <QStringList>

namespace TestSupport {
// Runs the system's ffmpeg with "-y", "-v", "error" and `arguments` (output path last) to make a fixture;
// the calling test fails when ffmpeg does. Use as QVERIFY(makeWithFFmpeg({...})).
bool makeWithFFmpeg(const QStringList& arguments);
} // namespace TestSupport
