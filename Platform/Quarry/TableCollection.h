#pragma once

#include "Platform/Base/Assert.h"
#include "Platform/Quarry/ChangeLog.h"
#include "Platform/Quarry/TableView.h"
#include "Platform/Quarry/TableWriter.h"
#include "Platform/State/Notifier.h"

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

namespace Quarry {

class Table;

/// What a table can hold: a plain value without padding whose first member is its key, and whose
/// name tells it from others of the same size:
///
///     struct CounterRecord {
///         using Key = CounterKey;
///         static constexpr const char* recordType = "ArpSuppression::CounterRecord";
///         CounterKey key;
///         uint64_t count;
///     };
template <class R>
concept TableRecord = std::is_trivially_copyable_v<R> &&
    std::has_unique_object_representations_v<R> && std::is_standard_layout_v<R> &&
    std::default_initializable<R> && requires(const R& record, const typename R::Key& key) {
    { record.key } -> std::convertible_to<typename R::Key>;
    { key.hash(uint64_t{}) } -> std::same_as<uint64_t>;
    { R::recordType } -> std::convertible_to<const char*>;
};

/// A value as the words that a table holds it in.
template <class T>
struct Words {
    static constexpr size_t count = Format::wordsFor(sizeof(T));
    using Array = std::array<uint64_t, count>;

    static Array from(const T& value) {
        Array words;
        size_t whole = sizeof value / sizeof(uint64_t) * sizeof(uint64_t);
        std::memcpy(words.data(), &value, whole);
        if constexpr (sizeof value % sizeof(uint64_t) != 0) {
            uint64_t last = 0;
            auto bytes = static_cast<const std::byte*>(static_cast<const void*>(&value));
            std::memcpy(&last, bytes + whole, sizeof value - whole);
            words.back() = last;
        }
        return words;
    }
    static T to(const Array& words) {
        if constexpr (sizeof(T) == sizeof(Array)) {
            return std::bit_cast<T>(words);
        } else {
            std::array<std::byte, sizeof(T)> bytes;
            std::memcpy(bytes.data(), words.data(), bytes.size());
            return std::bit_cast<T>(bytes);
        }
    }
};

template <TableRecord R>
TableShape shapeOf(uint32_t capacity) {
    static_assert(offsetof(R, key) == 0, "a record begins with its key");
    return {R::recordType, sizeof(typename R::Key), sizeof(R), capacity};
}

/// Stands at one entry, of which it has a copy, and steps through the table's order. Anything may
/// happen to the table between two steps.
template <class Reading>
class RecordCursor {
  public:
    using Key = typename Reading::Key;
    using Value = typename Reading::Value;

    RecordCursor(const Reading& reading, std::optional<Value> record)
        : reading_(&reading), record_(std::move(record)) {}

    explicit operator bool() const noexcept { return record_.has_value(); }
    const Key& key() const noexcept { return record_->key; }
    const Value& value() const noexcept { return *record_; }
    RecordCursor& operator++() {
        record_ = reading_->recordAfter(record_->key);
        return *this;
    }

  private:
    const Reading* reading_;
    std::optional<Value> record_;
};

/// Who hears that a table could not be read right.
class ReadTrouble {
  public:
    virtual void handleTrouble(Outcome outcome) const = 0;

  protected:
    ~ReadTrouble() = default;
};

template <TableRecord R>
class RecordLookup;

/// Reads the records of one table. What cannot be read right is reported and counts as absent.
template <TableRecord R>
class RecordReading {
  public:
    using Key = typename R::Key;
    using Value = R;
    using Cursor = RecordCursor<RecordReading>;

    /// Both must outlive this object.
    RecordReading(const TableMapping& mapping, const ReadTrouble& trouble)
        : mapping_(mapping), view_(mapping), trouble_(trouble) {}

    size_t count() const { return view_.entries(); }
    bool has(const Key& key) const { return find(key).has_value(); }

