// Shows the agent at work on real sockets, in a network namespace of its own: requests come in as
// the forwarding plane traps them, and what the agent makes of each is printed.

#include "ArpSuppression/ArpSuppressionAgent.h"
#include "Ctl/ShowCounters.h"
#include "Platform/Packet/Headers.h"
#include "Testing/IpCommand.h"
#include "Testing/LiveSwitch.h"
#include "Testing/SwitchDevices.h"
#include "Testing/TrapFrame.h"
#include "Testing/VethPort.h"

#include <exception>
#include <iostream>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using Frame = Testing::VethPort::Frame;
using Bridging::VlanId;
using Testing::TrapFrame;
using Vela::WireReader;
namespace EtherType = Vela::EtherType;

std::string textOf(const Vela::ArpHdr& arp) {
    Zinc::IpGenAddr sender(arp.senderIp);
    Zinc::IpGenAddr target(arp.targetIp);
    if (arp.operation == Vela::ArpHdr::reply) {
        return "ARP " + sender.toStrep() + " is at " + arp.senderMac.toStrep() + ", tell " +
               target.toStrep();
    }
    return "ARP who has " + target.toStrep() + "? tell " + sender.toStrep();
}

/// A label stack, the control word if the configuration says that there is one, and the frame that
/// is carried.
std::string textOfCarried(WireReader& reader, bool controlWord);

/// A whole frame, a header after the other.
std::string textOf(WireReader& reader, bool controlWord) {
    auto eth = Vela::EthHdr::read(reader);
    std::string text = eth.src.toStrep() + " > " + eth.dst.toStrep();
    uint16_t etherType = eth.etherType;
    if (etherType == EtherType::norvelArpSnoop) {
        reader.skip(2);
        text += ", trapped: VLAN " + std::to_string(reader.u32());
        text += " device " + std::to_string(reader.u32());
        reader.skip(4);
        etherType = reader.u16();
    }
    if (etherType == EtherType::dot1q) {
        auto tag = Vela::Dot1qHdr::read(reader);
        text += ", tag " + std::to_string(tag.vlanId);
        etherType = tag.etherType;
    }
    if (etherType == EtherType::mpls) {
        return text + textOfCarried(reader, controlWord);
    }
    if (etherType != EtherType::arp) {
        throw std::runtime_error(text + ", and then something else than ARP");
    }
    return text + ", " + textOf(Vela::ArpHdr::read(reader));
}

std::string textOfCarried(WireReader& reader, bool controlWord) {
    std::string text = ", MPLS";
    Vela::MplsEntry entry;
    do {
        entry = Vela::MplsEntry::read(reader);
        text += " " + std::to_string(entry.label);
    } while (reader.ok() && !entry.bottomOfStack);
    if (controlWord) {
        text += ", control word " + std::to_string(reader.u32());
    }
    return text + "\n           carries " + textOf(reader, controlWord);
}

class RoadTour {
  public:
    explicit RoadTour(bool physicalHardware) : physicalHardware_(physicalHardware) {
        fillState();
        publishDevices();
        live_.start(*agent_, physicalHardware);
        // By hand, until the agent finds out by itself where suppression is active.
        live_.state().arpSuppressionStatus->vlanIdIs(VlanId(10), true);
        live_.turnUntilIdle();
    }
    ~RoadTour() {
        live_.state().arpSuppressionStatus->vlanIdDelAll();
        live_.state().evpnStatus->mplsConfiguredIs(false);
        live_.turnUntilIdle();
        agent_->destroy();
    }
    RoadTour(const RoadTour&) = delete;
    RoadTour& operator=(const RoadTour&) = delete;

    /// Puts a request in where this switch traps, and shows the one frame that comes of it, out of
    /// the device that is named.
    void show(const std::string& title, const TrapFrame& request, Testing::VethPort& out) {
        std::cout << '\n' << title << '\n';
        print(trapPort(), "in ", request.bytes());
        trapPort().inject(request.bytes());
        std::vector<Frame> frames;
        if (!live_.turnUntil([&] { return !(frames = out.sent()).empty(); })) {
            throw std::runtime_error("nothing came out of " + out.name());
        }
        for (const Frame& frame : frames) {
            print(out, "out", frame);
        }
    }
    void controlWordIs(bool enabled) {
        live_.state().evpnMplsConfig->controlWordEnabledIs(enabled);
    }
    Testing::VethPort& fabric() { return fabric_; }
    Testing::VethPort& reinjectPort() { return physicalHardware_ ? fabric_ : arpinject_; }

