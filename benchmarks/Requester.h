#pragma once

#include "Platform/Base/UniqueFd.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <linux/if_packet.h>
#include <net/if.h>
#include <random>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <sys/uio.h>
#include <system_error>
#include <vector>

namespace Benchmarks {

using Clock = std::chrono::steady_clock;
using Mac = std::array<uint8_t, 6>;
using Ip = std::array<uint8_t, 4>;

constexpr uint32_t hosts = 1000;
constexpr unsigned window = 64; // requests under way; a socket's default buffer holds some 250
constexpr uint16_t arpEtherType = 0x0806;
constexpr size_t arpFrameBytes = 42;

constexpr Mac requesterMac = {2, 0, 0, 0, 0, 1};
constexpr Ip requesterIp = {10, 10, 255, 1};

/// A host's MAC address holds its address, so that it can be told without a table.
inline Ip ipOf(uint32_t host) {
    return {10, 10, static_cast<uint8_t>(1 + host / 250), static_cast<uint8_t>(1 + host % 250)};
}
inline Mac macOf(const Ip& ip) {
    return {2, 1, ip[0], ip[1], ip[2], ip[3]};
}
/// `hosts` if there is none.
inline uint32_t hostOf(const Ip& ip) {
    uint32_t host = (ip[2] - 1u) * 250 + ip[3] - 1u;
    return host < hosts && ipOf(host) == ip ? host : hosts;
}

[[noreturn]] inline void fail(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// Receives nothing with protocol 0.
inline Vela::UniqueFd openOn(const char* device, uint16_t protocol) {
    Vela::UniqueFd fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
    int on = 1;
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device));
    const void* generic = &address;
    if (!fd || setsockopt(fd.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        bind(fd.get(), static_cast<const sockaddr*>(generic), sizeof address) != 0) {
        fail(device);
    }
    return fd;
}

/// The host that asks, and looks closely at what it is told.
class Requester {
  public:
    /// To be made where its device is.
    explicit Requester(const char* device)
        : out_(openOn(device, 0)), in_(openOn(device, arpEtherType)) {
        std::mt19937 random(1);
        for (unsigned i = 0; i < 4096; ++i) {
            requests_.push_back(requestFor(static_cast<uint32_t>(random() % hosts)));
        }
        for (size_t i = 0; i < window; ++i) {
            inPlaces_[i] = {frames_[i].data(), frames_[i].size()};
            outMessages_[i].msg_hdr.msg_iov = &outPlaces_[i];
            inMessages_[i].msg_hdr.msg_iov = &inPlaces_[i];
            outMessages_[i].msg_hdr.msg_iovlen = inMessages_[i].msg_hdr.msg_iovlen = 1;
        }
    }

    /// Waits until there is an answer at all.
    void waitForTheFirst() {
        for (unsigned i = 0; i < 1000; ++i) {
            ask(1);
            if (answers(std::chrono::milliseconds(20)) > 0) {
                unanswered();
                return;
            }
        }
        throw std::runtime_error("nobody answers");
    }

    /// Right answers so far.
    uint64_t answered() const { return answered_; }

