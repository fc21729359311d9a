/* SPDX-License-Identifier: MIT */
/*
 * Picture quality of one display pipeline: source values in, register writes out, a few in each
 * frame. Knows vexil and the pipeline's registers, but no kernel: what it takes from outside is the
 * table, two images, and functions that write.
 *
 * Nothing here takes a lock, and everything may sleep: one caller at a time for each struct pq.
 */
#ifndef PQ_CORE_H
#define PQ_CORE_H

#include <vexil/pubif.h>

/** Ids of one evaluation: more settings or presets than this are refused. */
#define PQ_MAX_IDS 64

/** The pipeline's register fields, by position: as in the documents that the map is built from. */
extern const ST_PQ_REG_INFO pq_registers[];
extern const size_t pq_num_registers;

/**
 * pq_output - where values go; all are called from pq_frame
 * @context:  handed to the functions below
 * @hardware: the bits of @mask in the 16-bit register @address take the bits of @value. Both come
 *            from an image: not every address need exist.
 * @software: a parameter of the driver itself
 * @table:    the tone curve, little-endian words; good during the call
 * @filter:   parameters of the filter @name, a text without a NUL; good during the call
 */
struct pq_output {
	void *context;
	void (*hardware)(void *context, u8 domain, u32 address, u16 mask, u16 value);
	void (*software)(void *context, u32 number, u32 value);
	void (*table)(void *context, const char *bytes, u32 size);
	void (*filter)(void *context, const char *name, const char *text, u32 size);
};

/** An image in memory of the caller's: writable, its own, and there until pq_stop. */
struct pq_image {
	char *bytes;
	u32 size;
};

struct pq {
	const _PUBIF_VEXIL *vexil;
	const struct pq_output *output;
	u32 pairs_per_frame;
	void *map;   /* settings: which registers take which values */
	void *rules; /* which settings the sources select */
	void *state; /* our sources, and what was selected last */

	/* What is still to be written. */
	bool common; /* registers that members of a setting share */
	u16 settings[PQ_MAX_IDS];
	size_t num_settings;
	size_t next; /* of the settings */
	u16 presets[PQ_MAX_IDS];
	size_t num_presets;
};

/**
 * pq_start - adopt both images
 * @pq:              any contents
 * @output:          kept until pq_stop
 * @pairs_per_frame: register pairs that can be written within one vertical blank
 *
 * The registers that settings share and the first matrix are waiting to be written afterwards.
 *
 * Return: 0, or a negative errno; nothing is held then.
 */
int pq_start(struct pq *pq, const _PUBIF_VEXIL *vexil, const struct pq_output *output,
	     u32 pairs_per_frame, struct pq_image map, struct pq_image rules);

/** pq_stop - give everything back; the images are free to go afterwards. */
void pq_stop(struct pq *pq);

/**
 * pq_evaluate - state sources, and select what they call for
 * @sources: "Input:Hdmi1;Room:120"; what is not named keeps its value
 *
 * What earlier evaluations left unwritten is dropped. Return: 0, or a negative errno; what was
 * waiting still waits then.
 */
int pq_evaluate(struct pq *pq, const char *sources);

/**
 * pq_frame - write what fits into one vertical blank
 *
 * Return: true when something is left for the next frame.
 */
bool pq_frame(struct pq *pq);

#endif /* PQ_CORE_H */
