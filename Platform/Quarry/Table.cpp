#include "Platform/Quarry/Table.h"

#include "Platform/Quarry/TableCollection.h"
#include "Platform/Quarry/TableTrace.h"
#include "Platform/State/DumpContext.h"

#include <algorithm>
#include <array>
#include <ostream>

namespace Quarry {

const Vela::TraceHandle trace("Quarry");

namespace {

TableShape declared(TableShape shape, const CollectionDeclaration* declaration) {
    if (declaration) {
        shape.capacity = declaration->size;
        shape.allocateAll = !declaration->mayGrow;
    }
    return shape;
}

} // namespace

void Table::formatDerivedType(std::ostream& out) const {
    out << site_.path;
}

void Table::dumpState(Vela::DumpContext& context, int indent) const {
    context.print(indent, "%s %s complete=%s\n", typeName(), site_.path.c_str(),
                  complete() ? "yes" : "no");
    for (const CollectionFile* collection : collections_) {
        const Format::Header& header = collection->mapping().header();
        context.print(indent + 2, "%s[] #%u capacity=%u changes=%llu refusals=%llu troubles=%llu\n",
                      collection->name().c_str(), header.entries.load(), header.capacity,
                      static_cast<unsigned long long>(header.changes.load()),
                      static_cast<unsigned long long>(collection->refusals()),
                      static_cast<unsigned long long>(collection->troubles()));
    }
}

void Table::completeIs(bool complete) {
    for (CollectionFile* collection : collections_) {
        collection->completeIs(complete);
    }
    complete_.set(complete);
}

void Table::declarationsCompare(const std::vector<CollectionDeclaration>& declarations) const {
    for (const CollectionDeclaration& late : declarations) {
        auto found = std::find_if(collections_.begin(), collections_.end(),
                                  [&](const auto* c) { return c->name() == late.name; });
        if (found != collections_.end() && ((*found)->mapping().capacity() != late.size ||
                                            (*found)->mapping().allAllocated() == late.mayGrow)) {
            TRACE(trace, 0, this,
                  late.name << " was made before its declaration: it holds "
                            << (*found)->mapping().capacity() << ", not " << late.size);
        }
    }
}

void Table::handleDestroy() noexcept {
    for (CollectionFile* collection : collections_) {
        collection->closedIs();
    }
}

const CollectionDeclaration* Table::declaration(const std::string& collection) const {
    auto found = std::find_if(site_.declarations.begin(), site_.declarations.end(),
                              [&](const auto& d) { return d.name == collection; });
    return found == site_.declarations.end() ? nullptr : &*found;
}

CollectionFile::CollectionFile(Table& table, const char* name, const TableShape& shape)
    : table_(table), name_(name),
      mapping_(TableMapping::create(table.site_.directory + "/" + table.path() + "/" + name,
                                    declared(shape, table.declaration(name)))),
      writer_(mapping_) {
    table_.collections_.push_back(this);
}

CollectionFile::~CollectionFile() {
    closedIs(); // not done yet if the table could not be made
    std::erase(table_.collections_, this);
}

void CollectionFile::closedIs() noexcept {
    closed_ = true;
    writer_.closedIs();
    table_.site_.changeLog->listenerDel(listener_);
}

void CollectionFile::handleTrouble(Outcome outcome) const {
    ++troubles_;
    TRACE(trace, 0, &table_,
          "reading " << name_ << " failed: " << toString(outcome) << " troubles=" << troubles_);
}

bool CollectionFile::write(uint32_t hash, const uint64_t* payload, bool observed) {
    if (closed_) {
        return false;
    }
    Written written = writer_.set(hash, payload);
    if (written == Written::full) {
        ++refusals_;
        TRACE(trace, 0, &table_, "no room in " << name_ << " refusals=" << refusals_);
        return false;
    }
    if (observed && written != Written::unchanged) {
        log(payload);
    }
    return true;
}

bool CollectionFile::remove(uint32_t hash, const uint64_t* key, bool observed) {
    bool removed = !closed_ && writer_.del(hash, key);
    if (observed && removed) {
        log(key);
    }
    return removed;
}

bool CollectionFile::incrementWord(uint32_t hash, const uint64_t* key, size_t word, bool observed) {
    bool incremented = !closed_ && writer_.increment(hash, key, word);
    if (observed && incremented) {
        log(key);
    }
    return incremented;
}

std::optional<uint32_t> CollectionFile::placeOf(uint32_t hash, const uint64_t* key) const {
    return writer_.place(hash, key);
}

void CollectionFile::incrementWordAt(uint32_t place, size_t word, bool observed) {
    if (closed_) {
        return;
    }
    writer_.incrementAt(place, word);
    if (observed) {
        std::array<uint64_t, Format::pageBytes / sizeof(uint64_t)> key;
        const std::atomic<uint64_t>* words = TableMapping::payload(mapping_.record(place));
        for (size_t i = 0; i < mapping_.keyWords(); ++i) {
            key[i] = words[i].load(std::memory_order_relaxed);
        }
        log(key.data());
    }
}

void CollectionFile::listenTo(ChangeListener& listener) {
    listener_ = table_.site_.changeLog->listenerIs(listener);
}

void CollectionFile::log(const uint64_t* key) {
    table_.site_.changeLog->record(listener_, {key, mapping_.keyWords()});
}

} // namespace Quarry
