#include "ArpSuppression/LocalBinding.h"

#include "Platform/Base/Errors.h"
#include "Platform/State/DumpContext.h"
#include "Platform/Trace/Swiftlog.h"
#include "Platform/Trace/SwiftlogReader.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"
#include "Testing/TraceCapture.h"

#include <csignal>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Zinc::EthAddr;
using Zinc::IpGenAddr;

template <class T>
std::string dumpOf(const Ptr<T>& entity, int indent) {
    Vela::DumpContext context;
    entity->dumpState(context, indent);
    return context.text();
}

class LocalBindingTest : public Testing::CoreFixture {
  protected:
    ~LocalBindingTest() override { red_->destroy(); }

    VrfIpAddress address(const char* ip) const { return {red_, IpGenAddr(ip)}; }
    Ptr<LocalBinding> binding(const char* ip) const { return make<LocalBinding>(address(ip), a_); }

    const Ptr<VrfInfo> red_ = make<VrfInfo>("red");
    const VlanIdMacAddress a_{VlanId(10), EthAddr("02:00:00:00:00:0a")};
};

TEST_F(LocalBindingTest, Prints) {
    auto binding = this->binding("10.0.0.1");
    const std::string head =
        "<" + address("10.0.0.1").toStrep() + ";<vlanId=10 macAddress=02:00:00:00:00:0a>;dynSt=";
    EXPECT_EQ(binding->toStrep(), head + "no >");
    EXPECT_EQ(dumpOf(binding, 3), "   LocalBinding " + head + "no >\n");
    binding->arpStatusHasDynamicEntryIs(true);
    EXPECT_EQ(binding->toStrep(), head + "yes >");
    binding->arpStatusHasDynamicEntryIs(false);
    EXPECT_EQ(binding->toStrep(), head + "no >");
    EXPECT_EQ(Vela::toStrep(Ptr<LocalBinding>()), "NULL");
}

class LocalMacToIpTest : public LocalBindingTest {
  protected:
    std::set<std::string> addresses() const {
        std::set<std::string> all;
        macToIp_->eachBinding([&](const Ptr<LocalBinding>& binding) {
            EXPECT_TRUE(all.insert(binding->vrfIpAddress().ipAddress().toStrep()).second);
        });
        return all;
    }
    using Addresses = std::set<std::string>;

    const Ptr<LocalMacToIp> macToIp_ = make<LocalMacToIp>(a_);
};

TEST_F(LocalMacToIpTest, StartsEmpty) {
    EXPECT_EQ(macToIp_->vlanIdMacAddress(), a_);
    EXPECT_EQ(macToIp_->bindings(), 0u);
    EXPECT_FALSE(macToIp_->bindingHas(address("10.0.0.1")));
    EXPECT_FALSE(macToIp_->binding(VrfIpAddress()));
    EXPECT_FALSE(macToIp_->bindingDel(address("10.0.0.1")));
    macToIp_->bindingDelAll();
    EXPECT_EQ(addresses(), Addresses());
}

TEST_F(LocalMacToIpTest, FilesBindingsUnderTheirAddresses) {
    std::vector<Ptr<LocalBinding>> bindings;
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "fe80::1"}) {
        bindings.push_back(binding(ip));
        macToIp_->bindingIs(bindings.back());
        EXPECT_EQ(macToIp_->bindings(), bindings.size());
    }
    for (const auto& binding : bindings) {
        EXPECT_EQ(macToIp_->binding(binding->vrfIpAddress()), binding);
    }
    EXPECT_FALSE(macToIp_->bindingHas(address("10.0.0.3")));
    EXPECT_EQ(addresses(), (Addresses{"10.0.0.1", "10.0.0.2", "fe80::1"}));
}

