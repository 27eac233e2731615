#pragma once

// Runs `marlune <subcommand> …` headless and returns the process exit code.
int runCli(int argc, char** argv);
