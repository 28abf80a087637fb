#pragma once

#include "Platform/Model/Arp/ArpKey.h"
#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/State/ObjectReference.h"
#include "Platform/Value/EthAddr.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/IpGenAddr.h"
#include "Platform/Value/VlanId.h"
#include "Platform/Value/VrfId.h"
#include "Platform/Value/VrfName.h"

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

namespace ArpSuppression {

class VrfInterfaceWatch;
class VrfUser;

/// A VRF in use. Exists once per VRF and run of suppression: keys compare it by identity. Once its
/// life has ended it has no users and no watches, and takes none.
class VrfInfo final : public Vela::Referable {
  public:
    using UserCollection = Vela::Map<Vela::Ptr<VrfUser>, bool>;
    using InterfaceWatchCollection = Vela::Map<std::string, Vela::Ptr<VrfInterfaceWatch>>;

    explicit VrfInfo(L3::VrfName vrfName) : vrfName_(std::move(vrfName)) {}

    const char* typeName() const noexcept override { return "VrfInfo"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;
    std::string toStrep() const;

    const std::string& vrfName() const { return vrfName_.bytes(); }
    const L3::VrfName& name() const { return vrfName_; }

    /// Invalid while the VRF's name has no id. The setter announces only a change.
    Vrf::VrfId vrfId() const { return vrfId_.get(); }
    const Vela::Attribute<Vrf::VrfId>& vrfIdAttribute() const { return vrfId_; }
    void vrfIdIs(Vrf::VrfId vrfId) { vrfId_.set(vrfId); }

    /// Name of the VRF's kernel network namespace; empty while unknown.
    const std::string& netNs() const { return netNs_; }
    /// Announces nothing, like netlinkSocketIs: what depends on it is told of the watches' indexes.
    void netNsIs(std::string netNs) { netNs_ = std::move(netNs); }

    /// A netlink socket in that namespace, owned by who opened it; 0 for none.
    uint32_t netlinkSocket() const { return netlinkSocket_; }
    void netlinkSocketIs(uint32_t netlinkSocket) { netlinkSocket_ = netlinkSocket; }

    /// Whether the VRF has a namespace and a netlink socket in it; traces what is missing.
    bool usable() const;

    /// The collections announce the key of an entry that is added, changed or removed.
    const UserCollection& userCollection() const { return user_; }
    void userIs(const Vela::Ptr<VrfUser>& user, bool flag);
    void userDel(const Vela::Ptr<VrfUser>& user) { user_.del(user); }
    void userDelAll() { user_.delAll(); }

    /// By kniIntfName.
    const InterfaceWatchCollection& interfaceWatchCollection() const { return interfaceWatch_; }
    void interfaceWatchIs(const Vela::Ptr<VrfInterfaceWatch>& watch);
    void interfaceWatchDel(const std::string& kniIntfName) { interfaceWatch_.del(kniIntfName); }
    void interfaceWatchDelAll() { interfaceWatch_.delAll(); }

  protected:
    void handleDestroy() noexcept override;

  private:
    friend class VlanL3InfoStatus;
    friend class VrfInterfaceWatch;

    const char* missing() const;

    const L3::VrfName vrfName_;
    Vela::Attribute<Vrf::VrfId> vrfId_;
    std::string netNs_;
    uint32_t netlinkSocket_ = 0;
    UserCollection user_;
    InterfaceWatchCollection interfaceWatch_;
    bool awaitsWatch_ = true;      // asked for to carry a watch that is not registered yet
    uint32_t arrivingWatches_ = 0; // registered, but not in interfaceWatch_ yet
};

/// Anything that uses a VRF. A registered user and its VrfInfo refer to each other until one of
/// them is let go: the user is unregistered or the VrfInfo ends, with VlanL3InfoStatus at the
/// latest.
class VrfUser : public Vela::Entity {
  public:
    explicit VrfUser(Vela::Ptr<VrfInfo> vrfInfo) : vrfInfo_(std::move(vrfInfo)) {}

    const char* typeName() const noexcept override { return "VrfUser"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// May be empty.
    const Vela::Ptr<VrfInfo>& vrfInfo() const { return vrfInfo_; }

  protected:
    std::string vrfName() const { return vrfInfo_ ? vrfInfo_->vrfName() : std::string(); }

  private:
    const Vela::Ptr<VrfInfo> vrfInfo_;
};

/// A user that watches one kernel interface of the VRF.
class VrfInterfaceWatch : public VrfUser {
  public:
    VrfInterfaceWatch(Vela::Ptr<VrfInfo> vrfInfo, std::string intfName);

