#pragma once

#include "Platform/Base/SourceSite.h"
#include "Platform/Trace/TraceSettings.h"
#include "Platform/Trace/TraceText.h"

#include <cerrno>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace boost {
template <class T>
class intrusive_ptr;
}

namespace Vela {

/// What people switch on and off: text trace lines are written through a handle, at a level from
/// 0 (rare) to 9 (flood). A new handle takes its levels from the environment variable VELA_TRACE
/// (TraceSettings.h has its form) or from the latest `traceLevelsIs`. Several handles may have
/// one name. For the one thread that everything runs on.
class TraceHandle {
  public:
    explicit TraceHandle(std::string_view name);
    ~TraceHandle();
    TraceHandle(const TraceHandle&) = delete;
    TraceHandle& operator=(const TraceHandle&) = delete;

    const std::string& name() const { return name_; }
    bool enabled(int level) const { return (levels_ >> level) & 1; }

    /// Bit n stands for level n.
    uint32_t levels() const { return levels_; }
    void levelsIs(uint32_t levels) { levels_ = levels; }

  private:
    std::string name_;
    mutable uint32_t levels_; // traceLevelsIs reaches handles that are const, too
};

/// Replaces the settings for all handles, those to come included. Returns a text for each piece
/// that was ignored.
std::vector<std::string> traceLevelsIs(std::string_view settings);

/// Takes one whole line, its newline included, in one call. A sink must not trace.
using TraceSink = std::function<void(std::string_view line)>;

/// Replaces the sink and returns the previous one; the empty sink is standard error.
TraceSink traceSinkIs(TraceSink sink);

template <class T>
concept HasStrep = requires(const T& value) {
    value.toStrep();
};

template <class T>
concept TraceObject = requires(const T& object, std::ostream& out) {
    object.formatTraceObject(out);
};

/// One line being put together; use it through TRACE. Pieces print as by `std::ostream`, except:
/// booleans as "yes" and "no"; 8-bit integers as numbers; whatever has `toStrep()` as that, or
/// else by its `formatTraceObject()`; pointers to such objects, `boost::intrusive_ptr` too, as
/// the object or "NULL". Leaves `errno` as it was: what is traced can still be looked at.
class TraceLine {
  public:
    ~TraceLine() { errno = errno_; }
    TraceLine(const TraceLine&) = delete;
    TraceLine& operator=(const TraceLine&) = delete;
    template <class Object>
    TraceLine(const TraceHandle& handle, int level, SourceSite site, const Object* object)
        : TraceLine(handle, level, site) {
        if (object) {
            object->formatTraceObject(out_);
        } else {
            out_ << '-';
        }
        out_ << ' ';
    }
    TraceLine(const TraceHandle& handle, int level, SourceSite site, std::nullptr_t)
        : TraceLine(handle, level, site) {
        out_ << "- ";
    }

    template <class T>
    TraceLine& operator<<(const T& piece) {
        print(piece);
        return *this;
    }

    /// Hands the line to the sink.
    void end();

  private:
    TraceLine(const TraceHandle& handle, int level, SourceSite site);

    template <class T>
    void print(const T& piece) {
        if constexpr (std::same_as<T, bool>) {
            out_ << (piece ? "yes" : "no");
        } else if constexpr (std::same_as<T, int8_t> || std::same_as<T, uint8_t>) {
            out_ << static_cast<int>(piece);
        } else if constexpr (HasStrep<T>) {
            out_ << piece.toStrep();
        } else if constexpr (TraceObject<T>) {
            piece.formatTraceObject(out_);
        } else {
            out_ << piece;
        }
    }
    template <class T>
    requires(HasStrep<T> || TraceObject<T> ||
             std::same_as<std::remove_cv_t<T>, char>) void print(T* const& pointer) {
        if (!pointer) {
            out_ << "NULL";
        } else if constexpr (std::same_as<std::remove_cv_t<T>, char>) {
            out_ << pointer;
        } else {
            print(static_cast<const std::remove_cv_t<T>&>(*pointer));
        }
    }
    template <class T>
    requires(HasStrep<T> || TraceObject<T>) void print(const boost::intrusive_ptr<T>& pointer) {
        print(pointer.get());
    }

    const int errno_ = errno;
    std::ostringstream out_;
};

} // namespace Vela

/// TRACE(traceHandle, 8, this, "vlanId=" << vlanId << " done=" << done);
/// `object` points to whatever has `formatTraceObject(std::ostream&) const`, or is nullptr.
/// Switched off it costs one branch: neither object nor pieces are evaluated.
#define TRACE(handle, level, object, ...)                                                          \
    do {                                                                                           \
        if ((handle).enabled(level)) [[unlikely]] {                                                \
            ::Vela::TraceLine velaTraceLine(handle, level, ::Vela::SourceSite::current(), object); \
            velaTraceLine << __VA_ARGS__;                                                          \
            velaTraceLine.end();                                                                   \
        }                                                                                          \
    } while (false)
