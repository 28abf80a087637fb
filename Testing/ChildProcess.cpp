#include "Testing/ChildProcess.h"

#include "Testing/Eventually.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Testing {

namespace {

/// What has been written to an anonymous file.
std::string textOf(int fd) {
    std::string text;
    std::array<char, 65536> bytes;
    ssize_t count;
    while ((count = pread(fd, bytes.data(), bytes.size(), static_cast<off_t>(text.size()))) > 0) {
        text.append(bytes.data(), static_cast<size_t>(count));
    }
    return text;
}

} // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments)
    : output_(memfd_create("output", MFD_CLOEXEC)), errors_(memfd_create("errors", MFD_CLOEXEC)) {
    std::vector<std::string> strings{program};
    strings.insert(strings.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    for (std::string& string : strings) {
        argv.push_back(string.data());
    }
    argv.push_back(nullptr);

    pid_t parent = getpid();
    pid_ = fork();
    if (pid_ < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent && dup2(output_.get(), STDOUT_FILENO) >= 0 &&
            dup2(errors_.get(), STDERR_FILENO) >= 0) {
            execv(argv[0], argv.data());
        }
        _exit(127);
    }
}

ChildProcess::~ChildProcess() {
    if (!status_) {
        kill(pid_, SIGKILL);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

void ChildProcess::signal(int number) const {
    if (!status_) {
        kill(pid_, number);
    }
}

std::string ChildProcess::output() const {
    return textOf(output_.get());
}

std::string ChildProcess::errors() const {
    return textOf(errors_.get());
}

std::optional<int> ChildProcess::status() {
    int status = 0;
    if (!status_ && eventually([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
        status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return status_;
}

} // namespace Testing
