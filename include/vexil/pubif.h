/* SPDX-License-Identifier: MIT */
/*
 * The callback table: every service, as a driver reaches it.
 *
 * When the module loads it hands the table to the pipeline's public-interface module through
 * vexil_CBRegister; that module copies it and hands it on. The order of the slots is a binary
 * contract and never changes.
 *
 * Each slot forwards to the function of the same name without "fp_CB_vexil_" (see vexil/mem.h,
 * vexil/pim.h, vexil/rm.h, vexil/presetdb.h), which says what it does, who owns what, and how it
 * fails. Contexts and documents are passed as untyped pointers: pim_ptr is a pim, rm_ptr an rm,
 * pRmHdl an rm_handler, json and json_node a document or an item of one. NULL arguments are
 * answered with false, 0 or nothing.
 *
 * All slots may sleep. None may be called after the module has been unloaded.
 */
#ifndef VEXIL_PUBIF_H
#define VEXIL_PUBIF_H

#include <vexil/callbacks.h>
#include <vexil/mem.h>
#include <vexil/pim.h>
#include <vexil/presetdb.h>
#include <vexil/reg_info.h>
#include <vexil/rm.h>
#include <vexil/verify.h>

/**
 * VEXIL_SERVICES - the slots in order: SERVICE(result, name, (arguments))
 *
 * Note pim_export before pim_get_export_size, but rm_get_export_size before rm_export.
 */
