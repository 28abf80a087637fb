#pragma once

#include <string>

namespace Testing {

/// A directory of its own for a test, which is gone with everything in it when the test ends.
class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return path_; }

  private:
    std::string path_;
};

} // namespace Testing
