#include "Platform/Value/IntfNameTable.h"

#include "Platform/Base/Assert.h"
#include "Platform/Base/Errors.h"

#include <cerrno>
#include <string>
#include <sys/mman.h>
#include <system_error>

namespace Zinc {

IntfNameTable::IntfNameTable(size_t capacity) : capacity_(capacity) {
    Vela::assertThat(capacity > 0, "capacity > 0");
    void* memory = mmap(nullptr, capacity * sizeof(Record), PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap of interface names");
    }
    records_ = static_cast<Record*>(memory);
    idOf("");
}

IntfNameTable::~IntfNameTable() {
    munmap(records_, capacity_ * sizeof(Record));
}

uint32_t IntfNameTable::idOf(std::string_view name) {
    if (auto found = ids_.find(name); found != ids_.end()) {
        return found->second;
    }
    if (name.size() > longestName) {
        throw Vela::RangeError("Zinc::IntfId::name > 63 bytes not allowed");
    }
    if (size() == capacity_) {
        throw Vela::RangeError("Zinc::IntfId::names > " + std::to_string(capacity_) +
                               " not allowed");
    }
    auto id = static_cast<uint32_t>(size());
    Record& record = records_[id];
    name.copy(record.name, name.size());
    ids_.emplace(std::string_view(record.name, name.size()), id);
    record.length = static_cast<uint8_t>(name.size());
    return id;
}

std::string_view IntfNameTable::name(uint32_t id) const {
    Vela::assertThat(id < size(), "id < size()");
    return {records_[id].name, records_[id].length};
}

} // namespace Zinc