    const char* typeName() const noexcept override { return "VrfInterfaceWatch"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;
    std::string toStrep() const;

    /// The kernel interface's name, by which VlanL3InfoStatus knows the watch.
    const std::string& intfName() const { return intfName_; }
    /// Its name as seen in the VRF's namespace.
    const std::string& kniIntfName() const { return kniIntfName_; }

    /// Its kernel index; 0 while unknown or not running. The setter announces only a change.
    uint32_t kniIntfIfIndex() const { return kniIntfIfIndex_.get(); }
    const Vela::Attribute<uint32_t>& kniIntfIfIndexAttribute() const { return kniIntfIfIndex_; }
    void kniIntfIfIndexIs(uint32_t ifIndex) { kniIntfIfIndex_.set(ifIndex); }

    /// Whether packets can be sent on the interface: there is a usable VRF and an index.
    bool usable() const;

  private:
    const std::string intfName_;
    const std::string kniIntfName_;
    Vela::Attribute<uint32_t> kniIntfIfIndex_;
};

/// A VLAN's routed interface: its VRF and its addresses.
class VlanL3Info final : public VrfInterfaceWatch {
  public:
    using IpAddressCollection = Vela::Map<Zinc::IpGenAddr, bool>;

    VlanL3Info(Vela::Ptr<VrfInfo> vrfInfo, Bridging::VlanId vlanId);

    const char* typeName() const noexcept override { return "VlanL3Info"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;
    std::string toStrep() const;

    /// "Vlan10"
    static std::string constructIntfNameFromVlanId(Bridging::VlanId vlanId);

    Bridging::VlanId vlanId() const { return vlanId_; }
    /// The interface id of the VLAN interface, which link-local keys carry.
    Zinc::IntfId vlanIntfId() const { return vlanIntfId_; }

    const IpAddressCollection& ipAddressCollection() const { return ipAddress_; }
    void ipAddressIs(const Zinc::IpGenAddr& address, bool flag) { ipAddress_.set(address, flag); }
    void ipAddressDel(const Zinc::IpGenAddr& address) { ipAddress_.del(address); }
    void ipAddressDelAll() { ipAddress_.delAll(); }

  private:
    const Bridging::VlanId vlanId_;
    const Zinc::IntfId vlanIntfId_;
    IpAddressCollection ipAddress_;
};

/// What the agent knows of the switch's routing: the VLANs with a routed interface, the VRFs in
/// use, and the interfaces watched.
///
/// A VrfInfo lives while it has a user or an interface watch and goes with the last of them; one
/// that was asked for with `vrfInfoIs` stays until it has had a watch after that. Users and
/// watches are registered here: what is filed in the VrfInfo alone does not end it when it goes.
/// Reactions may call back: the model is consistent whenever one runs, but for a watch being added
/// or removed, which the VrfInfo is told of last.
class VlanL3InfoStatus final : public Vela::Entity {
  public:
    using VlanL3InfoCollection = Vela::Map<Bridging::VlanId, Vela::Ptr<VlanL3Info>>;
    using VrfInfoCollection = Vela::Map<L3::VrfName, Vela::Ptr<VrfInfo>>;
    using VrfInterfaceWatchCollection = Vela::Map<std::string, Vela::Ptr<VrfInterfaceWatch>>;

