#pragma once

#include <QByteArray>

// The tool downloads Marlune trusts, as the JSON table read by FixedDownloads.
// scripts/pin-tool-digests rewrites the digests in BuiltInToolDownloads.cpp.
namespace BuiltInToolDownloads {
QByteArray json();
} // namespace BuiltInToolDownloads
