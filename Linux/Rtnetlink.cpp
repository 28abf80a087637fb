#include "Linux/Rtnetlink.h"

#include "Platform/Packet/NetlinkSocket.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace Linux {

namespace {

const Vela::TraceHandle rtnetlinkTrace("Rtnetlink");

// The kernel fills parts of a dump to what the reader has room for, up to half of this.
constexpr size_t bufferBytes = 65536;
// After an overrun the kernel is likely to be busy with more of the same.
constexpr double secondsAfterOverrun = 0.05;
constexpr double secondsAfterFailure = 1.0;

#ifndef SIOCGSKNS
constexpr unsigned long SIOCGSKNS = 0x894C;
#endif

uint64_t inodeOfNamespace(int socketFd) {
    Vela::UniqueFd netNs(ioctl(socketFd, SIOCGSKNS));
    struct stat status {};
    return netNs && fstat(netNs.get(), &status) == 0 ? status.st_ino : 0;
}

Vela::UniqueFd openIn(const std::string& netNs) {
    uint32_t fd = Vela::netlinkSocket(NETLINK_ROUTE, netNs, SOCK_RAW, true, 0);
    if (fd == 0) {
        throw std::system_error(errno, std::generic_category(), "netlink in " + netNs);
    }
    return Vela::UniqueFd(static_cast<int>(fd));
}

std::vector<unsigned> groupsOf(NetlinkKind kind) {
    switch (kind) {
    case NetlinkKind::links:
        return {RTNLGRP_LINK};
    case NetlinkKind::addresses:
        return {RTNLGRP_IPV4_IFADDR, RTNLGRP_IPV6_IFADDR};
    case NetlinkKind::neighbors:
    case NetlinkKind::fdb:
        return {RTNLGRP_NEIGH};
    }
    return {};
}

/// Of what kind a message is. The first byte of all of them is the family; bridges announce their
/// ports as links of a family of their own, of which a deletion means that a port left.
std::optional<NetlinkKind> kindOf(const nlmsghdr& message) {
    if (mnl_nlmsg_get_payload_len(&message) == 0) {
        return std::nullopt;
    }
    uint8_t family = *static_cast<const uint8_t*>(mnl_nlmsg_get_payload(&message));
    bool isIp = family == AF_INET || family == AF_INET6;
    switch (message.nlmsg_type) {
    case RTM_NEWLINK:
    case RTM_DELLINK:
        return family == AF_UNSPEC ? std::optional(NetlinkKind::links) : std::nullopt;
    case RTM_NEWADDR:
    case RTM_DELADDR:
        return isIp ? std::optional(NetlinkKind::addresses) : std::nullopt;
    case RTM_NEWNEIGH:
    case RTM_DELNEIGH:
        return isIp                  ? std::optional(NetlinkKind::neighbors)
               : family == AF_BRIDGE ? std::optional(NetlinkKind::fdb)
                                     : std::nullopt;
    default:
        return std::nullopt;
    }
}

/// A request under construction, large enough for all that are made here.
class Request {
  public:
    Request(uint16_t type, uint16_t flags, uint32_t sequence) {
        nlmsghdr& header = *mnl_nlmsg_put_header(bytes_.data());
        header.nlmsg_type = type;
        header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
        header.nlmsg_seq = sequence;
    }

    template <class T>
    T& payload() {
        return *static_cast<T*>(mnl_nlmsg_put_extra_header(&header(), sizeof(T)));
    }
    nlmsghdr& header() {
        void* start = bytes_.data();
        return *static_cast<nlmsghdr*>(start);
    }

  private:
    alignas(nlmsghdr) std::array<char, 128> bytes_{};
};

Request dumpRequest(NetlinkKind kind, uint32_t sequence) {
    switch (kind) {
    case NetlinkKind::links: {
        Request request(RTM_GETLINK, NLM_F_DUMP, sequence);
        request.payload<ifinfomsg>().ifi_family = AF_UNSPEC;
        return request;
    }
    case NetlinkKind::addresses: {
        Request request(RTM_GETADDR, NLM_F_DUMP, sequence);
        request.payload<ifaddrmsg>().ifa_family = AF_UNSPEC;
        return request;
    }
    case NetlinkKind::neighbors:
    case NetlinkKind::fdb:
        break;
    }
    Request request(RTM_GETNEIGH, NLM_F_DUMP, sequence);
    request.payload<ndmsg>().ndm_family = kind == NetlinkKind::fdb ? AF_BRIDGE : AF_UNSPEC;
    return request;
}

} // namespace

const char* toString(NetlinkKind kind) {
    switch (kind) {
    case NetlinkKind::links:
        return "links";
    case NetlinkKind::addresses:
        return "addresses";
    case NetlinkKind::neighbors:
        return "neighbors";
    case NetlinkKind::fdb:
        return "fdb";
    }
    return "?";
}

