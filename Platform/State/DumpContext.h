#pragma once

#include "Platform/State/Entity.h"

#include <cstdarg>
#include <string>
#include <string_view>
#include <unordered_set>

namespace Vela {

/// Collects one dump of the object tree, which begins with child() of its root. Each object is
/// written once: met again, it is named with a marker, so that shared objects do not repeat and
/// cycles end.
class DumpContext {
  public:
    /// Collects into text().
    DumpContext() = default;
    /// Writes to a descriptor that it does not own, in large pieces, the rest at flush() and at
    /// the end. Waits for a slow reader; one that goes away ends the output (see failed()), and not
    /// the process where that ignores SIGPIPE.
    explicit DumpContext(int fd) : fd_(fd) {}
    DumpContext(const DumpContext&) = delete;
    DumpContext& operator=(const DumpContext&) = delete;
    ~DumpContext() { flush(); }

    /// `indent` blanks (none for 0), then the formatted text.
    void print(int indent, const char* format, ...) __attribute__((format(printf, 3, 4)));

    /// The child's own dump, or "name=NULL" where there is none, or
    /// "name=<Type dumped above>" where it has been written.
    void child(int indent, const char* name, const Entity* entity);

    const std::string& text() const { return text_; }
    void flush() noexcept;
    bool failed() const noexcept { return failed_; }

  private:
    std::string text_;
    std::unordered_set<const Entity*> dumped_;
    int fd_ = -1;
    bool failed_ = false;
};

} // namespace Vela
