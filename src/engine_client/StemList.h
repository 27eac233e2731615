#pragma once

#include "audio/StemKind.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

// The stems a job is asked for, as sent to the engine.
namespace StemList {
QStringList rawValues(const QList<StemKind>& kinds);
// A compact JSON array of texts, e.g. ["vocals","drums"].
QByteArray jsonText(const QStringList& names);
} // namespace StemList
