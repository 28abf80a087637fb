#include "Testing/IpCommand.h"

#include "Testing/ChildProcess.h"

#include <stdexcept>

namespace Testing {

std::string ip(const std::vector<std::string>& arguments) {
    std::string line = "ip";
    for (const std::string& argument : arguments) {
        line += ' ' + argument;
    }
    std::vector<std::string> command{"ip"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    ChildProcess child("/usr/bin/env", command);
    auto status = child.status();
    if (status == 127) {
        throw std::runtime_error(line + ": there is no `ip` here: install iproute2");
    }
    if (status != 0) {
        throw std::runtime_error(line + ": " + child.errors());
    }
    return child.output();
}

} // namespace Testing
