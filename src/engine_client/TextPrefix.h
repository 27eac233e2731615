#pragma once

#include <QString>

// The first `count` user-perceived characters of `text` (never half an emoji or accent).
QString textPrefix(const QString& text, int count);