TEST_F(LocalMacToIpTest, AnAddressHasOneBinding) {
    for (const char* ip : {"10.0.0.1", "10.0.0.2"}) {
        macToIp_->bindingIs(binding(ip));
    }
    for (const char* ip : {"10.0.0.1", "10.0.0.2"}) {
        auto another = binding(ip);
        macToIp_->bindingIs(another);
        macToIp_->bindingIs(another);
        EXPECT_EQ(macToIp_->binding(address(ip)), another);
        EXPECT_EQ(macToIp_->bindings(), 2u);
    }
}

TEST_F(LocalMacToIpTest, RemovesWhicheverIsAskedFor) {
    const std::vector<const char*> all = {"10.0.0.1", "10.0.0.2", "10.0.0.3"};
    for (const char* first : all) {
        for (const char* second : all) {
            if (first == second) {
                continue;
            }
            for (const char* ip : all) {
                macToIp_->bindingIs(binding(ip));
            }
            Addresses left = {"10.0.0.1", "10.0.0.2", "10.0.0.3"};
            for (const char* ip : {first, second}) {
                auto filed = macToIp_->binding(address(ip));
                EXPECT_EQ(macToIp_->bindingDel(filed->vrfIpAddress()), filed);
                EXPECT_FALSE(filed->destroyed());
                EXPECT_FALSE(macToIp_->bindingDel(address(ip)));
                left.erase(ip);
                EXPECT_EQ(addresses(), left);
                EXPECT_EQ(macToIp_->bindings(), left.size());
            }
            macToIp_->bindingDelAll();
            EXPECT_EQ(macToIp_->bindings(), 0u);
        }
    }
}

TEST_F(LocalMacToIpTest, AKeyMayStandInWhatIsRemoved) {
    for (const char* ip : {"10.0.0.1", "10.0.0.2"}) {
        macToIp_->bindingIs(binding(ip)); // which nobody else keeps
    }
    for (const char* ip : {"10.0.0.2", "10.0.0.1"}) {
        const VrfIpAddress& key = macToIp_->binding(address(ip))->vrfIpAddress();
        EXPECT_EQ(macToIp_->bindingDel(key)->vrfIpAddress(), address(ip));
    }
    EXPECT_EQ(macToIp_->bindings(), 0u);
}

TEST_F(LocalMacToIpTest, AVisitMayRemoveAny) {
    const Addresses all = {"10.0.0.1", "10.0.0.2", "10.0.0.3", "10.0.0.4"};
    auto fill = [&] {
        for (const std::string& ip : all) {
            macToIp_->bindingIs(binding(ip.c_str()));
        }
    };
    fill();
    Addresses visited;
    macToIp_->eachBinding([&](const Ptr<LocalBinding>& binding) {
        visited.insert(binding->vrfIpAddress().ipAddress().toStrep());
        macToIp_->bindingDel(binding->vrfIpAddress());
    });
    EXPECT_EQ(visited, all);
    EXPECT_EQ(macToIp_->bindings(), 0u);
    fill();
    unsigned visits = 0;
    macToIp_->eachBinding([&](const Ptr<LocalBinding>&) {
        ++visits;
        macToIp_->bindingDelAll();
    });
    EXPECT_EQ(visits, 1u);
}

TEST_F(LocalMacToIpTest, Prints) {
    EXPECT_EQ(macToIp_->toStrep(), "<vlanId=10 macAddress=02:00:00:00:00:0a>");
    EXPECT_EQ(dumpOf(macToIp_, 2), "  LocalMacToIp <vlanId=10 macAddress=02:00:00:00:00:0a>\n");
    EXPECT_EQ(Vela::toStrep(Ptr<LocalMacToIp>()), "NULL");
}

/// One that lets its two views diverge.
class OpenRecord final : public LocalBindingRecord {
  public:
    using LocalBindingRecord::bindingDel;
    using LocalBindingRecord::bindingDelAll;
    using LocalBindingRecord::bindingIs;
    using LocalBindingRecord::LocalBindingRecord;
    using LocalBindingRecord::macToIpDel;
    using LocalBindingRecord::macToIpDelAll;
    using LocalBindingRecord::macToIpIs;
};

