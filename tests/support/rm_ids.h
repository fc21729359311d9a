// SPDX-License-Identifier: MIT
//
// Ids that outcomes of rules have in tests that need no map: the setting "s7" has the id 1007, the
// preset "p7" the id 2007.
#pragma once

#include <vector>

#include <vexil/types.h>

namespace vexil_test::states {

using Ids = std::vector<u16>;

inline constexpr u16 kSettingIds = 1000;
inline constexpr u16 kPresetIds = 2000;
inline constexpr int kNamesInMap = 200;

} // namespace vexil_test::states
