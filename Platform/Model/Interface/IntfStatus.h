#pragma once

#include "Platform/State/Attribute.h"
#include "Platform/State/Collection.h"
#include "Platform/Value/IntfId.h"

#include <string>

namespace Interface {

/// An interface of the switch. The setter announces only a change.
class IntfStatus final : public Vela::Entity {
  public:
    explicit IntfStatus(Zinc::IntfId intfId) : intfId_(intfId) {}

    const char* typeName() const noexcept override { return "Interface::IntfStatus"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId intfId() const { return intfId_; }

    /// The kernel's name of it; empty while it has none.
    const std::string& deviceName() const { return deviceName_.get(); }
    const Vela::Attribute<std::string>& deviceNameAttribute() const { return deviceName_; }
    void deviceNameIs(std::string deviceName) { deviceName_.set(std::move(deviceName)); }

  private:
    const Zinc::IntfId intfId_;
    Vela::Attribute<std::string> deviceName_;
};

/// All interfaces of the switch; it owns the entries.
class AllIntfStatusDir final : public Vela::Entity {
  public:
    using IntfStatusCollection = Vela::Map<Zinc::IntfId, Vela::Ptr<IntfStatus>>;

    explicit AllIntfStatusDir(std::string name) : name_(std::move(name)) {}

    const char* typeName() const noexcept override { return "Interface::AllIntfStatusDir"; }
    void formatDerivedType(std::ostream& out) const override { out << name_; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const std::string& name() const { return name_; }

    const IntfStatusCollection& intfStatusCollection() const { return intfStatus_; }
    Vela::Ptr<IntfStatus> intfStatus(Zinc::IntfId intfId) const {
        return intfStatus_.value(intfId);
    }
    Vela::Ptr<IntfStatus> intfStatusIs(Zinc::IntfId intfId);
    void intfStatusDel(Zinc::IntfId intfId);
    void intfStatusDelAll();

  protected:
    void handleDestroy() noexcept override { intfStatusDelAll(); }

  private:
    const std::string name_;
    IntfStatusCollection intfStatus_;
};

/// What is known of an interface on this switch alone. The setter announces only a change.
class IntfStatusLocal final : public Vela::Entity {
  public:
    explicit IntfStatusLocal(Zinc::IntfId intfId) : intfId_(intfId) {}

    const char* typeName() const noexcept override { return "Interface::IntfStatusLocal"; }
    void formatDerivedType(std::ostream& out) const override;
    void dumpState(Vela::DumpContext& context, int indent) const override;

    Zinc::IntfId intfId() const { return intfId_; }

    /// Name of the kernel network namespace that it is in; empty while unknown.
    const std::string& netNs() const { return netNs_.get(); }
    const Vela::Attribute<std::string>& netNsAttribute() const { return netNs_; }
    void netNsIs(std::string netNs) { netNs_.set(std::move(netNs)); }

  private:
    const Zinc::IntfId intfId_;
    Vela::Attribute<std::string> netNs_;
};

/// The same interfaces, for what is known on this switch alone; it owns the entries.
class AllIntfStatusLocalDir final : public Vela::Entity {
  public:
    using IntfStatusLocalCollection = Vela::Map<Zinc::IntfId, Vela::Ptr<IntfStatusLocal>>;

    explicit AllIntfStatusLocalDir(std::string name) : name_(std::move(name)) {}

    const char* typeName() const noexcept override { return "Interface::AllIntfStatusLocalDir"; }
    void formatDerivedType(std::ostream& out) const override { out << name_; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    const std::string& name() const { return name_; }

    const IntfStatusLocalCollection& intfStatusLocalCollection() const { return intfStatusLocal_; }
    Vela::Ptr<IntfStatusLocal> intfStatusLocal(Zinc::IntfId intfId) const {
        return intfStatusLocal_.value(intfId);
    }
    Vela::Ptr<IntfStatusLocal> intfStatusLocalIs(Zinc::IntfId intfId);
    void intfStatusLocalDel(Zinc::IntfId intfId);
    void intfStatusLocalDelAll();

  protected:
    void handleDestroy() noexcept override { intfStatusLocalDelAll(); }

  private:
    const std::string name_;
    IntfStatusLocalCollection intfStatusLocal_;
};

} // namespace Interface
