#include "Host/ControlConnection.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>

namespace Host {

namespace {

/// What is left unread makes the kernel tell the client "connection reset" in place of the end of
/// the answer. Of somebody who sends without end, enough is read.
void skipRest(int fd) noexcept {
    std::array<char, 4096> bytes;
    for (int i = 0; i < 16 && recv(fd, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0; ++i) {
    }
}

} // namespace

void sendControlError(int fd, const std::string& text) noexcept {
    const std::string answer = "error: " + text + "\n";
    send(fd, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

ControlConnection::ControlConnection(Vela::Ptr<Vela::TaskScheduler> scheduler, Vela::UniqueFd fd,
                                     Callbacks callbacks)
    : callbacks_(std::move(callbacks)) {
    descriptor_ = Vela::make<Vela::FileDescriptor>(scheduler, "control connection", std::move(fd));
    reader_ = Vela::make<Vela::Task>(scheduler, controlPriority, "ControlConnection", this, [this] {
        readSome();
        return Vela::SliceResult{false, 1};
    });
    timeout_ = Vela::make<Vela::Task>(
        scheduler, controlPriority, "ControlConnectionTimeout", this, [this] {
            sendControlError(descriptor_->descriptor(), "no command came for 10 seconds");
            end();
            return Vela::SliceResult{false, 1};
        });
}

void ControlConnection::handleInitialized() {
    reaction_ = descriptor_->readableCountAttribute().react(this, [this] { reader_->schedule(); });
    timeout_->scheduleAfter(patience);
    descriptor_->notifyOnReadableIs(true);
}

void ControlConnection::handleDestroy() noexcept {
    reader_.reset();
    timeout_.reset();
    descriptor_.reset();
}

/// One piece per slice: a client that sends fast waits for its turn like everybody else.
void ControlConnection::readSome() {
    std::array<char, ControlRequest::longestLine> bytes;
    ssize_t count = recv(descriptor_->descriptor(), bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        if (errno == EINTR) {
            reader_->schedule();
        }
        descriptor_->readableDel();
        return;
    }
    if (count > 0) {
        request_.feed({bytes.data(), static_cast<size_t>(count)});
    } else {
        request_.end();
    }
    if (request_.state() == ControlRequest::State::incomplete) {
        reader_->schedule();
    } else {
        settle();
    }
}

void ControlConnection::settle() {
    int fd = descriptor_->descriptor();
    skipRest(fd);
    std::string error = request_.error();
    if (request_.state() == ControlRequest::State::line) {
        int flags = fcntl(fd, F_GETFL);
        fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
        error = callbacks_.start(request_.line(), fd);
    }
    if (!error.empty()) {
        sendControlError(fd, error);
    }
    end();
}

void ControlConnection::end() {
    reaction_.clear();
    timeout_->cancel();
    callbacks_.ended();
}

} // namespace Host
