#pragma once

#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"
#include "Platform/Value/VlanTag.h"

#include <ostream>
#include <string>

namespace Vela {
class ValueParser;
}

namespace Brant {

/// The VLAN tags that a sub-interface's frames carry; untagged stands for a tag that is not there.
/// toStrep: <outer=<tpid=0x8100 vlanId=10> inner=<tpid=0x8100 vlanId=20>>
/// Value form: Value('Brant::IntfEncap', ** {'outer': Value('Bridging::VlanTag', ** {'tpid': 33024,
/// 'vlanId': 10}), 'inner': Value('Bridging::VlanTag', ** {'tpid': 33024, 'vlanId': 20})})
class IntfEncap {
  public:
    constexpr IntfEncap() = default;
    explicit constexpr IntfEncap(Bridging::VlanTag outer, Bridging::VlanTag inner = {})
        : outer_(outer), inner_(inner) {}
    static IntfEncap fromValue(Vela::ValueParser& parser);

    constexpr Bridging::VlanTag outer() const { return outer_; }
    constexpr Bridging::VlanTag inner() const { return inner_; }

    std::string toStrep() const;
    std::string valueToStrep() const;

    friend constexpr bool operator==(IntfEncap, IntfEncap) = default;
    friend std::ostream& operator<<(std::ostream& out, IntfEncap v) {
        return out << v.valueToStrep();
    }

  private:
    Bridging::VlanTag outer_;
    Bridging::VlanTag inner_;
};

/// The sub-interfaces of an interface. The setter announces only a change.
class IntfEncapParent final : public Vela::Entity {
  public:
    using SubIntfCollection = Vela::Map<Zinc::IntfId, IntfEncap>;

    explicit IntfEncapParent(Zinc::IntfId parentIntfId) : parentIntfId_(parentIntfId) {}

    const char* typeName() const noexcept override { return "Brant::IntfEncapParent"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId parentIntfId() const { return parentIntfId_; }

    const SubIntfCollection& subIntfCollection() const { return subIntf_; }
    void subIntfIs(Zinc::IntfId subIntfId, IntfEncap encap) { subIntf_.set(subIntfId, encap); }
    void subIntfDel(Zinc::IntfId subIntfId) { subIntf_.del(subIntfId); }
    void subIntfDelAll() { subIntf_.delAll(); }

  private:
    const Zinc::IntfId parentIntfId_;
    SubIntfCollection subIntf_;
};

/// The encapsulations of all sub-interfaces, by the interface that they are part of; it owns the
/// entries.
class IntfEncapServiceIntfColl final : public Vela::Entity {
  public:
    using ParentCollection = Vela::Map<Zinc::IntfId, Vela::Ptr<IntfEncapParent>>;

    const char* typeName() const noexcept override { return "Brant::IntfEncapServiceIntfColl"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const ParentCollection& parentCollection() const { return parent_; }
    Vela::Ptr<IntfEncapParent> parent(Zinc::IntfId parentIntfId) const {
        return parent_.value(parentIntfId);
    }
    Vela::Ptr<IntfEncapParent> parentIs(Zinc::IntfId parentIntfId);
    void parentDel(Zinc::IntfId parentIntfId);
    void parentDelAll();

  protected:
    void handleDestroy() noexcept override { parentDelAll(); }

  private:
    ParentCollection parent_;
};

} // namespace Brant
