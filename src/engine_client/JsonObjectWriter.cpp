#include "engine_client/JsonObjectWriter.h"

#include <QLocale>
#include <cmath>

JsonObjectWriter& JsonObjectWriter::string(QLatin1String name, const QString& value) {
    key(name);
    m_text += quoted(value);
    return *this;
}

JsonObjectWriter& JsonObjectWriter::number(QLatin1String name, double value) {
    key(name);
    m_text += numberText(value);
    return *this;
}

JsonObjectWriter& JsonObjectWriter::boolean(QLatin1String name, bool value) {
    key(name);
    m_text += value ? "true" : "false";
    return *this;
}

JsonObjectWriter& JsonObjectWriter::raw(QLatin1String name, const QByteArray& json) {
    key(name);
    m_text += json;
    return *this;
}

void JsonObjectWriter::key(QLatin1String name) {
    if (m_text.size() > 1)
        m_text += ',';
    m_text += '"';
    m_text += QByteArrayView(name.data(), name.size());
    m_text += "\":";
}

QByteArray JsonObjectWriter::quoted(const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    QByteArray out;
    out.reserve(utf8.size() + 2);
    out += '"';
    for (char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                static const char digits[] = "0123456789abcdef";
                out += "\\u00";
                out += digits[(c >> 4) & 0xF];
                out += digits[c & 0xF];
            } else {
                out += c;
            }
        }
    }
    out += '"';
    return out;
}

QByteArray JsonObjectWriter::numberText(double value) {
    if (!std::isfinite(value))
        return "null";
    if (value == std::trunc(value) && std::fabs(value) <= 9007199254740992.0)
        return QByteArray::number(static_cast<qint64>(value));
    return QByteArray::number(value, 'g', QLocale::FloatingPointShortest);
}
