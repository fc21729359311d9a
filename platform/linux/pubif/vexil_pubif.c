// SPDX-License-Identifier: MIT
/*
 * The reference public-interface module: receives vexil's table when vexil.ko is loaded, and hands
 * it to the drivers of the pipeline. An integrator's own module takes its place by supplying
 * vexil_CBRegister.
 *
 * Load order: this module, vexil.ko, drivers. Drivers use vexil.ko through pointers, which the
 * kernel cannot count: vexil.ko stays loaded as long as one of them may call.
 */
#include <linux/errno.h>
#include <linux/export.h>
#include <linux/module.h>

#include <vexil/pubif.h>

#include "vexil_pubif.h"

static _PUBIF_VEXIL registered;
static bool is_registered;

int vexil_CBRegister(_PUBIF_VEXIL *table)
{
	if (!table)
		return -EINVAL;
	registered = *table; /* the caller's is gone after this call */
	/* Whoever sees the mark sees the table. */
	smp_store_release(&is_registered, true);
	return 0;
}
EXPORT_SYMBOL(vexil_CBRegister);

const _PUBIF_VEXIL *vexil_pubif_table(void)
{
	return smp_load_acquire(&is_registered) ? &registered : NULL;
}
EXPORT_SYMBOL(vexil_pubif_table);

MODULE_DESCRIPTION("Public interface of the picture-quality pipeline: hands out vexil's table");
MODULE_VERSION(VEXIL_VERSION);
MODULE_LICENSE("Dual MIT/GPL");
