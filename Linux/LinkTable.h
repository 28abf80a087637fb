#pragma once

#include "Linux/LinkMessage.h"
#include "Linux/NetlinkConsumer.h"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Linux {

/// The devices of one network namespace as the kernel last told of them.
class LinkTable final : public NetlinkConsumer {
  public:
    /// A device as it was and as it is; null: it was not, it is no more. The table has changed
    /// already. Must not change the table.
    using Changed = std::function<void(const LinkMessage* before, const LinkMessage* after)>;

    explicit LinkTable(Changed changed) : changed_(std::move(changed)) {}

    size_t count() const { return links_.size(); }
    /// Whether a change is one of the many that the end of a resync may bring in one call.
    bool sweeping() const { return sweeping_; }
    /// Null if there is none; valid until the table changes.
    const LinkMessage* find(uint32_t ifIndex) const;
    const LinkMessage* findByName(const std::string& name) const;
    template <class Visit>
    void forEach(Visit&& visit) const {
        for (const auto& [ifIndex, link] : links_) {
            visit(link);
        }
    }
    /// The devices that belong to a bridge or VRF, by index.
    std::vector<uint32_t> belongingTo(uint32_t master) const { return under(byMaster_, master); }
    /// Those of the same namespace that stand on a device, and a veth's other end.
    std::vector<uint32_t> standingOn(uint32_t link) const { return under(byLink_, link); }

    void resyncStarted() override;
    void message(const nlmsghdr& message) override;
    void resyncFinished() override;

  private:
    using Relation = std::set<std::pair<uint32_t, uint32_t>>;

    static std::vector<uint32_t> under(const Relation& relation, uint32_t ifIndex);
    void linkIs(const LinkMessage& link);
    void linkDel(uint32_t ifIndex);
    void enterRelations(const LinkMessage& link);
    void leaveRelations(const LinkMessage& link);

    const Changed changed_;
    std::map<uint32_t, LinkMessage> links_;
    std::map<std::string, uint32_t> byName_; // of two with one name the one that got it last
    Relation byMaster_;
    Relation byLink_;
    bool resyncing_ = false;
    bool sweeping_ = false;
    std::set<uint32_t> seen_;      // in the resync under way
    std::set<uint32_t> announced_; // in it
};

} // namespace Linux
