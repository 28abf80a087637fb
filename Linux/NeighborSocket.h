#pragma once

#include "Linux/NeighborChannel.h"
#include "Platform/Base/UniqueFd.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Linux {

/// A netlink socket in a namespace. The kernel works off a batch within the call that hands it
/// over, and has then queued all answers: a batch costs two or three system calls, and nothing is
/// under way between two calls. Answers for which the queue had no room are lost.
class NeighborSocket final : public NeighborChannel {
  public:
    /// Throws std::system_error where the namespace cannot be entered or the socket not be opened.
    explicit NeighborSocket(const std::string& netNs);

    std::vector<NeighborAnswer> exchange(std::span<const NeighborRequest> requests) override;

  private:
    void append(const NeighborRequest& request, uint32_t sequence);
    void receive(uint32_t firstSequence, std::vector<NeighborAnswer>& answers);

    Vela::UniqueFd fd_;
    uint32_t sequence_ = 0;      // of the last request
    std::vector<uint32_t> send_; // aligned as netlink messages are

    size_t sendBytes_ = 0;
    std::vector<uint32_t> receive_;
};

} // namespace Linux
