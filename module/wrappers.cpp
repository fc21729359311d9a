// SPDX-License-Identifier: MIT
//
// The functions behind the slots: cast and forward. Whatever they answer is decided elsewhere.

#include <vexil/pubif.h>

#include "core/json.h"

namespace {

pim *as_pim(void *context)
{
	return static_cast<pim *>(context);
}

pim **as_pim(void **context)
{
	return reinterpret_cast<pim **>(context);
}

rm *as_rm(void *context)
{
	return static_cast<rm *>(context);
}

rm **as_rm(void **context)
{
	return reinterpret_cast<rm **>(context);
}

rm_handler *as_handler(void *handler)
{
	return static_cast<rm_handler *>(handler);
}

rm_handler **as_handler(void **handler)
{
	return reinterpret_cast<rm_handler **>(handler);
}

cJSON *as_json(void *item)
{
	return static_cast<cJSON *>(item);
}

} // namespace

extern "C" {

bool vexil_pim_init(void **pim_ptr, char *buf, u32 size)
{
	return pim_init(as_pim(pim_ptr), buf, size, nullptr, 0);
}

bool vexil_pim_init_with_regmerge(void **pim_ptr, char *buf, u32 size, const void *table,
				  size_t tableSize)
{
	return pim_init(as_pim(pim_ptr), buf, size, static_cast<const ST_PQ_REG_INFO *>(table),
			tableSize);
}

size_t vexil_pim_export(void *pim_ptr, char *buf)
{
	return pim_export(as_pim(pim_ptr), buf);
}

size_t vexil_pim_get_export_size(void *pim_ptr)
{
	return pim_get_export_size(as_pim(pim_ptr));
}

bool vexil_pim_merge(void *pPim, void *pPim_base, void *pPim_sub)
{
	return pim_merge(as_pim(pPim), as_pim(pPim_base), as_pim(pPim_sub));
}

u32 vexil_pim_get_reg_num(void *pim_ptr, u8 eDomain, EN_PQ_LEVEL ePqLevel)
{
	return pim_get_reg_num(as_pim(pim_ptr), eDomain, ePqLevel);
}

bool vexil_pim_insert_regmap(void *pim_ptr, const char *regname, u32 func_pos)
{
	return pim_insert_regmap(as_pim(pim_ptr), regname, func_pos);
}

bool vexil_pim_insert_regmap_json(void *pim_ptr, void *json_node)
{
	return pim_insert_regmap_json(as_pim(pim_ptr), as_json(json_node));
}

bool vexil_pim_insert_vregmap(void *pim_ptr, const char *vregname, int index)
{
	return pim_insert_vregmap(as_pim(pim_ptr), vregname, static_cast<u32>(index));
}

bool vexil_pim_insert_vregmap_json(void *pim_ptr, void *json_node)
{
	return pim_insert_vregmap_json(as_pim(pim_ptr), as_json(json_node));
}

bool vexil_pim_insert_cus_vregmap(void *pim_ptr, const char *vregname, int index)
{
	return pim_insert_cus_vregmap(as_pim(pim_ptr), vregname, static_cast<u32>(index));
}

bool vexil_pim_insert_cus_vregmap_json(void *pim_ptr, void *json_node)
{
	return pim_insert_cus_vregmap_json(as_pim(pim_ptr), as_json(json_node));
}

bool vexil_pim_insert_file(void *pim_ptr, const char *name, const char *data, u32 size)
{
	return pim_insert_file(as_pim(pim_ptr), name, data, size);
}

bool vexil_pim_insert_handler(void *pim_ptr, const char *fn_label, vexil_callback fn)
{
	return pim_insert_handler(as_pim(pim_ptr), fn_label, fn);
}

bool vexil_pim_insert_alg_handler(void *pim_ptr, vexil_alg_callback fn)
{
	return pim_insert_alg_handler(as_pim(pim_ptr), fn);
}

bool vexil_pim_insert(void *pim_ptr, void *json_node)
{
	return pim_insert(as_pim(pim_ptr), as_json(json_node));
}

void vexil_pim_load_setting_by_name(void *pim_ptr, const char *name, vexil_callback fn, void *pCtx)
{
	pim_load_setting_by_name(as_pim(pim_ptr), name, fn, pCtx);
}

void vexil_pim_load_setting(void *pim_ptr, u16 node_id, bool bCheckCommon, vexil_callback fn,
			    void *pCtx)
{
	pim_load_setting(as_pim(pim_ptr), node_id, bCheckCommon, fn, pCtx);
}

u32 vexil_pim_load_setting_count(void *pim_ptr, u16 node_id, u32 mLoadSizeRemain,
				 vexil_callback fn, void *pCtx)
{
	return pim_load_setting_count(as_pim(pim_ptr), node_id, mLoadSizeRemain, fn, pCtx);
}

void vexil_pim_load_preset(void *pim_ptr, u16 *pnid_array, size_t nid_num, char *funcName,
			   vexil_callback fn, void *pCtx)
{
	pim_load_preset(as_pim(pim_ptr), pnid_array, nid_num, funcName, fn, pCtx);
}

void vexil_pim_load_common_reg_setting(void *pim_ptr, vexil_callback fn, void *pCtx)
{
	pim_load_common_reg_setting(as_pim(pim_ptr), fn, pCtx);
}

void vexil_pim_get_setting(void *pim_ptr, u16 node_id, char **out)
{
	pim_get_setting(as_pim(pim_ptr), node_id, out);
}

bool vexil_pim_destroy(void **pim_ptr)
{
	return pim_destroy(as_pim(pim_ptr));
}

bool vexil_pim_finish(void *pim_ptr)
{
	return pim_finish(as_pim(pim_ptr));
}

bool vexil_pim_get_version(void *pim_ptr, vexil_version *ver_in)
{
	return pim_get_version(as_pim(pim_ptr), ver_in);
}

bool vexil_pim_get_hwreg_version(void *pim_ptr, vexil_version *ver_in)
{
	return pim_get_hwreg_version(as_pim(pim_ptr), ver_in);
}

bool vexil_pim_get_swreg_version(void *pim_ptr, vexil_version *ver_in)
{
	return pim_get_swreg_version(as_pim(pim_ptr), ver_in);
}

bool vexil_pim_get_cus_swreg_version(void *pim_ptr, vexil_version *ver_in)
{
	return pim_get_cus_swreg_version(as_pim(pim_ptr), ver_in);
}

bool vexil_pim_get_pim_version(void *pim_ptr, vexil_version *ver_in, const char *ipName)
{
	return pim_get_pim_version(as_pim(pim_ptr), ver_in, ipName);
}

bool vexil_pim_get_cus_version(void *pim_ptr, char **ver_cus)
{
	return pim_get_cus_version(as_pim(pim_ptr), ver_cus);
}

bool vexil_rm_init(void **rm_ptr, char *buf, u32 size)
{
	return rm_init(as_rm(rm_ptr), buf, size);
}

size_t vexil_rm_get_export_size(void *rm_ptr)
{
	return rm_get_export_size(as_rm(rm_ptr));
}

size_t vexil_rm_export(void *rm_ptr, char *buf)
{
	return rm_export(as_rm(rm_ptr), buf);
}

bool vexil_rm_merge(void *pRm, void *pRm_base, void *pRm_sub, const void *pPim)
{
	return rm_merge(as_rm(pRm), as_rm(pRm_base), as_rm(pRm_sub),
			static_cast<const pim *>(pPim));
}

bool vexil_rm_insert_source_json(void *rm_ptr, void *json_node)
{
	return rm_insert_source_json(as_rm(rm_ptr), as_json(json_node));
}

bool vexil_rm_insert(void *rm_ptr, void *json_node, void *pim_ptr)
{
	return rm_insert(as_rm(rm_ptr), as_json(json_node), as_pim(pim_ptr));
}

bool vexil_rm_set(void *rm_ptr, const char *source_filter, u64 source_value)
{
	return rm_set(as_rm(rm_ptr), source_filter, source_value);
}

bool vexil_rm_trigger(void *rm_ptr, const char *rule_name)
{
	return rm_trigger(as_rm(rm_ptr), rule_name);
}

bool vexil_rm_clear(void *rm_ptr)
{
	return rm_clear(as_rm(rm_ptr));
}

size_t vexil_rm_get_result(void *rm_ptr, u16 **result_list)
{
	return rm_get_result(as_rm(rm_ptr), result_list);
}

size_t vexil_rm_get_preset(void *rm_ptr, u16 **preset_list)
{
	return rm_get_preset(as_rm(rm_ptr), preset_list);
}

bool vexil_rm_create_handler(void *pRm, void **pRmHdl)
{
	return rm_create_handler(as_rm(pRm), as_handler(pRmHdl));
}

bool vexil_rm_handler_set(void *pRmHdl, const char *source_filter, u64 source_value)
{
	return rm_handler_set(as_handler(pRmHdl), source_filter, source_value);
}

bool vexil_rm_handler_trigger(void *pRmHdl, const char *rule_name)
{
	return rm_handler_trigger(as_handler(pRmHdl), rule_name);
}

bool vexil_rm_handler_clear(void *pRmHdl)
{
	return rm_handler_clear(as_handler(pRmHdl));
}

size_t vexil_rm_handler_get_result(void *pRmHdl, u16 **result_list)
{
	return rm_handler_get_result(as_handler(pRmHdl), result_list);
}

size_t vexil_rm_handler_get_preset(void *pRmHdl, u16 **preset_list)
{
	return rm_handler_get_preset(as_handler(pRmHdl), preset_list);
}

bool vexil_rm_destroy(void **rm_ptr)
{
	return rm_destroy(as_rm(rm_ptr));
}

bool vexil_rm_handler_destroy(void **pRmHdl)
{
	return rm_handler_destroy(as_handler(pRmHdl));
}

bool vexil_rm_finish(void *rm_ptr)
{
	return rm_finish(as_rm(rm_ptr));
}

bool vexil_rm_get_version(void *rm_ptr, vexil_version *ver_in)
{
	return rm_get_version(as_rm(rm_ptr), ver_in);
}

bool vexil_rm_get_rl_version(void *rm_ptr, vexil_version *ver_in)
{
	return rm_get_rl_version(as_rm(rm_ptr), ver_in);
}

bool vexil_rm_get_rm_version(void *rm_ptr, vexil_version *ver_in, const char *ruleName)
{
	return rm_get_rm_version(as_rm(rm_ptr), ver_in, ruleName);
}

bool vexil_rm_get_cus_version(void *rm_ptr, char **ver_cus)
{
	return rm_get_cus_version(as_rm(rm_ptr), ver_cus);
}

bool vexil_graphic_presetdb_parse(void *json_node, graphic_presetdb_info *info)
{
	return graphic_presetdb_parse(as_json(json_node), info);
}

} // extern "C"