class LocalBindingRecordTest : public Testing::CoreFixture {
  protected:
    LocalBindingRecordTest() {
        // A VRF goes with its last user, unless the test keeps it.
        red_->vrfIdIs(Vrf::VrfId(3));
        status_->addVrfInterfaceWatch(watch_);
        reaction_ = record_->bindingCollection().react(
            nullptr, [this](const VrfIpAddress& key) { announced_.push_back(key); });
    }
    ~LocalBindingRecordTest() override {
        record_->destroy();
        status_->destroy();
    }

    VrfIpAddress address(const char* ip) const { return {red_, IpGenAddr(ip)}; }
    uint32_t uses() const { return record_->vrfReferenceCount(red_); }
    /// Everything that holds between the two views.
    void expectConsistent() const {
        size_t filed = 0;
        for (auto host = record_->macToIpCollection().first(); host; ++host) {
            EXPECT_GT(host.value()->bindings(), 0u);
            EXPECT_FALSE(host.value()->destroyed());
            host.value()->eachBinding([&](const Ptr<LocalBinding>& binding) {
                ++filed;
                EXPECT_FALSE(binding->destroyed());
                EXPECT_EQ(binding->vlanIdMacAddress(), host.key());
                EXPECT_EQ(record_->binding(binding->vrfIpAddress()), binding);
            });
        }
        EXPECT_EQ(filed, record_->bindings());
        EXPECT_EQ(uses(), filed);
    }

    const Ptr<VlanL3InfoStatus> status_ = make<VlanL3InfoStatus>();
    const Ptr<VrfInfo> red_ = status_->vrfInfoIs("red");
    const Ptr<VrfInterfaceWatch> watch_ = make<VrfInterfaceWatch>(red_, "Vlan10");
    const Ptr<OpenRecord> record_ = make<OpenRecord>(status_);
    const VlanIdMacAddress a_{VlanId(10), EthAddr("02:00:00:00:00:0a")};
    const VlanIdMacAddress b_{VlanId(10), EthAddr("02:00:00:00:00:0b")};
    const VlanIdMacAddress a20_{VlanId(20), EthAddr("02:00:00:00:00:0a")};
    std::vector<VrfIpAddress> announced_;
    Vela::Reaction reaction_;
};

TEST_F(LocalBindingRecordTest, StartsEmpty) {
    auto record = localBindingRecordFactory(status_);
    EXPECT_EQ(record->vlanL3InfoStatus(), status_);
    EXPECT_EQ(record->bindings(), 0u);
    EXPECT_EQ(record->macToIps(), 0u);
    EXPECT_FALSE(record->binding(address("10.0.0.1")));
    EXPECT_FALSE(record->bindingHas(address("10.0.0.1")));
    EXPECT_FALSE(record->macToIp(a_));
    EXPECT_FALSE(record->macToIpHas(a_));
}

TEST_F(LocalBindingRecordTest, RecordsItsChangesInTheRingBufferFile) {
    Testing::TemporaryDirectory logs;
    Vela::Swiftlog::defaultDirectoryIs(logs.path());
    Vela::SwiftlogConfig swiftlog;
    swiftlog.fileName = "Bindings.sl";
    Vela::Swiftlog::initialize(swiftlog);
    record_->createLocalBinding(address("10.0.0.1"), a_);
    record_->createLocalBinding(address("10.0.0.1"), b_); // it moves
    record_->deleteLocalBinding(record_->binding(address("10.0.0.1")));
    Vela::SwiftlogReader reader(Vela::Swiftlog::fileName());
    EXPECT_TRUE(reader.problems().empty());
    std::vector<std::string> texts;
    for (const auto& entry : reader.records()) {
        EXPECT_EQ(entry.type->unit, "ArpSuppression/LocalBinding");
        EXPECT_EQ(entry.type->title, "localBinding");
        texts.push_back(entry.text());
    }
    const std::string binding = " vrfName=red ipAddress=10.0.0.1 vlanId=10 macAddress=";
    EXPECT_EQ(texts, (std::vector<std::string>{
                         "change=created" + binding + "02:00:00:00:00:0a",
                         "change=deleted" + binding + "02:00:00:00:00:0a",
                         "change=created" + binding + "02:00:00:00:00:0b",
                         "change=deleted" + binding + "02:00:00:00:00:0b",
                     }));
    Vela::Swiftlog::close();
}

