// SPDX-License-Identifier: MIT
//
// The public-interface module's part, for programs: keeps the table that is registered.

#include "platform/host/host.h"

namespace {

_PUBIF_VEXIL registered;
bool is_registered = false;

} // namespace

extern "C" {

int vexil_CBRegister(_PUBIF_VEXIL *table)
{
	registered = *table; // the caller's is gone after this call
	is_registered = true;
	return 0;
}

const _PUBIF_VEXIL *vexil_host_table(void)
{
	return is_registered ? &registered : nullptr;
}

} // extern "C"