#define VEXIL_SERVICES(SERVICE) \
	/*  0 */ SERVICE(void *, json_parse, (const char *str)) \
	/*  1 */ SERVICE(void, json_delete, (void *json)) \
	/*  2 */ SERVICE(bool, pim_init, (void **pim_ptr, char *buf, u32 size)) \
	/*  3 */ SERVICE(bool, pim_init_with_regmerge, (void **pim_ptr, char *buf, u32 size, const void *table, size_t tableSize)) \
	/*  4 */ SERVICE(size_t, pim_export, (void *pim_ptr, char *buf)) \
	/*  5 */ SERVICE(size_t, pim_get_export_size, (void *pim_ptr)) \
	/*  6 */ SERVICE(bool, pim_merge, (void *pPim, void *pPim_base, void *pPim_sub)) \
	/*  7 */ SERVICE(u32, pim_get_reg_num, (void *pim_ptr, u8 eDomain, EN_PQ_LEVEL ePqLevel)) \
	/*  8 */ SERVICE(bool, pim_insert_regmap, (void *pim_ptr, const char *regname, u32 func_pos)) \
	/*  9 */ SERVICE(bool, pim_insert_regmap_json, (void *pim_ptr, void *json_node)) \
	/* 10 */ SERVICE(bool, pim_insert_vregmap, (void *pim_ptr, const char *vregname, int index)) \
	/* 11 */ SERVICE(bool, pim_insert_vregmap_json, (void *pim_ptr, void *json_node)) \
	/* 12 */ SERVICE(bool, pim_insert_cus_vregmap, (void *pim_ptr, const char *vregname, int index)) \
	/* 13 */ SERVICE(bool, pim_insert_cus_vregmap_json, (void *pim_ptr, void *json_node)) \
	/* 14 */ SERVICE(bool, pim_insert_file, (void *pim_ptr, const char *name, const char *data, u32 size)) \
	/* 15 */ SERVICE(bool, pim_insert_handler, (void *pim_ptr, const char *fn_label, vexil_callback fn)) \
	/* 16 */ SERVICE(bool, pim_insert_alg_handler, (void *pim_ptr, vexil_alg_callback fn)) \
	/* 17 */ SERVICE(bool, pim_insert, (void *pim_ptr, void *json_node)) \
	/* 18 */ SERVICE(void, pim_load_setting_by_name, (void *pim_ptr, const char *name, vexil_callback fn, void *pCtx)) \
	/* 19 */ SERVICE(void, pim_load_setting, (void *pim_ptr, u16 node_id, bool bCheckCommon, vexil_callback fn, void *pCtx)) \
	/* 20 */ SERVICE(u32, pim_load_setting_count, (void *pim_ptr, u16 node_id, u32 mLoadSizeRemain, vexil_callback fn, void *pCtx)) \
	/* 21 */ SERVICE(void, pim_load_preset, (void *pim_ptr, u16 *pnid_array, size_t nid_num, char *funcName, vexil_callback fn, void *pCtx)) \
	/* 22 */ SERVICE(void, pim_load_common_reg_setting, (void *pim_ptr, vexil_callback fn, void *pCtx)) \
	/* 23 */ SERVICE(void, pim_get_setting, (void *pim_ptr, u16 node_id, char **out)) \
	/* 24 */ SERVICE(bool, pim_destroy, (void **pim_ptr)) \
	/* 25 */ SERVICE(bool, pim_finish, (void *pim_ptr)) \
	/* 26 */ SERVICE(bool, pim_get_version, (void *pim_ptr, vexil_version *ver_in)) \
	/* 27 */ SERVICE(bool, pim_get_hwreg_version, (void *pim_ptr, vexil_version *ver_in)) \
	/* 28 */ SERVICE(bool, pim_get_swreg_version, (void *pim_ptr, vexil_version *ver_in)) \
	/* 29 */ SERVICE(bool, pim_get_cus_swreg_version, (void *pim_ptr, vexil_version *ver_in)) \
	/* 30 */ SERVICE(bool, pim_get_pim_version, (void *pim_ptr, vexil_version *ver_in, const char *ipName)) \
	/* 31 */ SERVICE(bool, pim_get_cus_version, (void *pim_ptr, char **ver_cus)) \
	/* 32 */ SERVICE(bool, rm_init, (void **rm_ptr, char *buf, u32 size)) \
	/* 33 */ SERVICE(size_t, rm_get_export_size, (void *rm_ptr)) \
	/* 34 */ SERVICE(size_t, rm_export, (void *rm_ptr, char *buf)) \
	/* 35 */ SERVICE(bool, rm_merge, (void *pRm, void *pRm_base, void *pRm_sub, const void *pPim)) \
	/* 36 */ SERVICE(bool, rm_insert_source_json, (void *rm_ptr, void *json_node)) \
	/* 37 */ SERVICE(bool, rm_insert, (void *rm_ptr, void *json_node, void *pim_ptr)) \
	/* 38 */ SERVICE(bool, rm_set, (void *rm_ptr, const char *source_filter, u64 source_value)) \
	/* 39 */ SERVICE(bool, rm_trigger, (void *rm_ptr, const char *rule_name)) \
	/* 40 */ SERVICE(bool, rm_clear, (void *rm_ptr)) \
	/* 41 */ SERVICE(size_t, rm_get_result, (void *rm_ptr, u16 **result_list)) \
	/* 42 */ SERVICE(size_t, rm_get_preset, (void *rm_ptr, u16 **preset_list)) \
	/* 43 */ SERVICE(bool, rm_create_handler, (void *pRm, void **pRmHdl)) \
	/* 44 */ SERVICE(bool, rm_handler_set, (void *pRmHdl, const char *source_filter, u64 source_value)) \
	/* 45 */ SERVICE(bool, rm_handler_trigger, (void *pRmHdl, const char *rule_name)) \
	/* 46 */ SERVICE(bool, rm_handler_clear, (void *pRmHdl)) \
	/* 47 */ SERVICE(size_t, rm_handler_get_result, (void *pRmHdl, u16 **result_list)) \
	/* 48 */ SERVICE(size_t, rm_handler_get_preset, (void *pRmHdl, u16 **preset_list)) \
	/* 49 */ SERVICE(bool, rm_destroy, (void **rm_ptr)) \
	/* 50 */ SERVICE(bool, rm_handler_destroy, (void **pRmHdl)) \
	/* 51 */ SERVICE(bool, rm_finish, (void *rm_ptr)) \
	/* 52 */ SERVICE(bool, rm_get_version, (void *rm_ptr, vexil_version *ver_in)) \
	/* 53 */ SERVICE(bool, rm_get_rl_version, (void *rm_ptr, vexil_version *ver_in)) \
	/* 54 */ SERVICE(bool, rm_get_rm_version, (void *rm_ptr, vexil_version *ver_in, const char *ruleName)) \
	/* 55 */ SERVICE(bool, rm_get_cus_version, (void *rm_ptr, char **ver_cus)) \
	/* 56 */ SERVICE(bool, graphic_presetdb_parse, (void *json_node, graphic_presetdb_info *info))

VEXIL_BEGIN_C

/* CB_vexil_<service>: the type of each slot. */
#define VEXIL_SLOT_TYPE(result, name, arguments) typedef result(*CB_vexil_##name) arguments;
VEXIL_SERVICES(VEXIL_SLOT_TYPE)
#undef VEXIL_SLOT_TYPE

/** The table: fp_CB_vexil_<service> in slot order, 57 pointers. */
typedef struct _PUBIF_VEXIL {
#define VEXIL_SLOT(result, name, arguments) CB_vexil_##name fp_CB_vexil_##name;
	VEXIL_SERVICES(VEXIL_SLOT)
#undef VEXIL_SLOT
} _PUBIF_VEXIL;

/* vexil_<service>: the functions behind the slots, exported by the module. */
#define VEXIL_WRAPPER(result, name, arguments) result vexil_##name arguments;
VEXIL_SERVICES(VEXIL_WRAPPER)
#undef VEXIL_WRAPPER

/**
 * vexil_CBRegister - supplied by the public-interface module
 * @table: to be copied during the call; it is gone afterwards
 *
 * Return: not looked at.
 */
int vexil_CBRegister(_PUBIF_VEXIL *table);

VEXIL_END_C

#endif /* VEXIL_PUBIF_H */
