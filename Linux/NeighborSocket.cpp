#include "Linux/NeighborSocket.h"

#include "Linux/NetlinkAttributes.h"
#include "Platform/Packet/NetlinkSocket.h"

#include <algorithm>
#include <cerrno>
#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <system_error>

namespace Linux {

namespace {

using Verb = NeighborRequest::Verb;

constexpr size_t bytesPerRequest = 128;
constexpr size_t receiveBytes = 32768;

uint16_t messageType(Verb verb) {
    return verb == Verb::remove ? RTM_DELNEIGH : verb == Verb::get ? RTM_GETNEIGH : RTM_NEWNEIGH;
}

uint16_t messageFlags(Verb verb) {
    switch (verb) {
    case Verb::add:
        return NLM_F_REQUEST | NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL;
    case Verb::replace:
        return NLM_F_REQUEST | NLM_F_ACK | NLM_F_REPLACE;
    case Verb::remove:
        return NLM_F_REQUEST | NLM_F_ACK;
    case Verb::get: // the entry is the answer
        break;
    }
    return NLM_F_REQUEST;
}

} // namespace

NeighborSocket::NeighborSocket(const std::string& netNs) : receive_(receiveBytes / NLMSG_ALIGNTO) {
    uint32_t fd = Vela::netlinkSocket(NETLINK_ROUTE, netNs, SOCK_RAW, true, 0);
    if (fd == 0) {
        throw std::system_error(errno, std::generic_category(), "netlink in " + netNs);
    }
    fd_ = Vela::UniqueFd(static_cast<int>(fd));
    // An answer need not quote the request; where that cannot be had, it is only longer.
    int on = 1;
    setsockopt(fd_.get(), SOL_NETLINK, NETLINK_CAP_ACK, &on, sizeof on);
}

std::vector<NeighborAnswer> NeighborSocket::exchange(std::span<const NeighborRequest> requests) {
    std::vector<NeighborAnswer> answers(requests.size());
    send_.assign(requests.size() * bytesPerRequest / NLMSG_ALIGNTO, 0);
    sendBytes_ = 0;
    uint32_t first = sequence_ + 1;
    for (const NeighborRequest& request : requests) {
        append(request, ++sequence_);
    }
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    const void* to = &kernel;
    if (sendto(fd_.get(), send_.data(), sendBytes_, MSG_DONTWAIT, static_cast<const sockaddr*>(to),
               sizeof kernel) < 0) {
        return answers;
    }
    receive(first, answers);
    return answers;
}

void NeighborSocket::append(const NeighborRequest& request, uint32_t sequence) {
    nlmsghdr& header = *mnl_nlmsg_put_header(send_.data() + sendBytes_ / NLMSG_ALIGNTO);
    header.nlmsg_type = messageType(request.verb);
    header.nlmsg_flags = messageFlags(request.verb);
    header.nlmsg_seq = sequence;
    auto& body = *static_cast<ndmsg*>(mnl_nlmsg_put_extra_header(&header, sizeof(ndmsg)));
    bool v4 = request.address.af() == Zinc::ipv4();
    body.ndm_family = v4 ? AF_INET : AF_INET6;
    body.ndm_ifindex = static_cast<int>(request.ifIndex);
    mnl_attr_put(&header, NDA_DST, v4 ? 4 : 16, request.address.bytes().data());
    if (request.verb == Verb::add || request.verb == Verb::replace) {
        body.ndm_state = request.state;
        mnl_attr_put(&header, NDA_LLADDR, 6, request.macAddress.bytes().data());
        if (request.protocol != 0) {
            mnl_attr_put_u8(&header, NDA_PROTOCOL, request.protocol);
        }
    }
    sendBytes_ += NLMSG_ALIGN(header.nlmsg_len);
}

void NeighborSocket::receive(uint32_t firstSequence, std::vector<NeighborAnswer>& answers) {
    for (;;) {
        sockaddr_nl sender{};
        iovec part{receive_.data(), receiveBytes};
        msghdr arrived{};
        arrived.msg_name = &sender;
        arrived.msg_namelen = sizeof sender;
        arrived.msg_iov = &part;
        arrived.msg_iovlen = 1;
        ssize_t received = recvmsg(fd_.get(), &arrived, MSG_DONTWAIT);
        if (received < 0 && (errno == ENOBUFS || errno == EINTR)) {
            continue; // what is left can still be read
        }
        if (received < 0) {
            return;
        }
        if (sender.nl_pid != 0) { // any process may write to this socket
            continue;
        }
        auto left = static_cast<int>(received);
        const void* start = receive_.data();
        for (const auto* message = static_cast<const nlmsghdr*>(start); mnl_nlmsg_ok(message, left);
             message = mnl_nlmsg_next(message, &left)) {
            // An answer that came late belongs to no request of now.
            uint32_t number = message->nlmsg_seq - firstSequence;
            if (number >= answers.size()) {
                continue;
            }
            if (message->nlmsg_type == NLMSG_ERROR) {
                auto error = valueAt<int>(payloadOf(*message));
                answers[number].error = error ? -*error : NeighborAnswer::lost;
            } else if (auto neighbor = decodeNeighbor(*message)) {
                answers[number] = {0, *neighbor};
            }
        }
    }
}

} // namespace Linux