TEST_F(LocalBindingRecordTest, HasABindingByAddressAndByHost) {
    auto binding = record_->createLocalBinding(address("10.0.0.1"), a_);
    EXPECT_EQ(binding->vrfIpAddress(), address("10.0.0.1"));
    EXPECT_EQ(binding->vlanIdMacAddress(), a_);
    EXPECT_FALSE(binding->arpStatusHasDynamicEntry());
    EXPECT_EQ(record_->binding(address("10.0.0.1")), binding);
    EXPECT_EQ(record_->macToIp(a_)->binding(address("10.0.0.1")), binding);
    EXPECT_FALSE(record_->macToIp(a20_));
    EXPECT_EQ(announced_, std::vector<VrfIpAddress>{address("10.0.0.1")});
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, AHostHasAnyNumberOfAddresses) {
    for (const char* ip : {"10.0.0.1", "10.0.0.2", "fe80::1", "2001:db8::1"}) {
        record_->createLocalBinding(address(ip), a_);
        expectConsistent();
    }
    record_->createLocalBinding(address("10.0.0.3"), a20_);
    EXPECT_EQ(record_->macToIp(a_)->bindings(), 4u);
    EXPECT_EQ(record_->macToIp(a20_)->bindings(), 1u);
    EXPECT_EQ(record_->macToIps(), 2u);
    EXPECT_EQ(uses(), 5u);
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, AnAddressMovesToAnotherHost) {
    auto before = record_->createLocalBinding(address("10.0.0.1"), a_);
    announced_.clear();
    std::vector<bool> there;
    auto reaction = record_->bindingCollection().react(
        nullptr, [&](const VrfIpAddress& key) { there.push_back(record_->bindingHas(key)); });
    std::vector<uint32_t> usesSeen;
    auto users = red_->userCollection().react(
        nullptr, [&](const Ptr<VrfUser>&) { usesSeen.push_back(uses()); });
    auto after = record_->createLocalBinding(address("10.0.0.1"), b_);
    EXPECT_NE(after, before);
    EXPECT_TRUE(before->destroyed());
    EXPECT_EQ(record_->bindings(), 1u);
    EXPECT_EQ(record_->binding(address("10.0.0.1")), after);
    EXPECT_FALSE(record_->macToIpHas(a_)) << "it had no other address";
    EXPECT_TRUE(record_->macToIpHas(b_));
    EXPECT_EQ(uses(), 1u);
    EXPECT_TRUE(usesSeen.empty()) << "the VRF was never let go";
    EXPECT_EQ(announced_, (std::vector<VrfIpAddress>{address("10.0.0.1"), address("10.0.0.1")}));
    EXPECT_EQ(there, (std::vector<bool>{false, true}));
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, AMovedAddressLeavesTheHostsOthers) {
    record_->createLocalBinding(address("10.0.0.1"), a_);
    auto other = record_->createLocalBinding(address("10.0.0.2"), a_);
    record_->createLocalBinding(address("10.0.0.1"), a20_); // the same MAC on another VLAN
    EXPECT_EQ(record_->macToIp(a_)->bindings(), 1u);
    EXPECT_EQ(record_->macToIp(a_)->binding(address("10.0.0.2")), other);
    EXPECT_TRUE(record_->macToIp(a20_)->bindingHas(address("10.0.0.1")));
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, TheSameBindingAgainIsAnotherObject) {
    auto before = record_->createLocalBinding(address("10.0.0.1"), a_);
    before->arpStatusHasDynamicEntryIs(true);
    announced_.clear();
    // The arguments stand in what is replaced.
    auto after = record_->createLocalBinding(before->vrfIpAddress(),
                                             record_->macToIp(a_)->vlanIdMacAddress());
    EXPECT_NE(after, before);
    EXPECT_FALSE(after->arpStatusHasDynamicEntry());
    EXPECT_TRUE(before->destroyed());
    EXPECT_EQ(announced_.size(), 2u);
    EXPECT_EQ(uses(), 1u);
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, TheLastBindingTakesItsHostAlong) {
    auto first = record_->createLocalBinding(address("10.0.0.1"), a_);
    auto second = record_->createLocalBinding(address("10.0.0.2"), a_);
    auto host = record_->macToIp(a_);
    announced_.clear();
    record_->deleteLocalBinding(first);
    EXPECT_TRUE(first->destroyed());
    EXPECT_FALSE(second->destroyed());
    EXPECT_EQ(record_->macToIp(a_), host);
    EXPECT_EQ(uses(), 1u);
    expectConsistent();
    record_->deleteLocalBinding(second);
    EXPECT_FALSE(record_->macToIpHas(a_));
    EXPECT_TRUE(host->destroyed());
    EXPECT_EQ(record_->bindings(), 0u);
    EXPECT_FALSE(record_->vrfReferenceCountHas(red_));
    EXPECT_EQ(announced_, (std::vector<VrfIpAddress>{address("10.0.0.1"), address("10.0.0.2")}));
}

