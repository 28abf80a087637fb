#pragma once

#include "Linux/NeighborChannel.h"
#include "Linux/test/NeighborBytes.h"

#include <cerrno>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace Linux {

/// The neighbour tables of a namespace, which obey as the kernel does. What changes is told to who
/// listens when the test says so, as late as an announcement may come.
class FakeKernel {
  public:
    using Key = std::pair<uint32_t, Zinc::IpGenAddr>;
    struct Held {
        Zinc::EthAddr macAddress;
        uint16_t state = 0;
        uint8_t flags = 0;
        uint8_t protocol = 0;

        friend bool operator==(const Held&, const Held&) = default;
    };

    /// As another program or the kernel itself changes it.
    void heldIs(uint32_t ifIndex, const std::string& address, const Held& held) {
        change({ifIndex, Zinc::IpGenAddr(address)}, held);
    }
    void heldDel(uint32_t ifIndex, const std::string& address) {
        change({ifIndex, Zinc::IpGenAddr(address)}, std::nullopt);
    }
    std::optional<Held> held(uint32_t ifIndex, const std::string& address) const {
        auto found = held_.find({ifIndex, Zinc::IpGenAddr(address)});
        return found == held_.end() ? std::nullopt : std::optional(found->second);
    }
    size_t count() const { return held_.size(); }

    /// Takes the changes that nobody has been told of yet, in their order.
    std::vector<NeighborSpecimen> announcements() { return std::exchange(announcements_, {}); }
    std::vector<NeighborSpecimen> dump() const {
        std::vector<NeighborSpecimen> all;
        for (const auto& [key, held] : held_) {
            all.push_back(specimen(key, held));
            all.back().dumped = true;
        }
        return all;
    }

    /// Way in for the writer; outlived by this object.
    std::unique_ptr<NeighborChannel> channel() { return std::make_unique<Channel>(*this); }

    /// All that was asked, for tests to look at and clear.
    std::vector<NeighborRequest> requests;
    size_t changesAsked() const {
        size_t count = 0;
        for (const NeighborRequest& request : requests) {
            count += request.verb != NeighborRequest::Verb::get;
        }
        return count;
    }
    /// Where set, what a request fails with, or 0.
    std::function<int(const NeighborRequest&)> failure;
    bool mute = false; ///< it obeys, but its answers are lost
    /// Called before each batch: somebody else is faster.
    std::function<void()> before;
    size_t mostEntries = SIZE_MAX; ///< the table has room for, those that are permanent aside
    size_t largestBatch = 0;

  private:
    class Channel final : public NeighborChannel {
      public:
        explicit Channel(FakeKernel& kernel) : kernel_(kernel) {}
        std::vector<NeighborAnswer> exchange(std::span<const NeighborRequest> requests) override {
            kernel_.largestBatch = std::max(kernel_.largestBatch, requests.size());
            if (kernel_.before) {
                kernel_.before();
            }
            std::vector<NeighborAnswer> answers;
            for (const NeighborRequest& request : requests) {
                kernel_.requests.push_back(request);
                NeighborAnswer answer = kernel_.obey(request);
                answers.push_back(kernel_.mute ? NeighborAnswer() : answer);
            }
            return answers;
        }

      private:
        FakeKernel& kernel_;
    };

    NeighborAnswer obey(const NeighborRequest& request) {
        using Verb = NeighborRequest::Verb;
        if (int error = failure ? failure(request) : 0) {
            return {error, {}};
        }
        Key key{request.ifIndex, request.address};
        auto found = held_.find(key);
        bool present = found != held_.end();
        if (request.verb == Verb::add ? present : !present) {
            return {present ? EEXIST : ENOENT, {}};
        }
        if (request.verb == Verb::get) {
            const Held& held = found->second;
            NeighborMessage message;
            message.ifIndex = request.ifIndex;
            message.address = request.address;
            message.state = held.state;
            message.flags = held.flags;
            message.protocol = held.protocol;
            message.macAddress = held.macAddress;
            return {0, message};
        }
        if (request.verb == Verb::remove) {
            change(key, std::nullopt);
            return {0, {}};
        }
        bool permanent = (request.state & NUD_PERMANENT) != 0;
        if (!present && !permanent && dynamicEntries() >= mostEntries) {
            return {ENOBUFS, {}};
        }
        uint8_t protocol = present ? found->second.protocol : uint8_t{0};
        change(key, Held{request.macAddress, request.state, 0,
                         request.protocol != 0 ? request.protocol : protocol});
        return {0, {}};
    }

    size_t dynamicEntries() const {
        size_t count = 0;
        for (const auto& [key, held] : held_) {
            count += (held.state & NUD_PERMANENT) == 0;
        }
        return count;
    }

    static NeighborSpecimen specimen(const Key& key, const Held& held) {
        return {.ifIndex = key.first,
                .address = key.second.toStrep(),
                .macAddress = held.macAddress.isZero() ? "" : held.macAddress.toStrep(),
                .state = held.state,
                .flags = held.flags,
                .protocol = held.protocol};
    }

    void change(const Key& key, std::optional<Held> held) {
        if (held) {
            held_[key] = *held;
            announcements_.push_back(specimen(key, *held));
        } else if (held_.erase(key) > 0) {
            announcements_.push_back({.ifIndex = key.first,
                                      .address = key.second.toStrep(),
                                      .state = NUD_FAILED,
                                      .removed = true});
        }
    }

    std::map<Key, Held> held_;
    std::vector<NeighborSpecimen> announcements_;
};

} // namespace Linux
