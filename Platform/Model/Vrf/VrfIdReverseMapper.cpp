#include "Platform/Model/Vrf/VrfIdReverseMapper.h"

#include "Platform/State/DumpContext.h"

#include <algorithm>

namespace Vrf::VrfIdMap {

ReverseMapper::ReverseMapper(Vela::Ptr<const Status> status, Vela::Ptr<NameToIdMap> nameToIdMap)
    : status_(std::move(status)), nameToIdMap_(std::move(nameToIdMap)) {}

void ReverseMapper::handleInitialized() {
    if (!status_) {
        return;
    }
    vrfReaction_ = status_->vrfCollection().react(this, [this](VrfId vrfId) { handleVrf(vrfId); });
    for (auto cursor = status_->vrfCollection().first(); cursor; ++cursor) {
        handleVrf(cursor.key());
    }
}

void ReverseMapper::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "Vrf::VrfIdMap::ReverseMapper\n");
    context.child(indent + 2, "nameToIdMap", nameToIdMap_.get());
}

void ReverseMapper::handleVrf(VrfId vrfId) {
    auto entry = status_->vrfCollection().find(vrfId);
    if (entry) {
        L3::VrfName name = entry->vrfName();
        if (auto known = known_.find(vrfId); known != known_.end() && known->second != name) {
            forget(vrfId);
        }
        known_[vrfId] = name;
        nameToIdMap_->vrfIdIs(name, vrfId);
    } else {
        forget(vrfId);
    }
}

void ReverseMapper::forget(VrfId vrfId) {
    auto known = known_.find(vrfId);
    if (known == known_.end()) {
        return;
    }
    L3::VrfName name = std::move(known->second);
    known_.erase(known);
    if (nameToIdMap_->vrfId(name) != vrfId) {
        return;
    }
    auto another = std::find_if(known_.begin(), known_.end(),
                                [&](const auto& entry) { return entry.second == name; });
    if (another != known_.end()) {
        nameToIdMap_->vrfIdIs(name, another->first);
    } else {
        nameToIdMap_->vrfIdDel(name);
    }
}

} // namespace Vrf::VrfIdMap
