#pragma once

// The screen the window shows.
enum class AppScreen { setup = 0, importing = 1, processing = 2, studio = 3, library = 4 };
