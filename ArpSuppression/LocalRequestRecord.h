#pragma once

#include "Platform/Base/Clock.h"
#include "Platform/State/Collection.h"
#include "Platform/State/Entity.h"
#include "Platform/Value/RemoteBindingKey.h"

#include <boost/intrusive/list.hpp>
#include <cstddef>
#include <string>

namespace ArpSuppression {

/// A pair of VLAN and IP address that a host on this switch asked for.
class LocalRequestRecordEntry final : public Vela::Entity {
  public:
    explicit LocalRequestRecordEntry(const RemoteBindingKey& remoteBindingKey)
        : remoteBindingKey_(remoteBindingKey) {}

    const char* typeName() const noexcept override { return "LocalRequestRecordEntry"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;
    /// The key's text.
    std::string toStrep() const { return remoteBindingKey_.toStrep(); }

    const RemoteBindingKey& remoteBindingKey() const { return remoteBindingKey_; }
    /// When it was asked for last, in seconds of the record's clock.
    double lastRequestTime() const { return lastRequestTime_; }

  protected:
    void handleDestroy() noexcept override { link_.unlink(); }

  private:
    friend class LocalRequestRecord;
    using Link = boost::intrusive::list_member_hook<
        boost::intrusive::link_mode<boost::intrusive::auto_unlink>>;

    const RemoteBindingKey remoteBindingKey_;
    double lastRequestTime_ = 0;
    Link link_;
};

/// What was asked for recently, by pair and in order of the last request. Knows no limit and does
/// not age by itself: see LocalRequestRecordSm.
class LocalRequestRecord final : public Vela::Entity {
  public:
    using EntryCollection =
        Vela::EntityMap<LocalRequestRecordEntry, &LocalRequestRecordEntry::remoteBindingKey>;

    /// The clock must outlive the record.
    explicit LocalRequestRecord(const Vela::Clock& clock) : clock_(clock) {}

    const char* typeName() const noexcept override { return "LocalRequestRecord"; }
    void dumpState(Vela::DumpContext& context, int indent) const override;

    /// The pair is being requested at this moment.
    void recordLocalRequest(const RemoteBindingKey& remoteBindingKey);

    /// The collection announces the key of an entry that comes or goes.
    const EntryCollection& entryCollection() const { return entry_; }
    size_t entries() const { return entry_.count(); }
    /// None when absent.
    Vela::Ptr<LocalRequestRecordEntry> entry(const RemoteBindingKey& key) const {
        return entry_.value(key);
    }
    /// Finds it, or creates one whose last request is this moment.
    Vela::Ptr<LocalRequestRecordEntry> entryIs(const RemoteBindingKey& key);
    /// Ends the life of what it returns; none when absent. The key may be that of the entry.
    Vela::Ptr<LocalRequestRecordEntry> entryDel(const RemoteBindingKey& key);
    void entryDelAll();

    /// The entry whose last request lies back furthest; none when there are no entries.
    Vela::Ptr<const LocalRequestRecordEntry> oldestEntry() const;

  protected:
    void handleDestroy() noexcept override { entryDelAll(); }

  private:
    using Entry = LocalRequestRecordEntry;
    using ByLastRequest =
        boost::intrusive::list<Entry,
                               boost::intrusive::member_hook<Entry, Entry::Link, &Entry::link_>,
                               boost::intrusive::constant_time_size<false>>;

    void appendNow(LocalRequestRecordEntry& entry);

    const Vela::Clock& clock_;
    ByLastRequest byLastRequest_; // owns nothing; has exactly the entries of entry_
    EntryCollection entry_;
};

} // namespace ArpSuppression
