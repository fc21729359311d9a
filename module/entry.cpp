// SPDX-License-Identifier: MIT
//
// Loading and unloading.

#include "module/pubif.h"

VEXIL_BEGIN_C

int init_module(void);
void cleanup_module(void);

int init_module(void)
{
	// What is handed out ends with this call: the other module must copy it.
	_PUBIF_VEXIL table = vexil::kPublicInterface;
	vexil_CBRegister(&table);
	return 0;
}

void cleanup_module(void)
{
	// There is no unregistration: nobody may call through the table after this.
}

VEXIL_END_C
