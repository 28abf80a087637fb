#pragma once

#include <cstdint>

namespace Vela {

/// Gives the process its hash seed in the place of one drawn by chance, so that tables have the
/// same order each time: for tests. Before anything asks for the seed, or not at all.
void processHashSeedIs(uint64_t seed);

} // namespace Vela
