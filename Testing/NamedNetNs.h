#pragma once

#include <string>
#include <vector>

namespace Testing {

/// Moves the calling thread, and with it what it starts, into a network namespace of its own, and
/// gives it a /run of its own, so that the names of other namespaces are its own, too. Throws
/// std::runtime_error where that may not be done.
void enterOwnNamespaces();

/// A named network namespace, which lives as long as this object.
class NamedNetNs {
  public:
    /// Throws std::runtime_error.
    explicit NamedNetNs(std::string name);
    ~NamedNetNs();
    NamedNetNs(const NamedNetNs&) = delete;
    NamedNetNs& operator=(const NamedNetNs&) = delete;

    const std::string& name() const { return name_; }
    /// Runs `ip` in it.
    std::string ip(std::vector<std::string> arguments) const;

  private:
    const std::string name_;
};

} // namespace Testing
