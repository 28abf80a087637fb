#include "Ctl/CommandLine.h"

#include <iostream>

int main(int argc, char** argv) {
    return Ctl::runCommandLine(argc, argv, std::cout, std::cerr);
}
