// SPDX-License-Identifier: MIT
/*
 * vexil_faults.ko commits the fault that its parameter names when it is loaded. For the checking
 * kernel only, which must notice each.
 */
#include <linux/module.h>
#include <linux/sched.h>
#include <linux/string.h>

#include "faults.h"

static char *fault = "none";
module_param(fault, charp, 0444);
MODULE_PARM_DESC(fault, "which");

static bool starved;
module_param(starved, bool, 0444);
MODULE_PARM_DESC(starved, "allocations fail at random");

static const struct {
	const char *name;
	void (*commit)(void);
} faults[] = {
#define VEXIL_FAULT_ROW(name) { #name, fault_##name },
	VEXIL_FAULTS(VEXIL_FAULT_ROW)
#undef VEXIL_FAULT_ROW
};

static int __init faults_init(void)
{
	size_t i;

	for (i = 0; i < ARRAY_SIZE(faults); i++) {
		if (strcmp(fault, faults[i].name))
			continue;
		current->make_it_fail = starved;
		faults[i].commit();
		current->make_it_fail = 0;
		return 0;
	}
	return -EINVAL;
}
module_init(faults_init);

static void __exit faults_exit(void)
{
}
module_exit(faults_exit);

MODULE_DESCRIPTION("Faults that a checking kernel must notice");
MODULE_LICENSE("Dual MIT/GPL");
