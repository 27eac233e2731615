#pragma once

#include <QString>

// A job title made fit for a file or folder name: only letters, digits, spaces, "-" and "_" are kept,
// the ends are trimmed of spaces, double spaces become single ones, and at most 60 characters remain.
QString safeTitle(const QString& title);
