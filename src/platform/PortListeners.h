#pragma once

#include <QList>
#include <sys/types.h>

// Processes listening on a local TCP port, found through /proc (no shell, no lsof).
namespace PortListeners {
// Identifiers of the processes holding a listening socket on `port` (IPv4 or IPv6); never this process.
QList<pid_t> find(quint16 port);
// SIGTERM to every listener, half a second, then SIGKILL to the survivors.
void freePort(quint16 port);
} // namespace PortListeners
