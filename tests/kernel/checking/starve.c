// SPDX-License-Identifier: MIT
/*
 * Refuses the task's allocations: at random for as long as starved scenarios run, one by one when
 * they sweep. How often at random is set in debugfs; a sweep wants "always" there, and says which.
 */
#include <linux/sched.h>

#include "scenario.h"

int __real_vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
			   unsigned int rounds);
int __wrap_vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
			   unsigned int rounds);
int __real_vexil_scenario_sweep(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env);
int __wrap_vexil_scenario_sweep(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env);

int __wrap_vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
			   unsigned int rounds)
{
	int result;

	current->make_it_fail = env->starved;
	result = __real_vexil_scenarios(table, env, rounds);
	current->make_it_fail = 0;
	return result;
}

/*
 * While the task counts, nothing is refused but the allocation that it counts down to; then it is one
 * like others, refused always or never. A block of more than a page can be had in two ways, of which
 * a single refusal bars one.
 */
static bool refuse(void *context, unsigned int nth, bool rest)
{
	static bool counting;
	const bool reached = counting && !current->fail_nth;

	counting = nth;
	current->make_it_fail = nth && rest;
	current->fail_nth = nth;
	return reached;
}

int __wrap_vexil_scenario_sweep(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env)
{
	struct vexil_scenario_env refusing = *env;

	refusing.refuse = refuse;
	return __real_vexil_scenario_sweep(table, &refusing);
}
