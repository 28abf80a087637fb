#pragma once

#include "Platform/Scheduler/Task.h"
#include "Testing/CoreFixture.h"

#include <functional>
#include <string>
#include <utility>

namespace Vela {

/// A test with tasks that write down when they run.
class TaskFixture : public Testing::CoreFixture {
  protected:
    /// A task that appends its name to `ran` and then does `what`.
    Ptr<Task> task(const std::string& name, TaskPriority priority = 3,
                   std::function<void()> what = nullptr) {
        return make<Task>(scheduler(), priority, name, nullptr, [this, name, what] {
            ran += name;
            if (what) {
                what();
            }
            return SliceResult{false, 1};
        });
    }

    /// The same; it has work for that many slices each time it is asked to run.
    Ptr<Task> longTask(const std::string& name, int slices, TaskPriority priority = 3) {
        return make<Task>(scheduler(), priority, name, nullptr,
                          [this, name, slices, left = slices]() mutable {
                              ran += name;
                              if (--left > 0) {
                                  return SliceResult{true, 1};
                              }
                              left = slices;
                              return SliceResult{false, 1};
                          });
    }

    /// What ran since the last call.
    std::string taken() { return std::exchange(ran, ""); }

    std::string ran;
};

} // namespace Vela
