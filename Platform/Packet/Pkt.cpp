#include "Platform/Packet/Pkt.h"

#include "Platform/Base/Assert.h"

#include <algorithm>
#include <utility>

namespace Vela {

std::span<uint8_t> Pkt::prepend(size_t count) {
    assertThat(count <= begin_, "count <= headroom()");
    begin_ -= count;
    std::span<uint8_t> added = bytes().first(count);
    std::fill(added.begin(), added.end(), uint8_t{0});
    return added;
}

void intrusive_ptr_release(const Pkt* pkt) noexcept {
    if (--pkt->references_ == 0) {
        // Counting is const; who holds the last reference gives up the packet itself.
        auto* released = const_cast<Pkt*>(pkt);
        released->manager_.release(*released);
    }
}

PktManager::PktManager() {
    idle_.reserve(mostIdle); // so that release() allocates nothing
}

PktManager::~PktManager() {
    assertThat(packets_ == 0, "packets_ == 0");
}

boost::intrusive_ptr<Pkt> PktManager::newPkt(std::span<const uint8_t> bytes, size_t headroom) {
    std::unique_ptr<Pkt> pkt;
    if (idle_.empty()) {
        pkt.reset(new Pkt(*this));
    } else {
        pkt = std::move(idle_.back());
        idle_.pop_back();
    }
    if (pkt->buffer_.size() < headroom + bytes.size()) {
        pkt->buffer_.resize(headroom + bytes.size());
    }
    pkt->begin_ = headroom;
    pkt->end_ = headroom + bytes.size();
    std::copy(bytes.begin(), bytes.end(), pkt->bytes().begin());
    ++packets_;
    return boost::intrusive_ptr<Pkt>(pkt.release());
}

void PktManager::release(Pkt& pkt) noexcept {
    std::unique_ptr<Pkt> released(&pkt);
    --packets_;
    if (idle_.size() < mostIdle) {
        idle_.push_back(std::move(released));
    }
}

PktManager& pktManager() {
    static auto* manager = new PktManager; // packets may outlive every other object at exit
    return *manager;
}

} // namespace Vela
