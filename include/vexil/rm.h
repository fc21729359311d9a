/* SPDX-License-Identifier: MIT */
/*
 * rm: rules that turn source values into setting and preset ids, as its users see them.
 *
 * Build: rm_init without an image, rm_insert_source_json, rm_insert against a map, rm_finish,
 * rm_export. Run: rm_init over the image, rm_create_handler for each caller, rm_handler_set,
 * rm_handler_trigger, rm_handler_get_result and _preset, then load the ids from the map.
 *
 * JSON documents come from vexil_json_parse and stay the caller's. Without further word a function
 * answers NULL arguments with false or 0, and says nothing.
 *
 * All calls may sleep. Threads: handlers of one context may be set, triggered, cleared and read at
 * the same time; everything else is for one caller at a time.
 */
#ifndef VEXIL_RM_H
#define VEXIL_RM_H

#include <vexil/pim.h>

VEXIL_BEGIN_C

typedef struct rm rm;
typedef struct rm_handler rm_handler;

/* ---- life ---- */

/**
 * rm_init - an empty context, or one over an image
 * @pRm:        set on success only
 * @buf, @size: image, kept alive, writable and to itself by the caller; NULL or 0 for none
 *
 * Return: false without memory (logged with 185 when it was the root's), for an image that is short, of
 * another kind or version (silent), or with a name that cannot be indexed (logged).
 */
bool rm_init(rm **pRm, char *buf, u32 size);
/**
 * rm_finish - seal a context that was built
 *
 * Resolves what is still pending, records the key's size and makes the context's buffers. May be
 * called again after more was inserted.
 *
 * Return: false without memory, and while a rule or a range refers to a name that does not exist;
 * the context can be used in that case.
 */
bool rm_finish(rm *pRm);
/** rm_destroy - free the context, not an adopted image; *pRm becomes NULL. */
bool rm_destroy(rm **pRm);

/* ---- building ---- */

/**
 * rm_insert_source_json - the "PqRuleLists" of a document
 *
 * Return: true when there is nothing to insert. False for a version other than 2.0 to 2.2, once a
 * handler exists, for a source of more than 65535 values and when the key would pass 65536 bits (both
 * logged), and without memory.
 */
bool rm_insert_source_json(rm *pRm, struct cJSON *root);
/**
 * rm_insert - the "PqRuleGroups" of a document
 * @pPim: names settings and presets; read only
 *
 * Cases that cannot be compiled are logged and left out; groups of another version than 2.0 to 2.2
 * and without "rules" are passed over. Return: false for NULLs only.
 */
bool rm_insert(rm *pRm, struct cJSON *root, const pim *pPim);

/* ---- evaluating ---- */

/**
 * rm_set - state sources
 * @source_filter: "Input:HDMI1;Timing:2160p60;Luma:812": labels, or a value source and its number.
 *                 Case and blanks do not matter; unknown names are passed over.
 * @source_value:  number of the value sources that @source_filter gives none
 *
 * Sources keep their value until they are set again or cleared. Return: false for NULLs, without
 * buffers, for a token of more than 127 characters and a source that has no field.
 */
bool rm_set(rm *pRm, const char *source_filter, u64 source_value);
/**
 * rm_trigger - evaluate rules against the sources set so far
 * @rule_name: NULL: every rule, in image order. "A;B": those, in that order. A '-' anywhere: every
 *             rule but those named. Case and blanks do not matter; unknown names are logged and
 *             skipped, names beyond the 128th dropped.
 *
 * Empties both result lists, then appends the outcomes of each rule's first matching case.
 *
 * Return: true when all were evaluated, matched or not. False at the first rule that cannot be
 * evaluated; its node id is logged, and ids pushed before it stay.
 */
bool rm_trigger(rm *pRm, const char *rule_name);
/** rm_find - set @source_filter and evaluate one rule, by its whole name, or (NULL) every rule. */
bool rm_find(rm *pRm, const char *source_filter, const char *rule_name);
/** rm_clear - forget every source. False when a buffer is missing. */
bool rm_clear(rm *pRm);
/** The setting ids found; they belong to the context and last until the next evaluation. */
size_t rm_get_result(rm *pRm, u16 **result_array);
/** The preset ids found, likewise. */
size_t rm_get_preset(rm *pRm, u16 **preset_array);
size_t rm_get_num_result(rm *pRm);

/* ---- handlers: evaluation states of their own over one context ---- */

/**
 * rm_create_handler - one more evaluation state
 * @pRm: finished or adopted; it must outlive the handler, and takes no further sources
 */
bool rm_create_handler(rm *pRm, rm_handler **pRmHdl);
bool rm_handler_set(rm_handler *pRmHdl, const char *source_filter, u64 source_value);
bool rm_handler_trigger(rm_handler *pRmHdl, const char *rule_name);
/** Uses the context's own key and lists, not the handler's: read them with rm_get_result. */
bool rm_handler_find(rm_handler *pRmHdl, const char *source_filter, const char *rule_name);
bool rm_handler_clear(rm_handler *pRmHdl);
size_t rm_handler_get_result(rm_handler *pRmHdl, u16 **result_array);
size_t rm_handler_get_preset(rm_handler *pRmHdl, u16 **preset_array);
size_t rm_handler_get_num_result(rm_handler *pRmHdl);
/** Frees the handler; *pRmHdl becomes NULL. False when it is NULL. */
bool rm_handler_destroy(rm_handler **pRmHdl);

/* ---- images and merging ---- */

/** Bytes that rm_export writes. */
size_t rm_get_export_size(rm *pRm);
/** rm_export - write the image. Return: its bytes; 0 for NULLs. */
size_t rm_export(rm *pRm, char *buf);
/**
 * rm_merge - the rules of two images in one
 * @pRm:      freshly initialised and empty; destroy it when the merge fails
 * @pRm_base: its rules win where names are the same
 * @pRm_sub:  unchanged, as is the base; built with the same sources
 * @pPim:     the map that pim_merge filled, not one adopted from its image: it knows by how much the
 *            sub's ids have moved
 */
bool rm_merge(rm *pRm, rm *pRm_base, rm *pRm_sub, const pim *pPim);

/* ---- queries ---- */

bool rm_get_version(rm *pRm, vexil_version *ver_in);
bool rm_get_rl_version(rm *pRm, vexil_version *ver_in);
/** Version of the rule named exactly @ruleName. */
bool rm_get_rm_version(rm *pRm, vexil_version *ver_in, const char *ruleName);
/** The context's own text, good until it is destroyed. */
bool rm_get_cus_version(rm *pRm, char **ver_cus);
/** Dumps the tree, root included, through the store's print hook. */
void rm_print(rm *pRm);

VEXIL_END_C

#endif /* VEXIL_RM_H */