    const char* typeName() const noexcept override { return "VlanL3InfoStatus"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const VlanL3InfoCollection& vlanL3InfoCollection() const { return vlanL3Info_; }
    Vela::Ptr<VlanL3Info> vlanL3Info(Bridging::VlanId vlanId) const {
        return vlanL3Info_.value(vlanId);
    }
    /// Raises EntryExistsError if the VLAN has a record in another VRF.
    Vela::Ptr<VlanL3Info> vlanL3InfoIs(const Vela::Ptr<VrfInfo>& vrfInfo, Bridging::VlanId vlanId);
    void vlanL3InfoDel(Bridging::VlanId vlanId);
    void vlanL3InfoDelAll();

    /// The VLAN's record if packets can be sent on its interface now; otherwise none.
    Vela::Ptr<const VlanL3Info> usableVlanL3Info(Bridging::VlanId vlanId) const;
    Vela::Ptr<VlanL3Info> usableVlanL3InfoNonConst(Bridging::VlanId vlanId);

    const VrfInfoCollection& vrfInfoCollection() const { return vrfInfo_; }
    Vela::Ptr<VrfInfo> vrfInfo(const L3::VrfName& vrfName) const { return vrfInfo_.value(vrfName); }
    Vela::Ptr<VrfInfo> vrfInfoIs(const L3::VrfName& vrfName);
    void vrfInfoDelAll();

    const VrfInterfaceWatchCollection& vrfInterfaceWatchCollection() const {
        return vrfInterfaceWatch_;
    }
    Vela::Ptr<VrfInterfaceWatch> vrfInterfaceWatch(const std::string& intfName) const {
        return vrfInterfaceWatch_.value(intfName);
    }
    void vrfInterfaceWatchDelAll();

    void addVrfUser(const Vela::Ptr<VrfUser>& user);
    void delVrfUser(const Vela::Ptr<VrfUser>& user);

    /// One watch at a time per interface name.
    void addVrfInterfaceWatch(const Vela::Ptr<VrfInterfaceWatch>& watch);
    void delVrfInterfaceWatch(const Vela::Ptr<VrfInterfaceWatch>& watch);
    Vela::Ptr<VrfInterfaceWatch> findOrCreateVrfInterfaceWatch(const std::string& intfName,
                                                               const L3::VrfName& vrfName);

    /// The VLAN whose information changed last. The setter announces every call: the same VLAN may
    /// change twice in a row.
    Bridging::VlanIdOrNone updatedVlanId() const { return updatedVlanId_.get(); }
    const Vela::Attribute<Bridging::VlanIdOrNone>& updatedVlanIdAttribute() const {
        return updatedVlanId_;
    }
    void updatedVlanIdIs(Bridging::VlanIdOrNone vlanId) { updatedVlanId_.setAlways(vlanId); }
    /// Announces none and then the record's VLAN. A reaction may announce another VLAN meanwhile:
    /// those after it are told of that one last, and read `updatedVlanId` when they are called.
    void vlanUpdated(const Vela::Ptr<const VlanL3Info>& vlanL3Info);

    /// Whether every VLAN of the published status has been looked at once. The setter announces
    /// only a change.
    bool initialArpSuppressionStatusSync() const { return initialArpSuppressionStatusSync_.get(); }
    const Vela::Attribute<bool>& initialArpSuppressionStatusSyncAttribute() const {
        return initialArpSuppressionStatusSync_;
    }
    void initialArpSuppressionStatusSyncIs(bool sync) {
        initialArpSuppressionStatusSync_.set(sync);
    }

  protected:
    ~VlanL3InfoStatus() override;
    void handleDestroy() noexcept override;

  private:
    void updateVrfOf(const Vela::Ptr<VrfInterfaceWatch>& watch);
    void removeIfUnused(const Vela::Ptr<VrfInfo>& vrfInfo);

    VlanL3InfoCollection vlanL3Info_;
    VrfInfoCollection vrfInfo_;
    VrfInterfaceWatchCollection vrfInterfaceWatch_;
    Vela::Attribute<Bridging::VlanIdOrNone> updatedVlanId_;
    Vela::Attribute<bool> initialArpSuppressionStatusSync_;
};

/// The VLANs on which suppression is enabled.
class EnabledVlans final : public Vela::Entity {
  public:
    using VlanIdCollection = Vela::Set<Bridging::VlanId>;

    const char* typeName() const noexcept override { return "EnabledVlans"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const VlanIdCollection& vlanIdCollection() const { return vlanId_; }
    size_t vlanIds() const { return vlanId_.count(); }
    bool vlanIdHas(Bridging::VlanId vlanId) const { return vlanId_.has(vlanId); }
    void vlanIdIs(Bridging::VlanId vlanId) { vlanId_.set(vlanId, {}); }
    void vlanIdDel(Bridging::VlanId vlanId) { vlanId_.del(vlanId); }
    void vlanIdDelAll() { vlanId_.delAll(); }

  private:
    VlanIdCollection vlanId_;
};

/// The sub-interface whose VLAN encapsulation matched a frame.
class SubInterfaceInfo final : public Vela::Entity {
  public:
    SubInterfaceInfo(Zinc::IntfId subIntfId, uint8_t numVlanMatched)
        : subIntfId_(subIntfId), numVlanMatched_(numVlanMatched) {}

    const char* typeName() const noexcept override { return "SubInterfaceInfo"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId subIntfId() const { return subIntfId_; }
    /// How many VLAN tags of the frame the match consumed.
    uint8_t numVlanMatched() const { return numVlanMatched_; }

  private:
    const Zinc::IntfId subIntfId_;
    const uint8_t numVlanMatched_;
};

Vela::Ptr<SubInterfaceInfo> SubInterfaceInfoIs(Zinc::IntfId subIntfId, uint8_t numVlanMatched);

/// An IP address in a VRF; the key of the binding tables. An IPv6 link-local address is scoped to
/// its interface, every other address to the VRF alone.
class VrfIpAddress {
  public:
    VrfIpAddress() = default;
    VrfIpAddress(Vela::Ptr<VrfInfo> vrfInfo, const Zinc::IpGenAddr& ipAddress,
                 Zinc::IntfId intfId = {})
        : vrfInfo_(std::move(vrfInfo)), ipAddress_(ipAddress), intfId_(intfId) {}
    /// Reads the value form; throws ParseError.
    explicit VrfIpAddress(std::string_view valueForm);
    static VrfIpAddress fromValue(Vela::ValueParser& parser);

