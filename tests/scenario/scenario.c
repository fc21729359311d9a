// SPDX-License-Identifier: MIT
/*
 * Runs the scenarios: all or one, once or in rounds.
 */
#include "story.h"

struct scenario {
	const char *name;
	void (*run)(struct story *s);
};

static const struct scenario scenarios[] = {
#define VEXIL_SCENARIO_ROW(name) {#name, scenario_##name},
	SCENARIOS(VEXIL_SCENARIO_ROW)
#undef VEXIL_SCENARIO_ROW
};
#define SCENARIO_COUNT (sizeof scenarios / sizeof scenarios[0])

static const char *const slot_names[SLOT_COUNT] = {
#define VEXIL_SLOT_NAME(result, name, arguments) #name,
	VEXIL_SERVICES(VEXIL_SLOT_NAME)
#undef VEXIL_SLOT_NAME
};

const char *vexil_scenario_name(unsigned int index)
{
	return index < SCENARIO_COUNT ? scenarios[index].name : NULL;
}

/* Kept apart, so that what one needs on the stack is not there for all. */
#define APART __attribute__((__noinline__)) static

/** Each slot holds the exported function of its name. */
APART void check_table(struct story *s)
{
	s->scenario = "table";
#define VEXIL_CHECK_SLOT(result, name, arguments)                                             \
	check(s, s->table->fp_CB_vexil_##name == vexil_##name, "slot %s is another function", \
	      #name);
	VEXIL_SERVICES(VEXIL_CHECK_SLOT)
#undef VEXIL_CHECK_SLOT
}

/** Every slot was called by some scenario. */
APART void check_slots(struct story *s)
{
	unsigned int used = 0, i;

	s->scenario = "slots";
	for (i = 0; i < SLOT_COUNT; i++) {
		used += s->calls[i] != 0;
		check(s, s->calls[i] != 0, "slot %s was never called", slot_names[i]);
	}
	say(s, "vexil scenario: %u of %u slots called", used, (unsigned int)SLOT_COUNT);
}

APART unsigned int run_once(struct story *s)
{
	const char *only = s->env->only;
	unsigned int ran = 0;
	size_t i;

	s->digest = DIGEST_START;
	check_table(s);
	for (i = 0; i < SCENARIO_COUNT; i++) {
		if (only && !same_text(only, scenarios[i].name))
			continue;
		s->scenario = scenarios[i].name;
		s->blocks = 0;
		s->block_digest = DIGEST_START;
		s->quiet = false;
		say(s, "vexil scenario: %s", s->scenario);
		scenarios[i].run(s);
		ran++;
		breathe(s);
	}
	if (!only)
		check_slots(s);
	return ran;
}

int vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
		    unsigned int rounds)
{
	struct story *s = env->allocate(env->context, sizeof *s);
	unsigned int ran = 0;
	u64 first = 0;
	int result;

	if (!s)
		return -1;
	fill_bytes(s, 0, sizeof *s);
	s->table = table;
	s->env = env;
	s->scenario = "begin";
	story_current = s;
	env->line(env->context, "vexil scenario: begin");
	for (s->round = 1; s->round <= rounds; s->round++) {
		ran = run_once(s);
		s->scenario = "rounds";
		if (s->round == 1)
			first = s->digest;
		else
			check(s, s->digest == first, "round %u differs from the first", s->round);
	}
	s->round = 1;
	say(s, "vexil scenario: %u rounds", rounds);
	say(s, "vexil scenario: failed %u", s->failed);
	say(s, "vexil scenario: end %u checks", s->checks);
	result = !ran ? -1 : s->failed ? 1 : 0;
	story_current = NULL;
	env->release(env->context, s);
	return result;
}
