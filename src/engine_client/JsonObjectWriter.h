#pragma once

#include <QByteArray>
#include <QString>

// Compact JSON object text whose members keep the order they are written in.
class JsonObjectWriter {
public:
    JsonObjectWriter& string(QLatin1String key, const QString& value);
    JsonObjectWriter& number(QLatin1String key, double value);
    JsonObjectWriter& boolean(QLatin1String key, bool value);
    JsonObjectWriter& raw(QLatin1String key, const QByteArray& json); // an already encoded value

    QByteArray finish() const { return m_text + '}'; }

    static QByteArray quoted(const QString& text);
    // Integral values up to 2^53 without a fraction or exponent, others in their shortest exact form;
    // non-finite values as null.
    static QByteArray numberText(double value);

private:
    void key(QLatin1String key);

    QByteArray m_text = "{";
};
