// SPDX-License-Identifier: MIT
//
// pim: one picture-quality IP map.
//
// A map is a store (extmem) that holds IP blocks, their settings, configurations, presets and
// files, and a set of tries that make their names resolvable in one lookup. Only the store becomes
// an image; the tries are rebuilt whenever one is adopted.
//
// This is the record and the steps behind the calls that users see in vexil/pim.h.
#pragma once

#include <vexil/pim.h>

#include "core/ctrie.h"
#include "core/version.h"
#include "extmem/extmem.h"

namespace vexil {

inline constexpr size_t kMaxHandlers = 64;
inline constexpr size_t kTimeDomains = 16;
inline constexpr size_t kPqLevels = 8;

} // namespace vexil

VEXIL_BEGIN_C

struct pim {
	extmem_builder builder;
	node_d root; // id 0, or 0xFFFF when initialisation failed

	// Names to node ids; rebuilt on adoption and merge.
	ctrie ip_map;     // IP name
	ctrie ipname_map; // label of a plain or common configuration
	ctrie preset_map; // label of a preset configuration
	ctrie file_map;   // file name

	// Names that documents refer to; gone after pim_finish.
	ctrie regname_to_func;      // hardware register to its function position
	ctrie vregname_to_func;     // software register to its value
	ctrie cus_vregname_to_func; // customer software register to its value

	// Handlers; never part of an image.
	ctrie fn_map; // label to index into fn_list
	vexil_callback fn_list[vexil::kMaxHandlers];
	size_t fn_list_num;
	vexil_alg_callback alg_fn;

	// The caller's register table; both zero without one.
	size_t reg_info_table_size;
	const ST_PQ_REG_INFO *reg_info_table;
	u16 reg_level_num[vexil::kTimeDomains][vexil::kPqLevels]; // filled on adoption and merge

	vexil_version total_version;
	vexil_version hwreg_json_version;
	vexil_version swreg_json_version;
	vexil_version cus_swreg_json_version; // not in images: 0.0.0 after adoption
	char cus_version[vexil::kCusVersionBytes];
	u16 max_node_index; // of a merged map: last node id of its base

	// Our own, in the record's padding: a child of the root near or at the end of its list, so that
	// appending does not walk it from the head; 0 when none is known.
	u16 root_tail_hint;
};

static_assert(sizeof(pim) == 1584);
static_assert(__builtin_offsetof(pim, root) == 184 && __builtin_offsetof(pim, ip_map) == 200);
static_assert(__builtin_offsetof(pim, ipname_map) == 264 &&
	      __builtin_offsetof(pim, preset_map) == 328);
static_assert(__builtin_offsetof(pim, file_map) == 392 &&
	      __builtin_offsetof(pim, regname_to_func) == 456);
static_assert(__builtin_offsetof(pim, vregname_to_func) == 520 &&
	      __builtin_offsetof(pim, cus_vregname_to_func) == 584);
static_assert(__builtin_offsetof(pim, fn_map) == 648 && __builtin_offsetof(pim, fn_list) == 712);
static_assert(__builtin_offsetof(pim, fn_list_num) == 1224 &&
	      __builtin_offsetof(pim, alg_fn) == 1232);
static_assert(__builtin_offsetof(pim, reg_info_table_size) == 1240 &&
	      __builtin_offsetof(pim, reg_info_table) == 1248);
static_assert(__builtin_offsetof(pim, reg_level_num) == 1256 &&
	      __builtin_offsetof(pim, total_version) == 1512);
static_assert(__builtin_offsetof(pim, hwreg_json_version) == 1520 &&
	      __builtin_offsetof(pim, swreg_json_version) == 1528);
static_assert(__builtin_offsetof(pim, cus_swreg_json_version) == 1536 &&
	      __builtin_offsetof(pim, cus_version) == 1544);
static_assert(__builtin_offsetof(pim, max_node_index) == 1576);
static_assert(sizeof(ST_PQ_REG_INFO) == 16 && __builtin_offsetof(ST_PQ_REG_INFO, b_valid) == 12);
static_assert(sizeof(reg_func) == 8 && sizeof(func_pair) == 8);

// ---- steps of the calls ----

/** Accepts a header of a map image of version 2.0 to 2.2 and takes over its versions. */
bool __pim_check_bin_version(pim *pPim, const extmem_buffer_header *pHeader);

/** Indexes one IP: its name, its labels; counts and rewrites its register lists. */
bool __pim_scan_ipname(pim *pPim, node_d ip_noded);

/** Indexes one file by its name; false when that name is missing, refused or taken. */
bool __pim_scan_file(pim *pPim, node_d file_noded);

/** Walks the siblings from @json_root on; @history has eight entries, @history_count is the depth. */
bool __pim_find_ip(pim *pPim, cJSON *json_root, cJSON **history, int history_count);

/** Narrows the common list (500 pairs) by one member. False when nothing is common any more. */
bool __pim_search_common_hwregister(pim *pPim, cJSON *ipconfig_node, reg_func *common_reg_list);

/** Stores the configuration that all members of a common group share. */
node_d __pim_get_common_reg_config(pim *pPim, const char *ipconfig, reg_func *common_reg_list);

/** Stores one member; pairs of the common list are left out, whatever @isCommonGroup says. */
node_d __pim_get_ipconfig(pim *pPim, cJSON *ipconfig_node, const char *ipconfig,
			  reg_func *common_reg_list, node_d presetRegsd, bool isCommonGroup,
			  bool isPresetRegs);

/**
 * The worker of the loaders: the blocks of @config, in order. Return: what is left of the budget,
 * unchanged for an invalid node and without a callback.
 */
u32 __pim_load_node(pim *pPim, node_d config, u32 mLoadSizeRemain, vexil_callback fn, void *pCtx);

VEXIL_END_C
