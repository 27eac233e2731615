#include "Console.h"

#include <cstdio>

namespace {
void write(FILE* stream, const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stream);
    std::fflush(stream);
}
} // namespace

namespace Console {
void out(const QString& text) {
    write(stdout, text + QLatin1Char('\n'));
}
void err(const QString& text) {
    write(stderr, text + QLatin1Char('\n'));
}
void errRaw(const QString& text) {
    write(stderr, text);
}
} // namespace Console
