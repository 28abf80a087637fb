#pragma once

#include "Platform/Base/String.h"

namespace L3 {

/// The name of a VRF.
using VrfName = Vela::String<100>;

} // namespace L3
