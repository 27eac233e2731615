#include "engine_client/StemList.h"

#include "engine_client/JsonObjectWriter.h"

namespace StemList {
QStringList rawValues(const QList<StemKind>& kinds) {
    QStringList names;
    for (StemKind kind : kinds)
        names.append(StemKinds::rawValue(kind));
    return names;
}

QByteArray jsonText(const QStringList& names) {
    QByteArray text = "[";
    for (const QString& name : names) {
        if (text.size() > 1)
            text += ',';
        text += JsonObjectWriter::quoted(name);
    }
    return text + ']';
}
} // namespace StemList
