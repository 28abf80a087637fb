#pragma once

#include "Platform/Trace/SwiftlogFormat.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vela {

enum class SwiftlogThreading { single = 0 };

struct SwiftlogConfig {
    /// Below the directory of ring-buffer files; each "%d" becomes the process id.
    std::string fileName = {};
    /// Ring sizes from `firstLevel` on, rounded up to blocks of 4 KiB; 0 keeps no records of a
    /// level. Levels that are not named have 32 KiB.
    std::vector<unsigned> levelKiB = {};
    std::string secondaryFileName = {}; ///< there is one file per process: must be empty
    unsigned firstLevel = 0;
    unsigned typeAreaKiB = 24; ///< room for the descriptions of record types
    SwiftlogThreading threading = SwiftlogThreading::single;
    /// Allocates the whole file at the start, so that a full file system is an error there and
    /// not a SIGBUS at some later record.
    bool preallocate = true;
    unsigned maxRecordBytes = 512; ///< header included; longer records are cut
};

/// The ring-buffer file: typed records of recent events that are always written, survive the
/// death of the process and are formatted only when somebody reads them (SwiftlogReader.h).
/// Records are written through `SwiftlogType`. For one thread; a forked child does not write into
/// its parent's file.
namespace Swiftlog {

/// Creates the file and starts recording; until then records vanish. An older file of the name is
/// kept as "<name>.1": after a crash it is the one that people need. A failure is reported on
/// standard error and leaves no file. Initialising again replaces the file in use.
void initialize(const SwiftlogConfig& config);

/// Stops recording; the file stays.
void close();

/// The path of the file in use, empty if there is none.
const std::string& fileName();

/// Where files go when the environment variable SWIFTLOGDIR is unset or empty; it starts as
/// "/var/log/swiftlog". The directory is created when needed.
void defaultDirectoryIs(std::string directory);

struct RecordField {
    std::string_view label;
    SwiftlogFormat::FieldKind kind;
    uint16_t offset;
    uint16_t bytes;
};

/// What a file says about a kind of record, and whether the current file says it already.
struct RecordType {
    std::string_view unit;
    std::string_view title;
    std::string_view closing;
    unsigned level;
    uint32_t payloadBytes;
    std::vector<RecordField> fields;

    mutable uint64_t describedIn = 0; ///< number of the file that `typeId` is valid for
    mutable uint16_t typeId = 0;
};

/// Copies `type.payloadBytes` bytes from `payload` into the ring of the type's level.
void write(const RecordType& type, const void* payload);

} // namespace Swiftlog
} // namespace Vela
