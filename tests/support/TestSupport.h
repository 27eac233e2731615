#pragma once

#include <QString>
#include <QtGlobal>
#include <functional>

namespace TestSupport {
// A TCP port on 127.0.0.1 that nothing listens on right now.
quint16 freePort();
// Polls `condition` while processing events, up to `timeoutMs`; returns whether it became true.
bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 10000);
// Whether something accepts connections on 127.0.0.1:port.
bool isListening(quint16 port);
} // namespace TestSupport
