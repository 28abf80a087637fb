// Shows the core at work: a walk over a million bindings beside timers and reactions, on one
// thread, and then everything that can be looked at afterwards.

#include "ArpSuppression/ArpSuppression.h"
#include "Platform/Scheduler/ActivityLoop.h"
#include "Platform/Scheduler/WalkSmBase.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Platform/Trace/SwiftlogType.h"
#include "Platform/Trace/Trace.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <optional>

using namespace ArpSuppression;

namespace {

const Vela::TraceHandle tourTrace("CoreTour");

struct SliceRecord {
    uint32_t items;
    uint32_t removedSoFar;
    bool done;
};
const Vela::SwiftlogType<SliceRecord> sliceRecord{"lab/CoreTour",
                                                  "walk",
                                                  5,
                                                  {{"items=", &SliceRecord::items},
                                                   {" removedSoFar=", &SliceRecord::removedSoFar},
                                                   {" done=", &SliceRecord::done}}};

using Bindings = Vela::HashMap<VrfIpAddress, VlanIdMacAddress>;

/// Visits every binding and removes each tenth, while others change the table.
class BindingWalkSm final : public Vela::WalkSmBase {
  public:
    BindingWalkSm(Vela::Ptr<Vela::TaskScheduler> scheduler, Bindings& bindings)
        : WalkSmBase(std::move(scheduler), 3, "BindingWalkSm"), bindings_(bindings) {}

    const char* typeName() const noexcept override { return "BindingWalkSm"; }

    uint64_t visited() const { return visited_; }
    uint64_t walks() const { return walks_; }

  private:
    Vela::WalkRet walk() override {
        uint32_t count = walkCollection(bindings_, bookmark_, [this](const auto& key, const auto&) {
            if (++visited_ % 10 == 0) {
                bindings_.del(key);
                ++removed_;
            }
        });
        sliceRecord.write({count, removed_, !bookmark_});
        if (!bookmark_) {
            TRACE(tourTrace, 5, this, "finished processed=" << visited_ << " done=" << !bookmark_);
        }
        return {bookmark_.has_value(), count};
    }
    void walkFinishedNotification() override { ++walks_; }
    void traceEvent(Vela::TraceEvent event) override {
        if (event != Vela::TraceEvent::yielded) { // a thousand of them
            TRACE(tourTrace, 5, this, "traceEvent=" << toString(event));
        }
    }

    Bindings& bindings_;
    std::optional<VrfIpAddress> bookmark_;
    uint64_t visited_ = 0;
    uint32_t removed_ = 0;
    uint64_t walks_ = 0;
};

/// Fires every 5 ms, adds a binding each time, and remembers how late it was.
class TickerSm final : public Vela::Entity {
  public:
    TickerSm(Vela::Ptr<Vela::TaskScheduler> scheduler, Bindings& bindings,
             Vela::Ptr<VrfInfo> vrfInfo)
        : scheduler_(scheduler), bindings_(bindings), vrfInfo_(std::move(vrfInfo)),
          timer_(Vela::make<Vela::TimerTask>(scheduler, 3, "TickerSm")) {
        run_ = timer_->runAttribute().react(this, [this] { handleRun(); });
        arm();
    }

    const char* typeName() const noexcept override { return "TickerSm"; }

    double worstLatenessMs() const { return worst_ * 1e3; }
    uint32_t ticks() const { return timer_->run(); }

  private:
    void arm() {
        due_ = scheduler_->clock().seconds() + 0.005;
        timer_->scheduleAfter(0.005);
    }
    void handleRun() {
        worst_ = std::max(worst_, scheduler_->clock().seconds() - due_);
        bindings_.set(VrfIpAddress(vrfInfo_, Zinc::IpGenAddr(0xC0A80000u + ticks())), {});
        arm();
    }

