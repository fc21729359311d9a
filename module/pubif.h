// SPDX-License-Identifier: MIT
//
// The constant table.
#pragma once

#include <vexil/pubif.h>

namespace vexil {

extern const _PUBIF_VEXIL kPublicInterface;

} // namespace vexil
