// SPDX-License-Identifier: MIT
/*
 * vexil_scenario: the transcript of the scenarios on a desk. What the kernel does must be the same.
 */
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "platform/host/host.h"
#include "scenario.h"

int kstrtoull(const char *s, unsigned int base, unsigned long long *res);
int kstrtoll(const char *s, unsigned int base, long long *res);
void *kvmalloc_node(size_t size, unsigned int flags, int node);
void kvfree(const void *addr);

/* ---- all memory: counted, and refused at random on request ---- */

static unsigned long live_blocks, refused_blocks;
static unsigned int starving; /* one of so many requests is refused; 0: none */
static unsigned int random_state;

/* Of the requests from now on: the first that is refused, and whether all after it are. */
static unsigned int refused_nth;
static bool refused_rest, refused_any;

static bool refused_now(void)
{
	if (!refused_nth || (refused_nth > 1 && --refused_nth))
		return false;
	if (!refused_rest)
		refused_nth = 0;
	refused_any = true;
	return true;
}

static bool refuse(void *context, unsigned int nth, bool rest)
{
	const bool any = refused_any;

	(void)context;
	refused_nth = nth;
	refused_rest = rest;
	refused_any = false;
	return any;
}

void *kvmalloc_node(size_t size, unsigned int flags, int node)
{
	void *block;

	(void)flags;
	(void)node;
	random_state = random_state * 1664525u + 1013904223u;
	/* The first block is the story itself. */
	if (starving && live_blocks && (random_state >> 8) % starving == 0) {
		refused_blocks++;
		return NULL;
	}
	if (refused_now())
		return NULL;
	block = malloc(size ? size : 1);
	live_blocks += block != NULL;
	return block;
}

void kvfree(const void *addr)
{
	live_blocks -= addr != NULL;
	free((void *)addr);
}

/* ---- the transcript ---- */

static void write_line(void *context, const char *text)
{
	(void)context;
	puts(text);
}

/** Log lines that would look different, or be cut, in the kernel's log. */
static unsigned int unfit_lines;

/** The kernel makes a record of every call, whether its text ends with a newline or not. */
static void write_log(const char *text, size_t length, void *context)
{
	size_t i;

	(void)context;
	if (length > 0 && text[length - 1] == '\n')
		length--;
	for (i = 0; i < length && text[i] >= 0x20 && text[i] < 0x7F; i++)
		;
	if (i < length || length > 900) {
		unfit_lines++;
		printf("vexil scenario: FAILED log: the next line does not fit the kernel's log\n");
	}
	printf("%.*s\n", (int)length, text);
}

static void *allocate(void *context, size_t size)
{
	(void)context;
	return kvmalloc_node(size, 0, 0);
}

static void release(void *context, void *block)
{
	(void)context;
	kvfree(block);
}

/* ---- faults that the scenarios must find ---- */

/** Like a C library's conversion: stops at the first foreign character. */
static int lax_strtoull(const char *s, unsigned int base, unsigned long long *res)
{
	*res = strtoull(s, NULL, (int)base);
	return 0;
}

static bool merge_nothing(void *pPim, void *pPim_base, void *pPim_sub)
{
	(void)pPim;
	(void)pPim_base;
	(void)pPim_sub;
	return true;
}

static int usage(FILE *out)
{
	fprintf(out,
		"usage: vexil_scenario [--rounds N] [--only NAME] [--starve SEED] [--fault "
		"numbers|table] [--list] [--sweep]\n"
		"Writes the transcript to standard output. Exit code 1: a check failed, or memory "
		"is left.\n"
		"  --starve  refuses allocations at random, one of 10 to 1280 by the seed;\n"
		"            nothing is expected but survival\n"
		"  --sweep   refuses each allocation of each slot in turn, and all from each on\n"
		"  --fault   runs with a wrong conversion or a wrong slot, which must be found\n");
	return out == stdout ? 0 : 2;
}

static int list(void)
{
	const char *name;
	unsigned int index;

	for (index = 0; (name = vexil_scenario_name(index)) != NULL; index++)
		puts(name);
	return 0;
}

int main(int argc, char **argv)
{
	struct vexil_scenario_env env = {
		.line = write_line,
		.allocate = allocate,
		.release = release,
		.strtoull = kstrtoull,
		.strtoll = kstrtoll,
	};
	_PUBIF_VEXIL table;
	unsigned int rounds = 1;
	int i, result;

	vexil_host_set_log_sink(write_log, NULL);
	init_module();
	table = *vexil_host_table();
	for (i = 1; i < argc; i++) {
		const char *option = argv[i], *value = i + 1 < argc ? argv[i + 1] : NULL;

		if (!strcmp(option, "--help"))
			return usage(stdout);
		if (!strcmp(option, "--list"))
			return list();
		if (!strcmp(option, "--sweep")) {
			env.refuse = refuse;
			env.exact = true;
			continue;
		}
		if (!value)
			return usage(stderr);
		i++;
		if (!strcmp(option, "--rounds")) {
			rounds = (unsigned int)strtoul(value, NULL, 10);
		} else if (!strcmp(option, "--only")) {
			env.only = value;
		} else if (!strcmp(option, "--starve")) {
			random_state = (unsigned int)strtoul(value, NULL, 10);
			starving = 10u << random_state % 8;
			env.starved = true;
		} else if (!strcmp(option, "--fault") && !strcmp(value, "numbers")) {
			env.strtoull = lax_strtoull;
		} else if (!strcmp(option, "--fault") && !strcmp(value, "table")) {
			table.fp_CB_vexil_pim_merge = merge_nothing;
		} else {
			return usage(stderr);
		}
	}
	result = env.refuse ? vexil_scenario_sweep(&table, &env)
			    : vexil_scenarios(&table, &env, rounds);
	if (result < 0) {
		fprintf(stderr, "vexil_scenario: nothing ran\n");
		return 2;
	}
	if (starving)
		fprintf(stderr, "vexil_scenario: %lu requests were refused\n", refused_blocks);
	if (live_blocks) {
		fprintf(stderr, "vexil_scenario: %lu blocks are left\n", live_blocks);
		result = 1;
	}
	return result || unfit_lines;
}