    /// A copy of the record.
    std::optional<R> find(const Key& key) const {
        typename Words<R>::Array payload;
        auto words = Words<Key>::from(key);
        return record(view_.find(hashOf(key), words.data(), payload.data()), payload);
    }
    /// The same; a default-constructed one when absent.
    R value(const Key& key) const { return find(key).value_or(R()); }
    /// Asks memory for what a lookup of the key reads first; `fetchRecord` with what this returns,
    /// once that is there, for what is read second. Neither is needed for a lookup.
    uint32_t fetchBucket(const Key& key) const {
        uint32_t hash = hashOf(key);
        view_.fetchBucket(hash);
        return hash;
    }
    void fetchRecord(uint32_t fetched) const { view_.fetchRecord(fetched); }
    /// The same as `find`, in steps.
    RecordLookup<R> lookup(const Key& key) const { return RecordLookup<R>(*this, key); }

    /// Every entry that stays is met, in an order of no meaning.
    Cursor first() const {
        typename Words<R>::Array payload;
        return {*this, recordAt(view_.first(payload.data()), payload)};
    }
    Cursor atOrAfter(const Key& key) const {
        typename Words<R>::Array payload;
        auto words = Words<Key>::from(key);
        return {*this,
                recordAt(view_.atOrAfter(hashOf(key), words.data(), payload.data()), payload)};
    }
    std::optional<R> recordAfter(const Key& key) const {
        typename Words<R>::Array payload;
        auto words = Words<Key>::from(key);
        return recordAt(view_.after(hashOf(key), words.data(), payload.data()), payload);
    }

  protected:
    ~RecordReading() = default;

    uint32_t hashOf(const Key& key) const {
        return static_cast<uint32_t>(key.hash(mapping_.header().hashSeed));
    }

  private:
    friend class RecordLookup<R>;

    std::optional<R> record(Outcome outcome, const typename Words<R>::Array& payload) const {
        if (outcome == Outcome::found) [[likely]] {
            return Words<R>::to(payload);
        }
        if (outcome != Outcome::absent) {
            trouble_.handleTrouble(outcome);
        }
        return std::nullopt;
    }
    /// A record that stands under another hash than its own would send a walk back and forth.
    std::optional<R> recordAt(TableView::Step step, const typename Words<R>::Array& payload) const {
        auto found = record(step.outcome, payload);
        if (found && hashOf(found->key) != step.hash) {
            trouble_.handleTrouble(Outcome::corrupt);
            return std::nullopt;
        }
        return found;
    }

    const TableMapping& mapping_;
    const TableView view_;
    const ReadTrouble& trouble_;
};

/// Looks up one key in steps. Each of them asks memory for what the next one reads, and a table
/// that outgrew the processor's caches answers while the caller does something else.
template <TableRecord R>
class RecordLookup {
  public:
    using Key = typename R::Key;

    /// The first step. The table's collection must outlive the lookup.
    RecordLookup(const RecordReading<R>& reading, const Key& key)
        : reading_(reading), key_(Words<Key>::from(key)), hash_(reading.hashOf(key)) {
        new (payload_.data()) R();
        reading_.view_.fetchBucket(hash_);
    }
    RecordLookup(const RecordLookup&) = delete;
    RecordLookup& operator=(const RecordLookup&) = delete;

    /// The second step, which may be left out.
    void advance() const { reading_.view_.fetchRecord(hash_); }

    /// The last step: copies the record. Returns whether there is one.
    bool find() {
        Outcome outcome = reading_.view_.find(hash_, key_.data(), payload_.data());
        if (outcome == Outcome::found) [[likely]] {
            return true;
        }
        if (outcome != Outcome::absent) {
            reading_.trouble_.handleTrouble(outcome);
        }
        new (payload_.data()) R();
        return false;
    }
    /// What was found, where the table's words were written to: copying them once more at once
    /// would wait until all of them have reached the cache. The default-constructed record until
    /// then and when absent.
    const R& record() const {
        return *std::launder(static_cast<const R*>(static_cast<const void*>(payload_.data())));
    }

  private:
    const RecordReading<R>& reading_;
    const typename Words<Key>::Array key_;
    const uint32_t hash_;
    alignas(uint64_t) std::array<std::byte, Words<R>::count * sizeof(uint64_t)> payload_;
};

/// The file of a collection in the process that writes it.
class CollectionFile : public ReadTrouble {
  public:
    CollectionFile(const CollectionFile&) = delete;
    CollectionFile& operator=(const CollectionFile&) = delete;