    int showCounters() {
        std::cout << "\nwhat it has counted\n";
        return Ctl::showCounters(live_.directory(), false, std::cout, std::cerr);
    }

  private:
    Testing::VethPort& trapPort() { return physicalHardware_ ? fabric_ : arpsnoop_; }

    void print(const Testing::VethPort& port, const char* direction, const Frame& frame) {
        WireReader reader(frame);
        std::string text = textOf(reader, live_.state().evpnMplsConfig->controlWordEnabled());
        if (!reader.ok()) {
            throw std::runtime_error("a frame too short: " + text);
        }
        std::cout << "  " << direction << " " << port.name() << "  " << text << '\n';
    }

    void fillState() {
        auto& state = live_.state();
        state.bridgingConfig->bridgeMacAddrIs(Zinc::EthAddr("02:00:00:00:0b:0b"));
        state.vrfIdMap->vrfIs(Vrf::VrfId(0), "default");
        state.evpnStatus->mplsConfiguredIs(true);
        state.evpnStatus->imetLabelIs(VlanId(10), Evpn::ImetLabel(1010, Evpn::EncapType::mpls));
        state.remoteBindingConfig->remoteBindingIs(
            {{VlanId(10), Zinc::IpGenAddr("10.0.0.2")}, Zinc::EthAddr("02:00:00:00:00:02"), 0, 0});
    }

    /// VLAN 10 is routed in the default VRF; its interface and Ethernet1 need no frames.
    void publishDevices() {
        auto& state = live_.state();
        Testing::routedVlanIs(state, VlanId(10), 1010);
        Testing::portIs(state, "Ethernet1", "et1", TrapFrame().srcIfIndex);
        for (const Testing::VethPort* port : {&fabric_, &arpsnoop_, &arpinject_}) {
            Testing::deviceIs(state, port->name(), port->ifIndex());
        }
    }

    const bool physicalHardware_;
    Testing::VethPort fabric_{"fabric"};
    Testing::VethPort arpsnoop_{"arpsnoop"};
    Testing::VethPort arpinject_{"arpinject"};
    Testing::LiveSwitch live_;
    Vela::Ptr<ArpSuppression::ArpSuppressionAgent> agent_ =
        ArpSuppression::arpSuppressionAgentFactory("ArpSuppression");
};

int showAll() {
    const TrapFrame known;
    const TrapFrame unknown{.targetIp = Zinc::IpGenAddr("10.0.0.9")};
    const TrapFrame unknownTagged{.dot1q = 10, .targetIp = Zinc::IpGenAddr("10.0.0.9")};
    Testing::enterOwnNetworkNamespace();
    // The port that requests come from: the kernel gives its index to no other device.
    Testing::ip({"link", "add", "et1", "index", std::to_string(known.srcIfIndex), "type", "veth",
                 "peer", "name", "far-et1"});
    {
        std::cout << "\n== a request on real sockets: forwarding in software\n";
        RoadTour tour(false);
        tour.show("another switch has advertised 10.0.0.2: the agent answers for it", known,
                  tour.fabric());
        tour.show("nobody knows 10.0.0.9: the request goes back as it came", unknown,
                  tour.reinjectPort());
        if (int status = tour.showCounters()) {
            return status;
        }
    }
    std::cout << "\n== a request on real sockets: a switching chip\n";
    RoadTour tour(true);
    tour.show("another switch has advertised 10.0.0.2: the agent answers for it", known,
              tour.fabric());
    tour.show("nobody knows 10.0.0.9: the request goes out under the VLAN's labels", unknown,
              tour.reinjectPort());
    tour.controlWordIs(true);
    tour.show("the same with a control word, and with a tag, which stays behind", unknownTagged,
              tour.reinjectPort());
    return tour.showCounters();
}

} // namespace

int main() {
    try {
        return showAll();
    } catch (const std::exception& error) {
        std::cerr << "error: " << error.what() << '\n';
        return 1;
    }
}
