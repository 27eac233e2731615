#pragma once

// Opens the main window and runs the event loop; returns the exit code.
int runWindow(int argc, char** argv);
