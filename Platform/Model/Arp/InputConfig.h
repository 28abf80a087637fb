#pragma once

#include "Platform/Model/Arp/InputConfigEntry.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/VrfName.h"

#include <optional>

namespace Arp {

/// The neighbour entries wanted in a VRF, by family. What writes an entry announces it only if it
/// is new or differs; see InputConfigEntry::carriedOut about its marks. When the object's life
/// ends the entries go, each announced.
class InputConfigVrf final : public Vela::Entity {
  public:
    using EntryCollection = Vela::HashMap<InputConfigKey, InputConfigEntry>;

    explicit InputConfigVrf(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

    const char* typeName() const noexcept override { return "Arp::InputConfigVrf"; }
    void formatDerivedType(std::ostream& out) const override;
    /// Counts the entries, which may be many, and does not list them.
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const L3::VrfName& vrfName() const { return vrfName_; }

    const EntryCollection& ipv4EntryCollection() const { return ipv4Entry_; }
    const EntryCollection& ipv6EntryCollection() const { return ipv6Entry_; }
    size_t ipv4Entries() const { return ipv4Entry_.count(); }
    size_t ipv6Entries() const { return ipv6Entry_.count(); }

    // The family is that of the key's address, which must have one: anything else is a programming
    // error.

    void afEntryDynamicIs(const InputConfigKey& key, const Zinc::EthAddr& macAddress,
                          ArpSource source, QuickRefresh quickRefresh);
    void afEntryPermanentIs(const InputConfigKey& key, const Zinc::EthAddr& macAddress,
                            ArpSource source);
    /// Null when absent; valid while the entry stays and is not changed.
    const InputConfigEntry* afEntry(const InputConfigKey& key) const;
    /// Returns whether there was one.
    bool afEntryDel(const InputConfigKey& key);

    /// What stood under the key that is being announced before it changed or went, with its marks;
    /// nothing if the entry is new. Until the VRF changes again.
    const std::optional<InputConfigEntry>& replacedEntry() const { return replaced_; }

  protected:
    void handleDestroy() noexcept override;

  private:
    const EntryCollection& afEntryCollection(const InputConfigKey& key) const;
    EntryCollection& afEntryCollection(const InputConfigKey& key);
    void afEntryIs(const InputConfigKey& key, const InputConfigEntry& entry);
    void noteReplaced(const InputConfigKey& key);

    const L3::VrfName vrfName_;
    EntryCollection ipv4Entry_;
    EntryCollection ipv6Entry_;
    std::optional<InputConfigEntry> replaced_;
};

/// The neighbour entries that one agent wants to see in the kernel; owns the entries of the VRFs.
class InputConfig final : public Vela::Entity {
  public:
    using VrfCollection = Vela::Map<L3::VrfName, Vela::Ptr<InputConfigVrf>>;

    const char* typeName() const noexcept override { return "Arp::InputConfig"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// Says that the agent is there. What an earlier run left stays, for the agent to confirm or
    /// remove. Announces only the first call.
    void doInit() { initialized_.set(true); }
    bool initialized() const { return initialized_.get(); }
    const Vela::Attribute<bool>& initializedAttribute() const { return initialized_; }

    /// The agent that writes here. The setter announces only a change.
    ArpSource source() const { return source_.get(); }
    const Vela::Attribute<ArpSource>& sourceAttribute() const { return source_; }
    void sourceIs(ArpSource source) { source_.set(source); }

    const VrfCollection& vrfCollection() const { return vrf_; }
    size_t vrfs() const { return vrf_.count(); }
    Vela::Ptr<InputConfigVrf> vrf(const L3::VrfName& vrfName) const { return vrf_.value(vrfName); }
    Vela::Ptr<InputConfigVrf> vrfIs(const L3::VrfName& vrfName);
    void vrfDel(const L3::VrfName& vrfName);
    void vrfDelAll();

  protected:
    void handleDestroy() noexcept override { vrfDelAll(); }

  private:
    Vela::Attribute<bool> initialized_;
    Vela::Attribute<ArpSource> source_;
    VrfCollection vrf_;
};

} // namespace Arp
