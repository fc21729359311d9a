// SPDX-License-Identifier: MIT

#include "module/pubif.h"

namespace {

constexpr size_t kSlots = 57;
static_assert(sizeof(_PUBIF_VEXIL) == kSlots * sizeof(void *));

// The binary contract, slot by slot, said a second time: whoever moves a line of the list learns it
// here.
#define VEXIL_AT(slot, name)                                                                       \
	static_assert(__builtin_offsetof(_PUBIF_VEXIL, fp_CB_vexil_##name) == (slot) * sizeof(void *))
VEXIL_AT(0, json_parse);
VEXIL_AT(1, json_delete);
VEXIL_AT(2, pim_init);
VEXIL_AT(3, pim_init_with_regmerge);
VEXIL_AT(4, pim_export);
VEXIL_AT(5, pim_get_export_size);
VEXIL_AT(6, pim_merge);
VEXIL_AT(7, pim_get_reg_num);
VEXIL_AT(8, pim_insert_regmap);
VEXIL_AT(9, pim_insert_regmap_json);
VEXIL_AT(10, pim_insert_vregmap);
VEXIL_AT(11, pim_insert_vregmap_json);
VEXIL_AT(12, pim_insert_cus_vregmap);
VEXIL_AT(13, pim_insert_cus_vregmap_json);
VEXIL_AT(14, pim_insert_file);
VEXIL_AT(15, pim_insert_handler);
VEXIL_AT(16, pim_insert_alg_handler);
VEXIL_AT(17, pim_insert);
VEXIL_AT(18, pim_load_setting_by_name);
VEXIL_AT(19, pim_load_setting);
VEXIL_AT(20, pim_load_setting_count);
VEXIL_AT(21, pim_load_preset);
VEXIL_AT(22, pim_load_common_reg_setting);
VEXIL_AT(23, pim_get_setting);
VEXIL_AT(24, pim_destroy);
VEXIL_AT(25, pim_finish);
VEXIL_AT(26, pim_get_version);
VEXIL_AT(27, pim_get_hwreg_version);
VEXIL_AT(28, pim_get_swreg_version);
VEXIL_AT(29, pim_get_cus_swreg_version);
VEXIL_AT(30, pim_get_pim_version);
VEXIL_AT(31, pim_get_cus_version);
VEXIL_AT(32, rm_init);
VEXIL_AT(33, rm_get_export_size);
VEXIL_AT(34, rm_export);
VEXIL_AT(35, rm_merge);
VEXIL_AT(36, rm_insert_source_json);
VEXIL_AT(37, rm_insert);
VEXIL_AT(38, rm_set);
VEXIL_AT(39, rm_trigger);
VEXIL_AT(40, rm_clear);
VEXIL_AT(41, rm_get_result);
VEXIL_AT(42, rm_get_preset);
VEXIL_AT(43, rm_create_handler);
VEXIL_AT(44, rm_handler_set);
VEXIL_AT(45, rm_handler_trigger);
VEXIL_AT(46, rm_handler_clear);
VEXIL_AT(47, rm_handler_get_result);
VEXIL_AT(48, rm_handler_get_preset);
VEXIL_AT(49, rm_destroy);
VEXIL_AT(50, rm_handler_destroy);
VEXIL_AT(51, rm_finish);
VEXIL_AT(52, rm_get_version);
VEXIL_AT(53, rm_get_rl_version);
VEXIL_AT(54, rm_get_rm_version);
VEXIL_AT(55, rm_get_cus_version);
VEXIL_AT(56, graphic_presetdb_parse);
#undef VEXIL_AT

} // namespace

namespace vexil {

#define VEXIL_ENTRY(result, name, arguments) .fp_CB_vexil_##name = vexil_##name,
constinit const _PUBIF_VEXIL kPublicInterface = {VEXIL_SERVICES(VEXIL_ENTRY)};
#undef VEXIL_ENTRY

} // namespace vexil