TEST_F(LocalBindingRecordTest, TheLastBindingOfAVrfLetsItGo) {
    record_->createLocalBinding(address("10.0.0.1"), a_);
    record_->createLocalBinding(address("10.0.0.2"), b_);
    status_->delVrfInterfaceWatch(watch_);
    EXPECT_TRUE(status_->vrfInfoCollection().has("red"));
    record_->deleteLocalBinding(record_->binding(address("10.0.0.1")));
    EXPECT_TRUE(status_->vrfInfoCollection().has("red"));
    record_->deleteLocalBinding(record_->binding(address("10.0.0.2")));
    EXPECT_FALSE(status_->vrfInfoCollection().has("red"));
    EXPECT_EQ(record_->vrfUserCollection().count(), 0u);
}

TEST_F(LocalBindingRecordTest, ReactionsMayChangeOtherAddressesOfTheHost) {
    record_->createLocalBinding(address("10.0.0.1"), a_);
    record_->createLocalBinding(address("10.0.0.2"), a_);
    unsigned calls = 0;
    auto reaction = record_->bindingCollection().react(nullptr, [&](const VrfIpAddress& key) {
        ++calls;
        if (key == address("10.0.0.1")) {
            record_->deleteLocalBinding(record_->binding(address("10.0.0.2")));
            record_->createLocalBinding(address("10.0.0.3"), a_);
        }
    });
    record_->deleteLocalBinding(record_->binding(address("10.0.0.1")));
    EXPECT_EQ(calls, 3u);
    EXPECT_TRUE(record_->bindingHas(address("10.0.0.3")));
    EXPECT_EQ(record_->bindings(), 1u);
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, AWalkMeetsWhatStays) {
    for (unsigned i = 0; i < 500; ++i) {
        VrfIpAddress key(red_, IpGenAddr(0x0A000000u + i));
        record_->createLocalBinding(key, i % 2 ? a_ : b_);
    }
    std::set<VrfIpAddress> met;
    for (auto cursor = record_->bindingCollection().first(); cursor; ++cursor) {
        met.insert(cursor.key());
        if (cursor.value()->vlanIdMacAddress() == a_) {
            record_->deleteLocalBinding(cursor.value());
        }
    }
    EXPECT_EQ(met.size(), 500u);
    EXPECT_EQ(record_->bindings(), 250u);
    EXPECT_FALSE(record_->macToIpHas(a_));
    expectConsistent();
}

