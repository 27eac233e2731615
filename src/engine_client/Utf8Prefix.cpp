#include "engine_client/Utf8Prefix.h"

std::optional<qsizetype> completeUtf8Prefix(QByteArrayView bytes) {
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    const qsizetype size = bytes.size();
    qsizetype i = 0;
    while (i < size) {
        const unsigned char lead = data[i];
        if (lead < 0x80) {
            ++i;
            continue;
        }
        qsizetype length = 0;
        unsigned char low = 0x80, high = 0xBF; // allowed range of the second byte
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            if (lead == 0xE0)
                low = 0xA0; // no overlong forms
            else if (lead == 0xED)
                high = 0x9F; // no surrogates
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            if (lead == 0xF0)
                low = 0x90;
            else if (lead == 0xF4)
                high = 0x8F; // nothing past U+10FFFF
        } else {
            return std::nullopt;
        }
        for (qsizetype k = 1; k < length; ++k) {
            if (i + k == size)
                return i; // cut inside the character
            const unsigned char next = data[i + k];
            if (k == 1 ? (next < low || next > high) : (next < 0x80 || next > 0xBF))
                return std::nullopt;
        }
        i += length;
    }
    return size;
}
