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
    static const char digits[] = "0123456789abcdef";
    const auto escapeUnit = [](QByteArray& out, char16_t unit) {
        out += "\\u";
        for (int shift = 12; shift >= 0; shift -= 4)
            out += digits[(unit >> shift) & 0xF];
    };
    QByteArray out;
    out.reserve(text.size() + 2);
    out += '"';
    const qsizetype size = text.size();
    for (qsizetype i = 0; i < size; ++i) {
        const char16_t unit = text[i].unicode();
        switch (unit) {
        case u'"':
            out += "\\\"";
            break;
        case u'\\':
            out += "\\\\";
            break;
        case u'\n':
            out += "\\n";
            break;
        case u'\r':
            out += "\\r";
            break;
        case u'\t':
            out += "\\t";
            break;
        case u'\b':
            out += "\\b";
            break;
        case u'\f':
            out += "\\f";
            break;
        default:
            if (unit < 0x20) {
                escapeUnit(out, unit);
            } else if (unit < 0x80) {
                out += char(unit);
            } else if (QChar::isHighSurrogate(unit) && i + 1 < size && text[i + 1].isLowSurrogate()) {
                out += QStringView(text).sliced(i, 2).toUtf8();
                ++i;
            } else if (QChar::isSurrogate(unit)) {
                escapeUnit(out, unit); // a lone half of a pair has no UTF-8 form
            } else {
                out += QStringView(text).sliced(i, 1).toUtf8();
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