    const std::string& name() const { return name_; }
    const TableMapping& mapping() const { return mapping_; }
    /// How often reading or writing failed.
    uint64_t troubles() const { return troubles_; }
    uint64_t refusals() const { return refusals_; }

    void completeIs(bool complete) { writer_.completeIs(complete); }
    /// Nothing changes and nothing is announced any more: the table's life has ended.
    void closedIs() noexcept;

    void handleTrouble(Outcome outcome) const override;

  protected:
    CollectionFile(Table& table, const char* name, const TableShape& shape);
    ~CollectionFile();

    /// Returns whether the table holds the record now; one for which there is no room is traced and
    /// counted. Nothing is written once the table is closed.
    bool write(uint32_t hash, const uint64_t* payload, bool observed);
    bool remove(uint32_t hash, const uint64_t* key, bool observed);
    bool incrementWord(uint32_t hash, const uint64_t* key, size_t word, bool observed);
    std::optional<uint32_t> placeOf(uint32_t hash, const uint64_t* key) const;
    void incrementWordAt(uint32_t place, size_t word, bool observed);
    void listenTo(ChangeListener& listener);

  private:
    void log(const uint64_t* key);

    Table& table_;
    const std::string name_;
    const TableMapping mapping_;
    TableWriter writer_;
    uint64_t listener_ = 0;
    bool closed_ = false;
    mutable uint64_t troubles_ = 0;
    uint64_t refusals_ = 0;
};

/// One collection of a table, as a member of the table's class. It announces the key of every entry
/// that is added, replaced by a different record or removed: through the change log, so never from
/// within the call that made the change, and with no regard to whether the key has changed again
/// since.
template <TableRecord R>
class TableCollection final : public CollectionFile, public RecordReading<R>, ChangeListener {
  public:
    using Key = typename R::Key;

    /// `capacity` is what the collection holds at most, where the mount declares nothing else.
    TableCollection(Table& table, const char* name, uint32_t capacity)
        : CollectionFile(table, name, shapeOf<R>(capacity)), RecordReading<R>(this->mapping(),
                                                                              *this) {
        listenTo(*this);
    }

    /// Returns whether the record is in the table now.
    bool set(const R& record) {
        auto words = Words<R>::from(record);
        return write(this->hashOf(record.key), words.data(), notifier_.observed());
    }
    /// Returns whether there was one.
    bool del(const Key& key) {
        auto words = Words<Key>::from(key);
        return remove(this->hashOf(key), words.data(), notifier_.observed());
    }

    /// Adds 1 to the 64-bit number at `offset` bytes of a record, behind its key. Returns whether
    /// there is such a record.
    bool increment(const Key& key, size_t offset) {
        auto words = Words<Key>::from(key);
        return incrementWord(this->hashOf(key), words.data(), wordAt(offset), notifier_.observed());
    }

    /// Where the record of a key stands, and stays until it is removed: who changes one again and
    /// again need not look it up.
    std::optional<uint32_t> place(const Key& key) const {
        auto words = Words<Key>::from(key);
        return placeOf(this->hashOf(key), words.data());
    }
    /// The same as `increment`, for the record at its place.
    void incrementAt(uint32_t place, size_t offset) {
        incrementWordAt(place, wordAt(offset), notifier_.observed());
    }

    /// See NotifierBase. The callable takes the key. What changed before is not announced, unless
    /// for the sake of another reaction it waits in the log already.
    template <class Callable>
    [[nodiscard]] Vela::Reaction react(const Vela::Entity* owner, Callable callable) const {
        return notifier_.react(owner, std::move(callable));
    }

  private:
    static size_t wordAt(size_t offset) {
        Vela::assertThat(offset % 8 == 0 && offset >= sizeof(Key) && offset + 8 <= sizeof(R),
                         "offset + 8 <= sizeof(R)");
        return offset / 8;
    }
    void handleChange(const uint64_t* key) override {
        typename Words<Key>::Array words;
        std::copy_n(key, words.size(), words.begin());
        notifier_.notify(Words<Key>::to(words));
    }

    Vela::KeyNotifier<Key> notifier_;
};

} // namespace Quarry
