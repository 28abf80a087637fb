#include "Platform/Trace/SwiftlogReader.h"

#include <cstddef>
#include <cstdint>
#include <sstream>

/// Whatever the bytes of a ring-buffer file, the reader ends, stays within them, and each record
/// formats as one line.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Vela::SwiftlogReader reader(std::span<const uint8_t>(data, size));
    uint64_t ticks = 0;
    size_t payloadBytes = 0;
    for (const Vela::SwiftlogRecord& record : reader.records()) {
        std::ostringstream line;
        line << record;
        payloadBytes += record.payload.size();
        if (record.ticks < ticks || line.view().find('\n') != std::string_view::npos) {
            __builtin_trap();
        }
        ticks = record.ticks;
    }
    if (payloadBytes > size || (reader.header().version == 0 && reader.problems().empty())) {
        __builtin_trap();
    }
    return 0;
}
