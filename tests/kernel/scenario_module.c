// SPDX-License-Identifier: MIT
/*
 * vexil_scenario.ko runs the scenarios when it is loaded, as a driver of the pipeline would: through
 * the table. Whether they held is its parameter "result" then, as vexil_scenarios returns it.
 */
#include <linux/kernel.h>
#include <linux/module.h>
#include <linux/sched.h>
#include <linux/slab.h>

#include "scenario.h"
#include "vexil_pubif.h"

static unsigned int rounds = 1;
module_param(rounds, uint, 0444);
MODULE_PARM_DESC(rounds, "how often the scenarios run");

static char *only;
module_param(only, charp, 0444);
MODULE_PARM_DESC(only, "the one scenario to run");

static bool starved;
module_param(starved, bool, 0444);
MODULE_PARM_DESC(starved, "allocations fail at random: nothing is expected but survival");

static bool sweep;
module_param(sweep, bool, 0444);
MODULE_PARM_DESC(sweep, "each allocation of each slot fails in turn; where allocations can be refused");

static int result;
module_param(result, int, 0444);
MODULE_PARM_DESC(result, "0: every check held; only to be read");

static void write_line(void *context, const char *text)
{
	pr_info("%s\n", text);
}

static void *allocate(void *context, size_t size)
{
	return kvmalloc(size, GFP_KERNEL);
}

static void release(void *context, void *block)
{
	kvfree(block);
}

static void breathe(void *context)
{
	cond_resched();
}

static int __init scenario_init(void)
{
	const struct vexil_scenario_env env = {
		.line = write_line,
		.allocate = allocate,
		.release = release,
		.strtoull = kstrtoull,
		.strtoll = kstrtoll,
		.pause = breathe,
		.only = only,
		.starved = starved,
	};
	const _PUBIF_VEXIL *table = vexil_pubif_table();

	if (!table)
		return -ENODEV;
	result = sweep ? vexil_scenario_sweep(table, &env) : vexil_scenarios(table, &env, rounds);
	return 0;
}
module_init(scenario_init);

static void __exit scenario_exit(void)
{
}
module_exit(scenario_exit);

MODULE_DESCRIPTION("What drivers do with vexil, told in the kernel log");
MODULE_LICENSE("Dual MIT/GPL");