Rtnetlink::Rtnetlink(Vela::Ptr<Vela::TaskScheduler> scheduler,
                     Vela::Ptr<Quarry::ChangeLog> changeLog, std::string netNs,
                     size_t receiveBuffer)
    : scheduler_(std::move(scheduler)), changeLog_(std::move(changeLog)), netNs_(std::move(netNs)),
      buffer_(bufferBytes / sizeof(uint64_t)) {
    std::string name = "Rtnetlink-" + netNs_;
    socket_ = Vela::make<Vela::FileDescriptor>(scheduler_, name, openIn(netNs_));
    netNsInode_ = inodeOfNamespace(socket_->descriptor());
    receiveBufferIs(receiveBuffer);
    task_ = Vela::make<Vela::Task>(scheduler_, 3, name, this, [this] { return read(); });
}

void Rtnetlink::handleInitialized() {
    readableReaction_ =
        socket_->readableCountAttribute().react(this, [this] { task_->schedule(); });
    changeLogReaction_ = changeLog_->overHalfFullAttribute().react(this, [this] {
        if (!changeLog_->overHalfFull()) {
            task_->schedule();
        }
    });
    socket_->notifyOnReadableIs(true);
}

void Rtnetlink::handleDestroy() noexcept {
    task_.reset();
    socket_.reset();
}

void Rtnetlink::dumpState(Vela::DumpContext& context, int indent) const {
    const RtnetlinkStatistics& s = statistics_;
    auto number = [](uint64_t value) { return static_cast<unsigned long long>(value); };
    context.print(indent, "Linux::Rtnetlink %s inode=%llu synchronized=%d dumping=%s\n",
                  netNs_.c_str(), number(netNsInode_), synchronized(),
                  dumping_ ? toString(*dumping_) : "-");
    context.print(indent + 2,
                  "messages=%llu ignored=%llu resyncs=%llu overruns=%llu interrupted=%llu "
                  "failures=%llu\n",
                  number(s.messages), number(s.ignored), number(s.resyncs), number(s.overruns),
                  number(s.interrupted), number(s.failures));
}

void Rtnetlink::receiveBufferIs(size_t bytes) {
    if (bytes == 0) {
        return;
    }
    int value = static_cast<int>(std::min<size_t>(bytes, 1 << 30));
    int fd = socket_->descriptor();
    // The first one passes the machine's limit and needs the right to.
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &value, sizeof value) != 0 &&
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &value, sizeof value) != 0) {
        TRACE(rtnetlinkTrace, 0, this,
              "receive buffer of " << value << ": " << std::strerror(errno));
    }
}

