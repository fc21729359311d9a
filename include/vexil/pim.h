/* SPDX-License-Identifier: MIT */
/*
 * pim: one picture-quality IP map, as its users see it.
 *
 * A map is built from JSON documents, or stands over an image that was exported before:
 *
 *   building  pim_init without an image. Register lists, handlers and files first, then pim_insert
 *             as often as there are documents. Everything else may be called as well.
 *   finished  pim_finish has dropped the register names: no more register lists and documents.
 *   adopted   pim_init over an image: loading, queries, merging, export, and handlers, which images
 *             never hold. The caller keeps the image alive, writable and to itself: adoption writes
 *             register lists in address form into it.
 *
 * JSON documents come from vexil_json_parse and stay the caller's. Without further word a function
 * answers NULL arguments with false, 0 or nothing, and says nothing.
 *
 * All calls may sleep. Threads: none inside. One caller at a time for each map; loading only reads.
 */
#ifndef VEXIL_PIM_H
#define VEXIL_PIM_H

#include <vexil/callbacks.h>
#include <vexil/reg_info.h>

VEXIL_BEGIN_C

typedef struct pim pim;
struct cJSON;

/* ---- life ---- */

/**
 * pim_init - an empty map, or one over an image
 * @pPim: set on success, and when the name of a file in the image could not be indexed (the map is
 *        usable, the result false); untouched on any other failure. Start from NULL and destroy whatever
 *        is set. A label that could not be indexed is not found, and the result is true.
 * @buf, @size: image, or NULL or 0 for an empty map
 * @reg_info_table, @tableSize: the caller's register table and its number of entries; without both,
 *        none. With one, hardware register lists are rewritten in address form, in the image.
 *
 * Return: false without memory (logged with 159 when it was the root's), for an image that is short, of another
 * kind or version (silent) or without nodes (logged with 123), and as said for @pPim.
 */
bool pim_init(pim **pPim, char *buf, u32 size, const ST_PQ_REG_INFO *reg_info_table,
	      size_t tableSize);

/** pim_finish - drop the register names. Return: false for NULL only. */
bool pim_finish(pim *pPim);
/** pim_destroy - free the map, not an adopted image; *pPim becomes NULL. False for NULLs. */
bool pim_destroy(pim **pPim);

/* ---- building ---- */

/** pim_insert_regmap - a hardware register at @func_pos, 0 to 0x7FFFFFFE; the first position stays. */
bool pim_insert_regmap(pim *pPim, const char *regname, u32 func_pos);
/**
 * pim_insert_regmap_json - the "PqHWRegList" of a document
 *
 * Entries that are no {name: number} are logged and skipped, positions above 0x7FFFFFFE and repeated
 * names skipped silently. Return: false for NULLs only.
 */
bool pim_insert_regmap_json(pim *pPim, struct cJSON *json_node);

/** A software register and its value; 0x80000000 cannot be told from "unknown" afterwards. */
bool pim_insert_vregmap(pim *pPim, const char *vregname, u32 value);
/** The same for a customer software register. */
bool pim_insert_cus_vregmap(pim *pPim, const char *vregname, u32 value);
/** The "PqSWRegList" and then the "PqCusSWRegList" of a document. False for NULLs only. */
bool pim_insert_vregmap_json(pim *pPim, struct cJSON *json_node);
/** The "PqCusSWRegList" of a document. False for NULLs only. */
bool pim_insert_cus_vregmap_json(pim *pPim, struct cJSON *json_node);

/**
 * pim_insert_file - a named file, copied into the map
 * @size: bytes, at least 1
 *
 * Return: false for NULLs, an empty file, a name that is taken (logged) or refused by the trie, and
 * without memory or nodes.
 */
bool pim_insert_file(pim *pPim, const char *name, const char *data, u32 size);
/**
 * pim_insert_handler - who receives the lookup tables of entries labelled @fn_label
 * @fn: may be NULL; a label that is registered already keeps its place and gets the new @fn
 *
 * Return: false for a NULL map or label, for the 65th label, and for a label that the trie refuses
 * (which uses up its place).
 */
bool pim_insert_handler(pim *pPim, const char *fn_label, vexil_callback fn);
/** pim_insert_alg_handler - who receives algorithm files; NULL for nobody. */
bool pim_insert_alg_handler(pim *pPim, alg_callback fn);

