#include "Ctl/CommandLine.h"

#include <csignal>
#include <iostream>
#include <unistd.h>

int main(int argc, char** argv) {
    // Who reads no further has seen enough: no error, whatever a shell set for the signal.
    std::signal(SIGPIPE, [](int) { _exit(0); });
    std::ios::sync_with_stdio(false);
    return Ctl::runCommandLine(argc, argv, std::cout, std::cerr);
}
