#pragma once

#include "InstallLayout.h"

#include <functional>

// One-time clean-up of what older versions left behind (old clone, markers, tool folder, yt-dlp config).
// Each step is independent; `log` receives the lines meant for the runtime log.
void migrateLegacyInstall(const InstallLayout& layout, const std::function<void(const QString&)>& log);
