#pragma once

#include "ArpSuppression/ArpSuppression.h"
#include "ArpSuppression/TrappedMessage.h"
#include "Platform/Model/ArpSuppression/ArpSuppressionCounterStatus.h"
#include "Platform/Quarry/TableService.h"
#include "Testing/CoreFixture.h"
#include "Testing/PacketPorts.h"
#include "Testing/TemporaryDirectory.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace ArpSuppression {

/// What a machine with a packet socket leans on, without the rest of the agent: a usable VRF
/// "default", devices that come and go at the test's word, queue, traps and counters.
class TapFixture : public Testing::CoreFixture {
  protected:
    using Id = ArpSuppressionCounterId;
    using Moved = std::map<Id, uint64_t>;

    TapFixture() {
        tables_->mount<ArpSuppressionCounterStatus>("arpSuppression/counter",
                                                    Quarry::MountType::writer);
        counterStatus = tables_->entity<ArpSuppressionCounterStatus>("arpSuppression/counter");
        auto vrfInfo = vlanL3InfoStatus->vrfInfoIs("default");
        vrfInfo->netNsIs("default");
        vrfInfo->netlinkSocketIs(7);
    }
    ~TapFixture() override {
        queue->destroy();
        vlanL3InfoStatus->destroy();
        tables_->destroy();
        tableService_->destroy();
    }

    /// The kernel index of a device; 0: it is gone.
    void deviceIs(const std::string& name, uint32_t ifIndex) {
        vlanL3InfoStatus->findOrCreateVrfInterfaceWatch(name, "default")->kniIntfIfIndexIs(ifIndex);
    }

    /// What moved since the last call, and by how much.
    Moved countersMoved() {
        Moved moved;
        for (uint32_t number = 0; number < arpSuppressionCounters; ++number) {
            uint64_t count = counterStatus->count(Id(number));
            if (count != counters_[number]) {
                moved[Id(number)] = count - counters_[number];
                counters_[number] = count;
            }
        }
        return moved;
    }

    static std::string hex(const Testing::Frame& frame) {
        static constexpr char digits[] = "0123456789abcdef";
        std::string text;
        for (uint8_t byte : frame) {
            text += digits[byte >> 4];
            text += digits[byte & 0xf];
        }
        return text;
    }

    Testing::PacketPorts ports;
    const Vela::Ptr<VlanL3InfoStatus> vlanL3InfoStatus = Vela::make<VlanL3InfoStatus>();
    const Vela::Ptr<MessageTrap> trapV4 = Vela::make<MessageTrap>();
    const Vela::Ptr<MessageTrap> trapV6 = Vela::make<MessageTrap>();
    const Vela::Ptr<MessageQueue> queue = Vela::make<MessageQueue>();
    Vela::Ptr<ArpSuppressionCounterStatus> counterStatus;

  private:
    Testing::TemporaryDirectory directory_;
    const Vela::Ptr<Quarry::TableService> tableService_ =
        Vela::make<Quarry::TableService>(scheduler(), directory_.path());
    const Vela::Ptr<Quarry::MountGroup> tables_ = tableService_->mountGroup();
    std::array<uint64_t, arpSuppressionCounters> counters_{};
};

} // namespace ArpSuppression
