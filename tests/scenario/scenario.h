/* SPDX-License-Identifier: MIT */
/*
 * Scenarios: what drivers do with the library, and what they must not get away with, told as a
 * transcript. The same files are compiled into a program on a desk and into a kernel module; both
 * must write the same lines.
 *
 * To build: the files that sources.txt lists, plus document_table.c and document_bytes.S, which
 *
 *     embed.sh OUT EXAMPLES		writes into OUT from the folder examples/ of this tree
 *     embed.sh --list EXAMPLES	names what these two depend on
 *
 * C11 (or gnu11). Include paths: include/ of this tree, this folder. No library is needed but the
 * compiler's own memcpy and memset. Frames are at most 512 bytes, the deepest call chain outside of
 * the library is well below 2 KB, nothing recurses.
 *
 * Taken from the library: the table; and, because they have no slot, the exported functions
 * vexil_mem_init, vexil_mem_status, vexil_mem_alloc, vexil_strtoull, pim_print, rm_print, rm_find,
 * rm_handler_find, rm_get_num_result, rm_handler_get_num_result, pim_query_setting_id,
 * pim_query_preset_id, vexil_image_verify and vexil_image_code_text. The wrappers, vexil_<service>, are compared with the slots, hence must be
 * exported as well.
 */
#ifndef VEXIL_SCENARIO_H
#define VEXIL_SCENARIO_H

#include <vexil/pubif.h>

/**
 * vexil_scenario_env - what the scenarios take from where they run
 * @context:	handed to the functions below, untouched
 * @line:	takes one line of the transcript: no newline in it, at most 900 characters, all of
 *		them printable ASCII. It must keep its place among the lines that the library logs.
 * @allocate:	a block of @size bytes, never 0; NULL when there is none. May sleep.
 * @release:	takes such a block back; NULL is never given
 * @strtoull:	kstrtoull of the platform
 * @strtoll:	kstrtoll of the platform
 * @pause:	called between cases, a few thousand times: cond_resched. May be NULL.
 * @only:	name of the one scenario to run; NULL for all of them. Names: vexil_scenario_name.
 * @starved:	allocations are made to fail at random: nothing is expected any more but survival,
 *		so neither results nor the transcript are compared
 * @refuse:	from now on the @nth allocation of the caller is refused, and with @rest all after it;
 *		0: none any more. Returns whether one was refused since the call before. For
 *		vexil_scenario_sweep alone; NULL where allocations cannot be refused.
 * @exact:	@refuse counts what the library asks for, and nothing else; kernels that watch allocations
 *		make more of their own
 */
struct vexil_scenario_env {
	void *context;
	void (*line)(void *context, const char *text);
	void *(*allocate)(void *context, size_t size);
	void (*release)(void *context, void *block);
	int (*strtoull)(const char *text, unsigned int base, unsigned long long *result);
	int (*strtoll)(const char *text, unsigned int base, long long *result);
	void (*pause)(void *context);
	const char *only;
	bool starved;
	bool (*refuse)(void *context, unsigned int nth, bool rest);
	bool exact;
};

/**
 * vexil_scenarios - run them
 * @rounds: how often; the lines of the first round are written, those of the others only compared
 *	    with it (log lines of the library come every time)
 *
 * The transcript begins with "vexil scenario: begin" and ends with "vexil scenario: failed N" and
 * "vexil scenario: end N checks". A check that fails writes
 * "vexil scenario: FAILED <scenario>: <what>". One caller at a time.
 *
 * Return: 0 when all ran and every check held, 1 when one failed, -1 when there is no such scenario
 * or no memory to begin with.
 */
int vexil_scenarios(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env,
		    unsigned int rounds);

/**
 * vexil_scenario_sweep - every slot, and the verifier, with each allocation refused in turn, and all
 *			  from each on
 *
 * Writes lines that begin with "vexil sweep: ", the last of them
 * "vexil sweep: N slots, N ask for memory, N refusals, failed N"; a check that fails is told as above,
 * and ends the sweep.
 *
 * Return: as vexil_scenarios; -1 also without @refuse.
 */
int vexil_scenario_sweep(const _PUBIF_VEXIL *table, const struct vexil_scenario_env *env);

/** Name of scenario @index, from 0; NULL behind the last. */
const char *vexil_scenario_name(unsigned int index);

#endif /* VEXIL_SCENARIO_H */
