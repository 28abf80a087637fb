#include "ArpSuppression/LocalRequestRecord.h"

#include "Platform/State/DumpContext.h"
#include "Testing/CoreFixture.h"
#include "Testing/TraceCapture.h"

#include <vector>

namespace ArpSuppression {
namespace {

using Bridging::VlanId;
using Vela::make;
using Vela::Ptr;
using Zinc::IpGenAddr;

class LocalRequestRecordTest : public Testing::CoreFixture {
  protected:
    /// The keys from the oldest on; empties the record.
    std::vector<RemoteBindingKey> drain() {
        std::vector<RemoteBindingKey> keys;
        while (auto oldest = record_->oldestEntry()) {
            keys.push_back(oldest->remoteBindingKey());
            EXPECT_EQ(record_->entryDel(oldest->remoteBindingKey()), oldest);
        }
        EXPECT_EQ(record_->entries(), 0u);
        return keys;
    }

    const Ptr<LocalRequestRecord> record_ = make<LocalRequestRecord>(clock());
    const RemoteBindingKey key1_{VlanId(10), IpGenAddr("10.0.0.1")};
    const RemoteBindingKey key2_{VlanId(10), IpGenAddr("10.0.0.2")};
    const RemoteBindingKey key3_{VlanId(20), IpGenAddr("10.0.0.1")};
};

TEST_F(LocalRequestRecordTest, StartsEmpty) {
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_EQ(record_->oldestEntry(), nullptr);
    EXPECT_EQ(record_->entry(key1_), nullptr);
    EXPECT_EQ(record_->entryDel(key1_), nullptr);
}

TEST_F(LocalRequestRecordTest, RecordsAndRefreshes) {
    record_->recordLocalRequest(key1_);
    auto entry = record_->entry(key1_);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->remoteBindingKey(), key1_);
    EXPECT_EQ(entry->lastRequestTime(), clock().seconds());
    clock().advance(std::chrono::seconds(7));
    record_->recordLocalRequest(key1_);
    EXPECT_EQ(record_->entry(key1_), entry);
    EXPECT_EQ(record_->entries(), 1u);
    EXPECT_EQ(entry->lastRequestTime(), clock().seconds());
}

TEST_F(LocalRequestRecordTest, OneAddressInTwoVlansIsTwoEntries) {
    record_->recordLocalRequest(key1_);
    record_->recordLocalRequest(key3_);
    EXPECT_EQ(record_->entries(), 2u);
    EXPECT_NE(record_->entry(key1_), record_->entry(key3_));
}

TEST_F(LocalRequestRecordTest, KeepsTheOrderOfTheLastRequests) {
    for (const auto& key : {key1_, key2_, key3_, key1_, key3_}) {
        record_->recordLocalRequest(key);
    }
    EXPECT_EQ(drain(), (std::vector<RemoteBindingKey>{key2_, key1_, key3_}));
}

TEST_F(LocalRequestRecordTest, WhatIsRemovedLeavesTheOrder) {
    for (const auto& key : {key1_, key2_, key3_}) {
        record_->recordLocalRequest(key);
    }
    auto removed = record_->entryDel(key2_);
    EXPECT_TRUE(removed->destroyed());
    EXPECT_EQ(record_->entry(key2_), nullptr);
    EXPECT_EQ(drain(), (std::vector<RemoteBindingKey>{key1_, key3_}));
}

TEST_F(LocalRequestRecordTest, AnEntryAskedForByItsKeyIsInTheOrder) {
    record_->recordLocalRequest(key1_);
    auto entry = record_->entryIs(key2_);
    EXPECT_EQ(entry->lastRequestTime(), clock().seconds());
    clock().advance(std::chrono::seconds(1));
    EXPECT_EQ(record_->entryIs(key1_), record_->entry(key1_)); // no request
    EXPECT_LT(record_->entry(key1_)->lastRequestTime(), clock().seconds());
    EXPECT_EQ(drain(), (std::vector<RemoteBindingKey>{key1_, key2_}));
}

TEST_F(LocalRequestRecordTest, RemovesAll) {
    record_->recordLocalRequest(key1_);
    record_->recordLocalRequest(key2_);
    auto entry = record_->entry(key1_);
    record_->entryDelAll();
    EXPECT_TRUE(entry->destroyed());
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_EQ(record_->oldestEntry(), nullptr);
    record_->recordLocalRequest(key1_);
    EXPECT_NE(record_->entry(key1_), entry);
    EXPECT_EQ(drain(), (std::vector<RemoteBindingKey>{key1_}));
}

TEST_F(LocalRequestRecordTest, AnEntryDestroyedByAnybodyLeavesTheOrder) {
    record_->recordLocalRequest(key1_);
    record_->recordLocalRequest(key2_);
    record_->entry(key1_)->destroy();
    EXPECT_EQ(record_->oldestEntry(), record_->entry(key2_));
}

TEST_F(LocalRequestRecordTest, EndsWithItsEntries) {
    record_->recordLocalRequest(key1_);
    auto entry = record_->entry(key1_);
    record_->destroy();
    EXPECT_TRUE(entry->destroyed());
    EXPECT_EQ(record_->entries(), 0u);
    EXPECT_EQ(record_->oldestEntry(), nullptr);
}

TEST_F(LocalRequestRecordTest, AnnouncesEntriesThatComeAndGo) {
    std::vector<std::pair<RemoteBindingKey, bool>> seen;
    auto reaction = record_->entryCollection().react(nullptr, [&](const RemoteBindingKey& key) {
        auto oldest = record_->oldestEntry();
        seen.emplace_back(key, record_->entryCollection().has(key));
        EXPECT_EQ(record_->entries() > 0, oldest != nullptr);
    });
    record_->recordLocalRequest(key1_);
    record_->recordLocalRequest(key1_); // the same entry
    record_->entryDel(key1_);
    EXPECT_EQ(seen,
              (std::vector<std::pair<RemoteBindingKey, bool>>{{key1_, true}, {key1_, false}}));
}

TEST_F(LocalRequestRecordTest, Traces) {
    Testing::TraceCapture lines("ArpSuppression=8");
    record_->recordLocalRequest(key1_);
    record_->recordLocalRequest(key1_);
    const std::string key = key1_.toStrep();
    EXPECT_EQ(lines.count(" remoteBindingKey=" + key + " e=NULL\n"), 1u) << lines.text();
    EXPECT_EQ(lines.count(" remoteBindingKey=" + key + " e=" + key + "\n"), 1u);
    EXPECT_EQ(lines.count("ArpSuppression/LocalRequestRecord:"), 2u);
}

TEST_F(LocalRequestRecordTest, Dumps) {
    record_->recordLocalRequest(key1_);
    record_->recordLocalRequest(key2_);
    Vela::DumpContext context;
    record_->dumpState(context, 2);
    record_->entry(key1_)->dumpState(context, 4);
    EXPECT_EQ(context.text(), "  LocalRequestRecord #entry=2\n"
                              "    LocalRequestRecordEntry <vlanId=10 ipAddress=10.0.0.1>\n");
    EXPECT_EQ(Vela::toStrep(Ptr<LocalRequestRecordEntry>()), "NULL");
}

} // namespace
} // namespace ArpSuppression
