#include "cli/CliMain.h"
#include "ui/WindowMain.h"

int main(int argc, char** argv) {
    if (argc > 1)
        return runCli(argc, argv);
    return runWindow(argc, argv);
}
