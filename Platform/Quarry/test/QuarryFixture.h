#pragma once

#include "Platform/Base/Hash.h"
#include "Platform/Quarry/TableCollection.h"
#include "Platform/Quarry/TableService.h"
#include "Testing/CoreFixture.h"
#include "Testing/TemporaryDirectory.h"

#include <cstdint>
#include <string>

namespace Quarry {

struct NumberKey {
    uint64_t number = 0;

    uint64_t hash(uint64_t seed) const {
        Vela::IncrementalHash hash(seed);
        hash.mix(number);
        return hash.result();
    }
    friend bool operator==(const NumberKey&, const NumberKey&) = default;
};

struct NumberRecord {
    using Key = NumberKey;
    static constexpr const char* recordType = "Quarry::NumberRecord";
    static constexpr const char* tableType = "Quarry::NumberTable";
    static constexpr const char* name = "number";
    NumberKey key;
    uint64_t value = 0;

    friend bool operator==(const NumberRecord&, const NumberRecord&) = default;
};

/// A table of one collection, R::name.
template <class R>
class TableOf final : public Table {
  public:
    static constexpr const char* tableType = R::tableType;
    static constexpr uint32_t capacity = 4096;

    explicit TableOf(const TableSite& site) : Table(site), number_(*this, R::name, capacity) {}
    const char* typeName() const noexcept override { return tableType; }

    const TableCollection<R>& number() const { return number_; }
    TableCollection<R>& number() { return number_; }

  private:
    TableCollection<R> number_;
};

using NumberTable = TableOf<NumberRecord>;

/// A table service on files of its own.
class QuarryFixture : public Testing::CoreFixture {
  protected:
    ~QuarryFixture() override {
        group->destroy();
        service->destroy();
    }

    Vela::Ptr<NumberTable> mountWriter(const std::string& path = "numbers") {
        group->mount<NumberTable>(path, MountType::writer);
        return group->entity<NumberTable>(path);
    }

    /// The file of a table's collection.
    std::string file(const std::string& path = "numbers", const char* collection = "number") const {
        return directory.path() + "/" + path + "/" + collection;
    }

    Testing::TemporaryDirectory directory;
    Vela::Ptr<TableService> service = Vela::make<TableService>(scheduler(), directory.path(), 64);
    Vela::Ptr<MountGroup> group = service->mountGroup();
};

} // namespace Quarry