/**
 * pim_insert - the function groups of a document
 * @json_root: root object: "VexilVersion", "PqFuncGroups"
 *
 * Return: true when there is nothing to insert. False for NULLs, versions other than 2.0 to 2.2
 * (silent), "PqFuncGroups" without members, folders nested too deep (both logged), and when a
 * setting could not be stored (logged). What was inserted before stays. Bad entries of a
 * configuration are logged and skipped.
 */
bool pim_insert(pim *pPim, struct cJSON *json_root);

/* ---- loading ---- */

/** pim_query_setting_id - node id of a label, 0xFFFF when unknown. */
u16 pim_query_setting_id(const pim *pPim, const char *name);
/** pim_query_preset_id - the same for presets. */
u16 pim_query_preset_id(const pim *pPim, const char *name);

/**
 * pim_load_setting - deliver the blocks of a configuration, in order
 * @node_id:      see pim_query_setting_id
 * @bCheckCommon: without effect
 * @fn:           receives register blocks; lookup tables go to the handler of their label,
 *                algorithm files to the algorithm handler
 *
 * Stops, with a log line, at a block that cannot be read and at a missing file or handler; blocks
 * before it have been delivered. Allocates nothing.
 */
void pim_load_setting(pim *pPim, u16 node_id, bool bCheckCommon, vexil_callback fn, void *pCtx);
/** The same by label: plain and common configurations first, then presets. */
void pim_load_setting_by_name(pim *pPim, const char *name, vexil_callback fn, void *pCtx);
/**
 * pim_load_setting_count - the same within a budget
 * @mLoadSizeRemain: hardware register pairs that may be delivered; 0xFFFFFF: no limit
 *
 * Return: what is left; negative as s32 when a block did not fit, by how much. That block is not
 * delivered, not even in part, and nothing after it.
 */
u32 pim_load_setting_count(pim *pPim, u16 node_id, u32 mLoadSizeRemain, vexil_callback fn,
			   void *pCtx);

/**
 * pim_load_preset - the presets of @pnid_array that belong to register table @funcName
 *
 * Ends, with a log line, at an id outside the map.
 */
void pim_load_preset(pim *pPim, u16 *pnid_array, size_t nid_num, const char *funcName,
		     vexil_callback fn, void *pCtx);
/** pim_load_common_reg_setting - every common register block, in image order. */
void pim_load_common_reg_setting(pim *pPim, vexil_callback fn, void *pCtx);
/**
 * pim_get_setting - label of a configuration
 * @out: the label inside the store, good until the store changes; NULL when the configuration has
 *       none; untouched for other nodes and (logged) for ids outside the map
 */
void pim_get_setting(pim *pPim, u16 node_id, char **out);

/* ---- images and merging ---- */

/** Bytes that pim_export writes; 0 for NULL. */
size_t pim_get_export_size(pim *pPim);
/** pim_export - write the image. Return: its bytes; 0 for NULL map or (EXTMEM_NOMEM) buffer. */
size_t pim_export(pim *pPim, char *buf);
/**
 * pim_merge - a base map with a sub map over it
 * @pPim: freshly initialised and empty; destroy it when the merge fails
 * @pPim_base, @pPim_sub: unchanged; they may be destroyed afterwards
 *
 * IPs and files of the sub replace those of the same name, whole; new ones are added. Versions and
 * the algorithm handler are the base's; other handlers are to be registered anew.
 *
 * Return: false for NULLs, when the stores cannot be joined (see extmem_merge_buffer), and when a
 * name of the result could not be indexed.
 */
bool pim_merge(pim *pPim, pim *pPim_base, pim *pPim_sub);

/* ---- queries ---- */

/**
 * pim_get_reg_num - registers per setting, as counted on adoption
 * @eDomain:  0 to 15, or 16 for all
 * @ePqLevel: 0 to 7, or 8 for all
 */
u32 pim_get_reg_num(pim *pPim, u8 eDomain, EN_PQ_LEVEL ePqLevel);
bool pim_get_version(pim *pPim, vexil_version *ver_in);
bool pim_get_hwreg_version(pim *pPim, vexil_version *ver_in);
bool pim_get_swreg_version(pim *pPim, vexil_version *ver_in);
bool pim_get_cus_swreg_version(pim *pPim, vexil_version *ver_in);
/** Version of the first IP or folder named exactly @ipName; false when there is none. */
bool pim_get_pim_version(pim *pPim, vexil_version *ver_in, const char *ipName);
/** The map's own text, good until it is destroyed. */
bool pim_get_cus_version(pim *pPim, char **ver_cus);
/** Dumps the tree, root included, through the store's print hook. */
void pim_print(pim *pPim);

VEXIL_END_C

#endif /* VEXIL_PIM_H */
