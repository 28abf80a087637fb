#include "Linux/LinkTable.h"

#include <optional>

namespace Linux {

const LinkMessage* LinkTable::find(uint32_t ifIndex) const {
    auto found = links_.find(ifIndex);
    return found == links_.end() ? nullptr : &found->second;
}

const LinkMessage* LinkTable::findByName(const std::string& name) const {
    auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : find(found->second);
}

std::vector<uint32_t> LinkTable::under(const Relation& relation, uint32_t ifIndex) {
    std::vector<uint32_t> all;
    for (auto entry = relation.lower_bound({ifIndex, 0});
         entry != relation.end() && entry->first == ifIndex; ++entry) {
        all.push_back(entry->second);
    }
    return all;
}

void LinkTable::resyncStarted() {
    resyncing_ = true;
    seen_.clear();
    announced_.clear();
}

void LinkTable::message(const nlmsghdr& message) {
    auto link = decodeLink(message);
    if (!link) {
        return;
    }
    if (resyncing_) {
        if (!isDumped(message)) {
            announced_.insert(link->ifIndex);
        } else if (announced_.contains(link->ifIndex)) {
            return; // may be older
        }
        seen_.insert(link->ifIndex);
    }
    if (link->removed) {
        linkDel(link->ifIndex);
    } else {
        linkIs(*link);
    }
}

void LinkTable::resyncFinished() {
    std::vector<uint32_t> gone;
    for (const auto& [ifIndex, link] : links_) {
        if (!seen_.contains(ifIndex)) {
            gone.push_back(ifIndex);
        }
    }
    sweeping_ = true;
    for (uint32_t ifIndex : gone) {
        linkDel(ifIndex);
    }
    sweeping_ = false;
    resyncing_ = false;
    seen_.clear();
    announced_.clear();
}

void LinkTable::linkIs(const LinkMessage& link) {
    auto [entry, isNew] = links_.try_emplace(link.ifIndex, link);
    std::optional<LinkMessage> before;
    if (!isNew) {
        if (entry->second == link) {
            return;
        }
        before = std::exchange(entry->second, link);
        leaveRelations(*before);
    }
    enterRelations(link);
    changed_(before ? &*before : nullptr, &entry->second);
}

void LinkTable::linkDel(uint32_t ifIndex) {
    auto entry = links_.find(ifIndex);
    if (entry == links_.end()) {
        return;
    }
    LinkMessage before = std::move(entry->second);
    links_.erase(entry);
    leaveRelations(before);
    changed_(&before, nullptr);
}

void LinkTable::enterRelations(const LinkMessage& link) {
    byName_[link.name] = link.ifIndex;
    if (link.master != 0) {
        byMaster_.emplace(link.master, link.ifIndex);
    }
    if (link.link != 0 && !link.linkNetNsId) {
        byLink_.emplace(link.link, link.ifIndex);
    }
}

void LinkTable::leaveRelations(const LinkMessage& link) {
    if (auto named = byName_.find(link.name);
        named != byName_.end() && named->second == link.ifIndex) {
        byName_.erase(named);
    }
    byMaster_.erase({link.master, link.ifIndex});
    byLink_.erase({link.link, link.ifIndex});
}

} // namespace Linux