    /// The key of an address seen on a VLAN interface. Without a record there is no VRF either.
    static VrfIpAddress fromVlanL3Info(const Vela::Ptr<const VlanL3Info>& vlanL3Info,
                                       const Zinc::IpGenAddr& ipAddress);
    /// The key of a kernel neighbour entry; empty if its interface is no VLAN interface or the
    /// VLAN has no record. An interface "Vlan0" or "Vlan4095" raises VlanId's range error.
    static VrfIpAddress fromArpKey(const VlanL3InfoStatus& vlanL3InfoStatus,
                                   const Arp::Table::ArpKey& arpKey);

    VrfIpAddress constMe() const { return *this; }

    const Vela::Ptr<VrfInfo>& vrfInfo() const { return vrfInfo_; }
    const Zinc::IpGenAddr& ipAddress() const { return ipAddress_; }
    Zinc::IntfId intfId() const { return intfId_; }

    explicit operator bool() const { return *this != VrfIpAddress(); }
    /// Orders VRFs by the identity of their VrfInfo, which says nothing about their names.
    friend bool operator==(const VrfIpAddress&, const VrfIpAddress&) = default;
    friend std::strong_ordering operator<=>(const VrfIpAddress& a, const VrfIpAddress& b);

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;
    friend std::ostream& operator<<(std::ostream& out, const VrfIpAddress& v) {
        return out << v.valueToStrep();
    }

  private:
    Vela::Ptr<VrfInfo> vrfInfo_;
    Zinc::IpGenAddr ipAddress_;
    Zinc::IntfId intfId_;
};
static_assert(sizeof(VrfIpAddress) <= 32);

/// A MAC address on a VLAN; the key of the host side of the binding tables.
class VlanIdMacAddress {
  public:
    VlanIdMacAddress() = default;
    VlanIdMacAddress(Bridging::VlanId vlanId, const Zinc::EthAddr& macAddress)
        : vlanId_(vlanId), macAddress_(macAddress) {}
    /// Reads the value form; throws ParseError.
    explicit VlanIdMacAddress(std::string_view valueForm);
    static VlanIdMacAddress fromValue(Vela::ValueParser& parser);

    Bridging::VlanId vlanId() const { return vlanId_; }
    const Zinc::EthAddr& macAddress() const { return macAddress_; }

    explicit operator bool() const { return *this != VlanIdMacAddress(); }
    friend bool operator==(const VlanIdMacAddress&, const VlanIdMacAddress&) = default;
    friend std::strong_ordering operator<=>(const VlanIdMacAddress&,
                                            const VlanIdMacAddress&) = default;

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;
    friend std::ostream& operator<<(std::ostream& out, const VlanIdMacAddress& v) {
        return out << v.valueToStrep();
    }

  private:
    Bridging::VlanId vlanId_;
    Zinc::EthAddr macAddress_;
};
static_assert(sizeof(VlanIdMacAddress) == 8);

/// Where the walk over the ARP input configuration goes on.
class ArpInputConfigBookmark {
  public:
    ArpInputConfigBookmark() = default;
    ArpInputConfigBookmark(std::string vrfName, const Zinc::IpGenAddr& ipAddress,
                           Zinc::IntfId intfId)
        : vrfName_(std::move(vrfName)), ipAddress_(ipAddress), intfId_(intfId) {}
    /// Reads the value form; throws ParseError.
    explicit ArpInputConfigBookmark(std::string_view valueForm);
    static ArpInputConfigBookmark fromValue(Vela::ValueParser& parser);

    const std::string& vrfName() const { return vrfName_; }
    const Zinc::IpGenAddr& ipAddress() const { return ipAddress_; }
    Zinc::IntfId intfId() const { return intfId_; }

    explicit operator bool() const { return *this != ArpInputConfigBookmark(); }
    friend bool operator==(const ArpInputConfigBookmark&, const ArpInputConfigBookmark&) = default;
    friend std::strong_ordering operator<=>(const ArpInputConfigBookmark&,
                                            const ArpInputConfigBookmark&) = default;

    uint64_t hash(uint64_t seed) const;
    std::string toStrep() const;
    std::string valueToStrep() const;
    friend std::ostream& operator<<(std::ostream& out, const ArpInputConfigBookmark& v) {
        return out << v.valueToStrep();
    }

  private:
    std::string vrfName_;
    Zinc::IpGenAddr ipAddress_;
    Zinc::IntfId intfId_;
};

} // namespace ArpSuppression
