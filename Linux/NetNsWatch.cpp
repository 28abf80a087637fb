#include "Linux/NetNsWatch.h"

#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <system_error>
#include <utility>

namespace Linux {

namespace {

const Vela::TraceHandle netNsTrace("NetNsWatch");

constexpr const char* directory = "/run/netns";
constexpr decltype(statfs::f_type) namespaceFileSystem = 0x6e736673;
// A name is made as an empty file, and what it stands for is mounted there, which nobody tells:
// soon as a rule, and perhaps never.
constexpr double secondsUntilMounted = 0.02;
constexpr double longestSecondsUntilMounted = 1;
// Nor does anybody tell of what is mounted over a name, or unmounted there.
constexpr double secondsBetweenLooks = 1;

std::string pathOf(const std::string& name) {
    return std::string(directory) + "/" + name;
}

Vela::UniqueFd openEvents() {
    Vela::UniqueFd fd(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!fd) {
        throw std::system_error(errno, std::generic_category(), "inotify");
    }
    return fd;
}

} // namespace

NetNsWatch::NetNsWatch(Vela::Ptr<Vela::TaskScheduler> scheduler,
                       std::function<void(const std::string& name)> changed)
    : scheduler_(std::move(scheduler)), changed_(std::move(changed)) {
    events_ = Vela::make<Vela::FileDescriptor>(scheduler_, "NetNsWatch", openEvents());
    task_ = Vela::make<Vela::Task>(scheduler_, 3, "NetNsWatch", this, [this] { return read(); });
}

void NetNsWatch::handleInitialized() {
    readableReaction_ =
        events_->readableCountAttribute().react(this, [this] { task_->schedule(); });
    events_->notifyOnReadableIs(true);
}

void NetNsWatch::handleDestroy() noexcept {
    task_.reset();
    events_.reset();
}

void NetNsWatch::namesAre(std::set<std::string> names) {
    names_ = std::move(names);
    if (!watching_ && !names_.empty()) {
        watchDirectory();
    }
    due_ = names_;
    later_.clear();
    secondsUntilLater_ = secondsUntilMounted;
    task_->schedule();
}

uint64_t NetNsWatch::inode(const std::string& name) {
    struct statfs fileSystem {};
    struct stat file {};
    std::string path = pathOf(name);
    bool isNamespace = ::statfs(path.c_str(), &fileSystem) == 0 &&
                       fileSystem.f_type == namespaceFileSystem && ::stat(path.c_str(), &file) == 0;
    return isNamespace ? file.st_ino : 0;
}

void NetNsWatch::announceAgain(const std::string& name) {
    if (later_.empty()) {
        laterDue_ = scheduler_->clock().now() + Vela::nanosecondsFromSeconds(secondsUntilLater_);
        secondsUntilLater_ = std::min(2 * secondsUntilLater_, longestSecondsUntilMounted);
    }
    later_.insert(name);
    task_->scheduleAt(laterDue_);
}

/// Who makes the first name makes the directory, if it is not there.
void NetNsWatch::watchDirectory() {
    mkdir(directory, 0755);
    watching_ =
        inotify_add_watch(events_->descriptor(), directory,
                          IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR) >= 0;
    if (!watching_) {
        TRACE(netNsTrace, 0, nullptr, directory << ": " << std::strerror(errno));
    }
}

Vela::SliceResult NetNsWatch::read() {
    Vela::Ptr<NetNsWatch> self(this);
    while (readEvents()) {
    }
    if (!later_.empty() && scheduler_->clock().now() >= laterDue_) {
        due_.merge(std::exchange(later_, {}));
    }
    if (scheduler_->clock().now() >= nextLook_) {
        nextLook_ = scheduler_->clock().now() + Vela::nanosecondsFromSeconds(secondsBetweenLooks);
        due_ = names_;
    }
    uint32_t items = 0;
    while (!due_.empty() && !destroyed()) {
        announce(due_.extract(due_.begin()).value());
        ++items;
        if (!due_.empty() && scheduler_->mustYield()) {
            return {true, items};
        }
    }
    if (!destroyed() && !later_.empty()) {
        task_->scheduleAt(laterDue_);
    }
    if (!destroyed() && !names_.empty()) {
        task_->scheduleAt(nextLook_);
    }
    return {false, items};
}

/// Returns whether there may be more.
bool NetNsWatch::readEvents() {
    alignas(inotify_event) std::array<char, 4096> bytes;
    ssize_t length = ::read(events_->descriptor(), bytes.data(), bytes.size());
    if (length <= 0) {
        if (length < 0 && errno == EINTR) {
            return true;
        }
        events_->readableDel();
        return false;
    }
    secondsUntilLater_ = secondsUntilMounted;
    for (size_t offset = 0; offset < static_cast<size_t>(length);) {
        inotify_event event;
        std::memcpy(&event, &bytes[offset], sizeof event);
        std::string name(event.len > 0 ? &bytes[offset + sizeof event] : "");
        offset += sizeof event + event.len;
        if (event.mask & IN_IGNORED) { // the directory is gone
            watchDirectory();
        }
        if (name.empty()) { // or events are lost
            due_ = names_;
        } else if (names_.contains(name)) {
            due_.insert(name);
        }
    }
    return true;
}

void NetNsWatch::announce(const std::string& name) {
    if (inode(name) == 0) {
        if (struct stat file{}; ::stat(pathOf(name).c_str(), &file) == 0) {
            announceAgain(name);
        }
    }
    changed_(name);
}

} // namespace Linux
