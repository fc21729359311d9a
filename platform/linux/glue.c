// SPDX-License-Identifier: MIT
/*
 * The module towards the kernel: what it is, what it exports, and those functions of
 * platform/platform.h that a kernel has as macros only. The one file that sees kernel headers.
 */
#include <linux/gfp.h>
#include <linux/module.h>
#include <linux/slab.h>

#ifdef VEXIL_CONSTANTS

/* Compiled to assembler text only, from which Kbuild reads the kernel's numbers. */
#include <linux/kbuild.h>

void vexil_constants(void);
void vexil_constants(void)
{
	DEFINE(VEXIL_GFP_KERNEL, GFP_KERNEL);
}

#else

#include <vexil/pubif.h>

/* Since 6.10, a macro that notes its caller. */
#ifdef kvmalloc_node
static void *allocate(size_t size, gfp_t flags, int node)
{
	return kvmalloc_node(size, flags, node);
}

#undef kvmalloc_node
void *kvmalloc_node(size_t size, gfp_t flags, int node);
void *kvmalloc_node(size_t size, gfp_t flags, int node)
{
	return allocate(size, flags, node);
}
#endif

/*
 * Exported: the functions of the public headers as they are declared there, so that their symbol
 * versions follow their arguments; those whose arguments are C++ records by name only.
 */
#define VEXIL_EXPORT(name) EXPORT_SYMBOL(name);
#define VEXIL_EXPORT_BY_NAME(name)                                                                 \
	void name(void);                                                                           \
	EXPORT_SYMBOL(name);
#include "exports.h"

MODULE_DESCRIPTION("Picture-quality register settings");
MODULE_VERSION(VEXIL_VERSION);
MODULE_LICENSE("Dual MIT/GPL");

#endif