    Vela::Ptr<Vela::TaskScheduler> scheduler_;
    Bindings& bindings_;
    Vela::Ptr<VrfInfo> vrfInfo_;
    Vela::Ptr<Vela::TimerTask> timer_;
    Vela::Reaction run_;
    double due_ = 0;
    double worst_ = 0;
};

void heading(const char* text) {
    std::printf("\n== %s\n", text);
}

Vela::Ptr<VlanL3InfoStatus> makeVlans() {
    auto status = Vela::make<VlanL3InfoStatus>();
    auto vrfInfo = status->vrfInfoIs("default");
    vrfInfo->vrfIdIs(Vrf::VrfId(0));
    vrfInfo->netNsIs("default");
    vrfInfo->netlinkSocketIs(7);
    for (unsigned vlan : {10u, 20u}) {
        auto vlanL3Info = status->vlanL3InfoIs(vrfInfo, Bridging::VlanId(vlan));
        status->addVrfInterfaceWatch(vlanL3Info);
        vlanL3Info->kniIntfIfIndexIs(vlan == 10 ? 42 : 0); // Vlan20's device is not running
    }
    return status;
}

} // namespace

int main() {
    constexpr uint32_t bindingCount = 1'000'000;
    Vela::traceLevelsIs("CoreTour=8,ArpSuppression=8,State=0");
    Vela::traceSinkIs([](std::string_view line) { std::cout << line; });
    Vela::Swiftlog::defaultDirectoryIs("build/run");
    Vela::SwiftlogConfig ringFile;
    ringFile.fileName = "coreTour-%d.sl";
    ringFile.levelKiB = {8, 32, 256, 128, 512, 512};
    Vela::Swiftlog::initialize(ringFile);

    Vela::SystemClock clock;
    auto scheduler = Vela::make<Vela::TaskScheduler>(clock, Vela::TaskScheduler::Settings{});

    heading("the VLANs: Vlan10 can be served, Vlan20 cannot (its kernel device is not running)");
    auto status = makeVlans();
    auto vlan10 = status->usableVlanL3Info(Bridging::VlanId(10));
    auto vlan20 = status->usableVlanL3Info(Bridging::VlanId(20));
    std::printf("usable: VLAN 10 %s, VLAN 20 %s\n", vlan10 ? "yes" : "no", vlan20 ? "yes" : "no");

    heading("a walk over a million bindings, a timer every 5 ms beside it");
    Bindings bindings;
    for (uint32_t i = 0; i < bindingCount; ++i) {
        bindings.set(VrfIpAddress::fromVlanL3Info(vlan10, Zinc::IpGenAddr(0x0A000000 + i)),
                     {vlan10->vlanId(), Zinc::EthAddr()});
    }
    uint64_t announced = 0;
    auto counting = bindings.react(nullptr, [&](const VrfIpAddress&) { ++announced; });
    auto walk = Vela::make<BindingWalkSm>(scheduler, bindings);
    auto ticker = Vela::make<TickerSm>(scheduler, bindings, vlan10->vrfInfo());
    Vela::ActivityLoop loop(scheduler);
    auto watching = loop.turnsAttribute().react(nullptr, [&] {
        if (walk->walks() > 0) {
            loop.stop();
        }
    });
    loop.run();
    std::printf(
        "visited %llu bindings, removed every tenth; %u timer runs, the latest %.2f ms late\n",
        static_cast<unsigned long long>(walk->visited()), ticker->ticks(),
        ticker->worstLatenessMs());
    std::printf("%zu bindings left, %llu changes announced\n", bindings.count(),
                static_cast<unsigned long long>(announced));

    heading("the dump");
    Vela::DumpContext dump;
    dump.child(0, "scheduler", scheduler.get());
    dump.child(0, "vlanL3InfoStatus", status.get());
    std::fputs(dump.text().c_str(), stdout);

    heading("the last records of the ring-buffer file");
    std::string file = Vela::Swiftlog::fileName();
    Vela::Swiftlog::close();
    Vela::SwiftlogReader reader(file);
    std::printf("%s: %zu records, %zu problems\n", file.c_str(), reader.records().size(),
                reader.problems().size());
    std::fflush(stdout);
    size_t shown = std::min<size_t>(reader.records().size(), 5);
    for (auto record = reader.records().end() - static_cast<ptrdiff_t>(shown);
         record != reader.records().end(); ++record) {
        std::cout << *record << '\n';
    }
    std::cout.flush();
    bool complete = walk->visited() >= bindingCount && reader.problems().empty() && shown > 0;
    return complete ? 0 : 1;
}
