#include "ArpSuppression/LocalRequestRecord.h"

#include "ArpSuppression/ArpSuppressionTrace.h"
#include "Platform/Base/Assert.h"
#include "Platform/State/DumpContext.h"

namespace ArpSuppression {

void LocalRequestRecordEntry::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "LocalRequestRecordEntry %s\n", toStrep().c_str());
}

void LocalRequestRecord::recordLocalRequest(const RemoteBindingKey& remoteBindingKey) {
    Vela::Ptr<LocalRequestRecordEntry> e = entry(remoteBindingKey);
    TRACE(trace, 8, this, "remoteBindingKey=" << remoteBindingKey << " e=" << e);
    if (e) {
        e->link_.unlink();
        appendNow(*e);
    } else {
        entryIs(remoteBindingKey);
    }
}

Vela::Ptr<LocalRequestRecordEntry> LocalRequestRecord::entryIs(const RemoteBindingKey& key) {
    return entry_.findOrAdd(key, [&] {
        auto created = Vela::make<LocalRequestRecordEntry>(key);
        appendNow(*created);
        return created;
    });
}

void LocalRequestRecord::appendNow(LocalRequestRecordEntry& entry) {
    Vela::assertThat(!entry.link_.is_linked(), "!( element.*ptrToLinkNode ).isLinked()");
    entry.lastRequestTime_ = std::chrono::duration<double>(clock_.recent()).count();
    byLastRequest_.push_back(entry);
}

Vela::Ptr<LocalRequestRecordEntry> LocalRequestRecord::entryDel(const RemoteBindingKey& key) {
    Vela::Ptr<LocalRequestRecordEntry> removed = entry(key);
    if (removed) {
        removed->link_.unlink(); // before the announcement: both forget it together
        entry_.del(key);
        removed->destroy();
    }
    return removed;
}

void LocalRequestRecord::entryDelAll() {
    byLastRequest_.clear();
    entry_.delAll([](const auto& removed) { removed->destroy(); });
}

Vela::Ptr<const LocalRequestRecordEntry> LocalRequestRecord::oldestEntry() const {
    return byLastRequest_.empty() ? nullptr : &byLastRequest_.front();
}

void LocalRequestRecord::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "LocalRequestRecord #entry=%zu\n", entries());
}

} // namespace ArpSuppression