TEST_F(LocalBindingRecordTest, AgreesWithAMapWhateverIsDone) {
    std::map<VrfIpAddress, VlanIdMacAddress> model;
    std::mt19937 random(1);
    auto below = [&](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    for (unsigned step = 0; step < 3000; ++step) {
        VrfIpAddress key(red_, IpGenAddr(0x0A000000u + below(30)));
        // In turns the record grows and shrinks.
        if (below(4) < (step / 200 % 2 ? 3u : 1u)) {
            VlanIdMacAddress host(
                VlanId(10 + below(2)),
                EthAddr(EthAddr::Bytes{2, 0, 0, 0, 0, static_cast<uint8_t>(below(6))}));
            auto binding = record_->createLocalBinding(key, host);
            EXPECT_FALSE(binding->arpStatusHasDynamicEntry());
            binding->arpStatusHasDynamicEntryIs(true);
            model[key] = host;
        } else if (auto binding = record_->binding(key)) {
            record_->deleteLocalBinding(binding);
            model.erase(key);
        }
        ASSERT_EQ(record_->bindings(), model.size());
        for (const auto& [address, host] : model) {
            ASSERT_TRUE(record_->bindingHas(address));
            ASSERT_EQ(record_->binding(address)->vlanIdMacAddress(), host);
        }
        expectConsistent();
        ASSERT_FALSE(HasFailure()) << "step " << step;
    }
}

TEST_F(LocalBindingRecordTest, FindsOrCreatesInEachView) {
    auto binding = record_->bindingIs(address("10.0.0.1"), a_);
    EXPECT_EQ(record_->bindingIs(address("10.0.0.1"), a_), binding);
    EXPECT_THROW(record_->bindingIs(address("10.0.0.1"), b_), Vela::EntryExistsError);
    EXPECT_EQ(record_->binding(address("10.0.0.1")), binding);
    EXPECT_EQ(record_->bindingDel(address("10.0.0.1")), binding);
    EXPECT_TRUE(binding->destroyed());
    EXPECT_FALSE(record_->bindingDel(address("10.0.0.1")));
    auto host = record_->macToIpIs(a_);
    EXPECT_EQ(record_->macToIpIs(a_), host);
    EXPECT_EQ(record_->macToIpDel(a_), host);
    EXPECT_TRUE(host->destroyed());
    EXPECT_FALSE(record_->macToIpDel(a_));
    record_->bindingIs(address("10.0.0.1"), a_);
    record_->macToIpIs(a_);
    record_->bindingDelAll();
    record_->macToIpDelAll();
    EXPECT_EQ(record_->bindings() + record_->macToIps(), 0u);
}

TEST_F(LocalBindingRecordTest, EverythingEndsWithIt) {
    auto first = record_->createLocalBinding(address("10.0.0.1"), a_);
    auto second = record_->createLocalBinding(address("10.0.0.2"), a_);
    auto host = record_->macToIp(a_);
    status_->delVrfInterfaceWatch(watch_);
    record_->destroy();
    EXPECT_TRUE(first->destroyed() && second->destroyed() && host->destroyed());
    EXPECT_EQ(record_->bindings() + record_->macToIps(), 0u);
    EXPECT_FALSE(status_->vrfInfoCollection().has("red"));
}

TEST_F(LocalBindingRecordTest, Traces) {
    Testing::TraceCapture lines("ArpSuppression=8");
    const std::string vrf = "<<vrfName=red vrfId=3>;10.0.0.1;>";
    const std::string host = "<vlanId=10 macAddress=02:00:00:00:00:0a>";
    const std::string binding = "<" + vrf + ";" + host + ";dynSt=no >";
    record_->createLocalBinding(address("10.0.0.1"), a_);
    EXPECT_EQ(lines.count(" vrfIpAddress=" + vrf + " vlanIdMacAddress=" + host +
                          " existingBinding=NULL\n"),
              1u)
        << lines.text();
    record_->createLocalBinding(address("10.0.0.1"), a_);
    EXPECT_EQ(lines.count(" existingBinding=" + binding + "\n"), 1u) << lines.text();
    EXPECT_EQ(lines.count(" binding=" + binding + "\n"), 1u) << lines.text();
    EXPECT_EQ(lines.count("ArpSuppression/LocalBinding:"), 3u) << lines.text();
}

TEST_F(LocalBindingRecordTest, Dumps) {
    EXPECT_EQ(dumpOf(record_, 2), "  LocalBindingRecord\n"
                                  "      binding #0\n"
                                  "      macToIp #0\n"
                                  "      vrfReferenceCount #0\n"
                                  "      vrfUser #0\n");
    record_->createLocalBinding(address("10.0.0.1"), a_)->arpStatusHasDynamicEntryIs(true);
    EXPECT_EQ(dumpOf(record_, 0), "LocalBindingRecord\n"
                                  "    binding #1\n"
                                  "        LocalBinding <<<vrfName=red vrfId=3>;10.0.0.1;>;"
                                  "<vlanId=10 macAddress=02:00:00:00:00:0a>;dynSt=yes >\n"
                                  "    macToIp #1\n"
                                  "        LocalMacToIp <vlanId=10 macAddress=02:00:00:00:00:0a>\n"
                                  "    vrfReferenceCount #1\n"
                                  "      red 1\n"
                                  "    vrfUser #1\n"
                                  "      red\n");
}

void expectAssertion(const char* text, void (*diverge)(OpenRecord&, const Ptr<LocalBinding>&)) {
    EXPECT_EXIT(
        {
            auto status = make<VlanL3InfoStatus>();
            auto record = make<OpenRecord>(status);
            auto binding = record->createLocalBinding(
                VrfIpAddress(status->vrfInfoIs("red"), IpGenAddr("10.0.0.1")),
                VlanIdMacAddress(VlanId(10), EthAddr("02:00:00:00:00:0a")));
            diverge(*record, binding);
        },
        testing::KilledBySignal(SIGABRT),
        std::string("(^|\n)ArpSuppression/LocalBinding:[0-9]+ deleteLocalBinding: "
                    "assertion failed \"") +
            text + "\"\n");
}

TEST(LocalBindingRecordDeathTest, DeletesOnlyTheObjectThatItHas) {
    expectAssertion("deletedBinding == _binding", [](auto& record, const auto& binding) {
        record.deleteLocalBinding(
            make<LocalBinding>(binding->vrfIpAddress(), binding->vlanIdMacAddress()));
    });
    expectAssertion("deletedBinding == _binding", [](auto& record, const auto& binding) {
        record.deleteLocalBinding(binding);
        record.deleteLocalBinding(binding);
    });
}

TEST(LocalBindingRecordDeathTest, TheViewsNeverDiverge) {
    expectAssertion("nullptr != _macToIp", [](auto& record, const auto& binding) {
        record.macToIpDel(binding->vlanIdMacAddress());
        record.deleteLocalBinding(binding);
    });
    expectAssertion("deletedBinding == _binding", [](auto& record, const auto& binding) {
        record.macToIpIs(binding->vlanIdMacAddress())->bindingDel(binding->vrfIpAddress());
        record.deleteLocalBinding(binding);
    });
    expectAssertion("deletedBinding == _binding", [](auto& record, const auto& binding) {
        record.macToIpIs(binding->vlanIdMacAddress())
            ->bindingIs(make<LocalBinding>(binding->vrfIpAddress(), binding->vlanIdMacAddress()));
        record.deleteLocalBinding(binding);
    });
}

} // namespace
} // namespace ArpSuppression
