// SPDX-License-Identifier: MIT
/*
 * Marks the task as one whose allocations the kernel may refuse, for as long as starved scenarios run.
 * How often it refuses is set in debugfs.
 */
#include <linux/sched.h>

#include "scenario.h"

int __real_vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
			   unsigned int rounds);
int __wrap_vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
			   unsigned int rounds);

int __wrap_vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
			   unsigned int rounds)
{
	int result;

	current->make_it_fail = env->starved;
	result = __real_vexil_scenarios(table, env, rounds);
	current->make_it_fail = 0;
	return result;
}