void Rtnetlink::consumerIs(NetlinkKind kind, NetlinkConsumer& consumer) {
    consumerOf(kind) = &consumer;
    for (unsigned group : groupsOf(kind)) {
        if (setsockopt(socket_->descriptor(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &group,
                       sizeof group) != 0) {
            throw std::system_error(errno, std::generic_category(), "netlink group in " + netNs_);
        }
    }
    requestResync(kind);
}

void Rtnetlink::consumerDel(NetlinkKind kind) {
    consumerOf(kind) = nullptr;
    wanted_[static_cast<size_t>(kind)] = false;
    updateSynchronized();
}

void Rtnetlink::requestResync(NetlinkKind kind) {
    if (!consumerOf(kind)) {
        return;
    }
    wanted_[static_cast<size_t>(kind)] = true;
    updateSynchronized();
    task_->schedule();
}

void Rtnetlink::requestLink(uint32_t ifIndex) {
    Request request(RTM_GETLINK, 0, 0);
    request.payload<ifinfomsg>().ifi_index = static_cast<int>(ifIndex);
    send(request.header());
}

Vela::SliceResult Rtnetlink::read() {
    uint32_t items = 0;
    // What the kernel cannot keep meanwhile, it drops and says so.
    while (!changeLog_->overHalfFull()) {
        if (next_ == end_ && receive() == Received::nothing) {
            return {startDump(), items};
        }
        if (next_ < end_) {
            const void* start = reinterpret_cast<const char*>(buffer_.data()) + next_;
            const auto& message = *static_cast<const nlmsghdr*>(start);
            if (!mnl_nlmsg_ok(&message, static_cast<int>(end_ - next_))) {
                next_ = end_;
                handleOverrun();
                continue;
            }
            next_ = std::min<size_t>(end_, next_ + NLMSG_ALIGN(message.nlmsg_len));
            handle(message);
            ++items;
        }
        if (destroyed()) {
            break;
        }
        if (scheduler_->mustYield()) {
            return {true, items};
        }
    }
    return {false, items};
}

/// Fills the empty buffer, or says that there is nothing (more) to be had.
Rtnetlink::Received Rtnetlink::receive() {
    next_ = end_ = 0;
    sockaddr_nl sender{};
    iovec part{buffer_.data(), bufferBytes};
    msghdr message{};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    ssize_t length = recvmsg(socket_->descriptor(), &message, MSG_DONTWAIT);
    if (length < 0 && errno == EAGAIN) {
        socket_->readableDel();
        return Received::nothing;
    }
    if (length < 0) {
        if (errno != EINTR) {
            handleOverrun();
        }
    } else if (message.msg_flags & MSG_TRUNC) {
        handleOverrun();
    } else if (sender.nl_pid ==
               0) { // any process may write to this socket, the kernel alone counts
        end_ = static_cast<size_t>(length);
    }
    return Received::messages;
}

void Rtnetlink::handle(const nlmsghdr& message) {
    bool isOfDump = dumping_ && message.nlmsg_seq == dumpSequence_;
    if (isOfDump && (message.nlmsg_flags & NLM_F_DUMP_INTR) && !dumpLost_) {
        dumpLost_ = true;
        ++statistics_.interrupted;
    }
    switch (message.nlmsg_type) {
    case NLMSG_DONE:
    case NLMSG_ERROR: {
        // Both begin with an error number; that of a question about one device does not matter.
        int error = 0;
        if (mnl_nlmsg_get_payload_len(&message) >= sizeof error) {
            std::memcpy(&error, mnl_nlmsg_get_payload(&message), sizeof error);
        }
        if (isOfDump) {
            handleDumpEnd(-error);
        }
        return;
    }
    case NLMSG_OVERRUN:
        handleOverrun();
        return;
    default:
        break;
    }
    auto kind = kindOf(message);
    NetlinkConsumer* consumer = kind ? consumerOf(*kind) : nullptr;
    if (!consumer) {
        ++statistics_.ignored;
        return;
    }
    ++statistics_.messages;
    consumer->message(message);
}

void Rtnetlink::handleDumpEnd(int error) {
    NetlinkKind kind = *std::exchange(dumping_, std::nullopt);
    bool lost = std::exchange(dumpLost_, false);
    if (error != 0) {
        ++statistics_.failures;
        // The kernel says the first where there is no room for a dump, and the second while it is
        // not through with one that it could not start right.
        bool passes = error == ENOBUFS || error == EBUSY;
        TRACE(rtnetlinkTrace, passes ? 1 : 0, this,
              "dump of " << toString(kind) << " failed: " << std::strerror(error));
        resyncAll(passes ? secondsAfterOverrun : secondsAfterFailure);
    } else if (lost) {
        TRACE(rtnetlinkTrace, 1, this, "dump of " << toString(kind) << " was not whole");
        resyncAll(0);
    } else if (NetlinkConsumer* consumer = consumerOf(kind)) {
        ++statistics_.resyncs;
        TRACE(rtnetlinkTrace, 3, this, "dump of " << toString(kind) << " finished");
        consumer->resyncFinished();
    }
    updateSynchronized();
}

/// Nothing is announced any more until the socket's queue is empty, so the next dump begins then.
void Rtnetlink::handleOverrun() {
    ++statistics_.overruns;
    TRACE(rtnetlinkTrace, 1, this, "overrun " << statistics_.overruns);
    dumpLost_ = dumping_.has_value();
    resyncAll(secondsAfterOverrun);
}

void Rtnetlink::resyncAll(double seconds) {
    for (size_t kind = 0; kind < netlinkKinds; ++kind) {
        wanted_[kind] = consumers_[kind] != nullptr;
    }
    notBefore_ =
        std::max(notBefore_, scheduler_->clock().now() + Vela::nanosecondsFromSeconds(seconds));
    updateSynchronized();
}

/// To be called when the socket's queue is empty. Returns whether there is something to read.
bool Rtnetlink::startDump() {
    auto wanted = std::find(wanted_.begin(), wanted_.end(), true);
    if (dumping_ || wanted == wanted_.end()) {
        return false;
    }
    if (scheduler_->clock().now() < notBefore_) {
        task_->scheduleAt(notBefore_);
        return false;
    }
    *wanted = false;
    auto kind = static_cast<NetlinkKind>(wanted - wanted_.begin());
    dumping_ = kind;
    dumpLost_ = false;
    TRACE(rtnetlinkTrace, 3, this, "dump of " << toString(kind));
    consumerOf(kind)->resyncStarted();
    // 0 is what announcements carry.
    dumpSequence_ = dumpSequence_ == UINT32_MAX ? 1 : dumpSequence_ + 1;
    Request request = dumpRequest(kind, dumpSequence_);
    send(request.header());
    return true;
}

void Rtnetlink::send(const nlmsghdr& request) {
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    const void* any = &kernel;
    if (sendto(socket_->descriptor(), &request, request.nlmsg_len, MSG_DONTWAIT,
               static_cast<const sockaddr*>(any), sizeof kernel) < 0) {
        int error = errno;
        if (dumping_ && request.nlmsg_seq == dumpSequence_) {
            handleDumpEnd(error);
        }
    }
}

void Rtnetlink::updateSynchronized() {
    bool consumed = std::any_of(consumers_.begin(), consumers_.end(), [](auto c) { return c; });
    bool wanted = std::find(wanted_.begin(), wanted_.end(), true) != wanted_.end();
    synchronized_.set(consumed && !wanted && !dumping_);
}

} // namespace Linux
