// SPDX-License-Identifier: MIT
//
// The public-interface module's part, for programs: takes the table at registration and hands it out.

#include <vexil/pubif.h>

#include "platform/host/host.h"

extern "C" int init_module(void);

namespace {

_PUBIF_VEXIL registered;

} // namespace

extern "C" {

int vexil_CBRegister(_PUBIF_VEXIL *table)
{
	registered = *table;
	return 0;
}

const _PUBIF_VEXIL *vexil_host_load(void)
{
	init_module();
	return &registered;
}

} // extern "C"