    /// Answers per second with a number of requests under way all the time.
    double rate(std::chrono::milliseconds time) {
        unsigned underWay = 0;
        uint64_t before = answered_;
        auto begin = Clock::now();
        auto last = begin;
        while (last < begin + time) {
            ask(window - underWay);
            underWay = window;
            // Several at once cost the requester less than one by one: it is not to be the limit.
            unsigned more = answers(std::chrono::milliseconds(200), window / 4);
            underWay = more == 0 ? 0 : underWay - std::min(more, underWay); // else they are lost
            last = Clock::now();
        }
        return static_cast<double>(answered_ - before) /
               std::chrono::duration<double>(last - begin).count();
    }
    /// Microseconds from request to answer, one at a time, in order of size.
    std::vector<double> latencies(size_t count) {
        std::vector<double> all;
        while (all.size() < count) {
            auto begin = Clock::now();
            ask(1);
            if (answers(std::chrono::milliseconds(200)) > 0) {
                all.push_back(
                    std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
            } else {
                all.push_back(200'000);
            }
        }
        std::sort(all.begin(), all.end());
        return all;
    }
    /// Requests since the last call that nobody has answered, however long they are waited for.
    uint64_t unanswered() {
        while (answers(std::chrono::milliseconds(200)) > 0) {
        }
        uint64_t count = 0;
        for (uint32_t& waiting : waiting_) {
            count += waiting;
            waiting = 0;
        }
        return count;
    }

  private:
    using Request = std::array<uint8_t, arpFrameBytes>;

    static Request requestFor(uint32_t host) {
        Request frame{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0, 0, 0, 0, 0,
                      0,    8,    6,    0,    1,    8,    0, 6, 4, 0, 1};
        std::copy_n(requesterMac.begin(), 6, &frame[6]);
        std::copy_n(requesterMac.begin(), 6, &frame[22]);
        std::copy_n(requesterIp.begin(), 4, &frame[28]);
        Ip target = ipOf(host);
        std::copy_n(target.begin(), 4, &frame[38]);
        return frame;
    }
    void ask(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            Request& request = requests_[next_++ % requests_.size()];
            ++waiting_[hostOf({request[38], request[39], request[40], request[41]})];
            outPlaces_[i] = {request.data(), request.size()};
        }
        for (unsigned sent = 0; sent < count;) {
            int more = sendmmsg(out_.get(), &outMessages_[sent], count - sent, 0);
            if (more < 0) {
                fail("send");
            }
            sent += static_cast<unsigned>(more);
        }
    }
    /// Takes what has come; waits for so many without letting go of the core.
    unsigned answers(std::chrono::milliseconds longest, unsigned atLeast = 1) {
        unsigned count = 0;
        for (auto end = Clock::now() + longest; count < atLeast && Clock::now() < end;) {
            int more = recvmmsg(in_.get(), inMessages_.data(), window, MSG_DONTWAIT, nullptr);
            if (more < 0 && errno != EAGAIN) {
                fail("receive");
            }
            for (int i = 0; i < more; ++i, ++count) {
                auto place = static_cast<size_t>(i);
                check(frames_[place].data(), inMessages_[place].msg_len);
            }
        }
        return count;
    }
    void check(const uint8_t* frame, size_t length) {
        const std::array<uint8_t, 10> expected = {8, 6, 0, 1, 8, 0, 6, 4, 0, 2};
        if (length < arpFrameBytes ||
            !std::equal(requesterMac.begin(), requesterMac.end(), frame) ||
            !std::equal(expected.begin(), expected.end(), frame + 12) ||
            !std::equal(requesterMac.begin(), requesterMac.end(), frame + 32) ||
            !std::equal(requesterIp.begin(), requesterIp.end(), frame + 38)) {
            throw std::runtime_error("a frame that is no answer");
        }
        Ip ip = {frame[28], frame[29], frame[30], frame[31]};
        Mac mac = macOf(ip);
        uint32_t host = hostOf(ip);
        if (host == hosts || waiting_[host] == 0) {
            throw std::runtime_error("an answer that nobody has asked for");
        }
        if (!std::equal(mac.begin(), mac.end(), frame + 22)) {
            throw std::runtime_error("a wrong MAC address");
        }
        --waiting_[host];
        ++answered_;
    }

    Vela::UniqueFd out_;
    Vela::UniqueFd in_;
    std::vector<Request> requests_;
    size_t next_ = 0;
    std::array<std::array<uint8_t, 2048>, window> frames_;
    std::array<iovec, window> outPlaces_{};
    std::array<iovec, window> inPlaces_{};
    std::array<mmsghdr, window> outMessages_{};
    std::array<mmsghdr, window> inMessages_{};
    std::array<uint32_t, hosts> waiting_{};
    uint64_t answered_ = 0;
};

} // namespace Benchmarks
