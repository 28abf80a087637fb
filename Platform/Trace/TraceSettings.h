#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vela {

/// The levels 0 to `highest` as a bit each, bit n for level n.
constexpr uint32_t traceLevelsUpTo(int highest) {
    return (2u << highest) - 1;
}

/// Which levels are on for which handles: "ArpSuppression=8,Scheduler=3,*=1". The number is the
/// highest level that is on. A name may end in '*', which stands for any rest. The entry that
/// names most of the handle decides, the full name before any '*'; of two alike, the later.
class TraceSettings {
  public:
    /// Adds one text to `problems` for each piece that is not of that form, naming the piece and
    /// what was expected; the other pieces count.
    static TraceSettings parse(std::string_view text, std::vector<std::string>& problems);

    /// The levels for a handle, 0 when no entry fits.
    uint32_t levels(std::string_view handleName) const;

  private:
    struct Entry {
        std::string name; // without the '*'
        bool isPrefix;
        uint32_t levels;

        /// How well the entry fits, -1 if it does not.
        int fit(std::string_view handleName) const;
    };

    std::vector<Entry> entries_;
};

} // namespace Vela
