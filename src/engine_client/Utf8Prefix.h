#pragma once

#include <QByteArrayView>
#include <optional>

// The length of the longest prefix of `bytes` made of whole, valid UTF-8 characters, when what follows it
// is at most the valid beginning of one more character (cut by the end of the bytes); none when the
// bytes hold an invalid sequence (overlong forms, surrogates and code points past U+10FFFF included).
std::optional<qsizetype> completeUtf8Prefix(QByteArrayView bytes);
