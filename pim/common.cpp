// SPDX-License-Identifier: MIT
//
// The registers that all members of a common group share.

#include "pim/common.h"

#include "core/bytes.h"
#include "core/scratch.h"
#include "extmem/tree.h"
#include "pim/entries.h"
#include "pim/layout.h"

namespace vexil {

bool contains(const reg_func *list, func_pair pair)
{
	for (u32 i = 0; i < list->fn_num; ++i) {
		if (list->fn_tbl[i].fn_idx == pair.fn_idx && list->fn_tbl[i].fn_para == pair.fn_para)
			return true;
	}
	return false;
}

Narrowed narrow_common(pim *map, const cJSON *member, reg_func *common)
{
	const RegisterNames names = hardware_names("__pim_search_common_hwregister");
	const Entries entries(vexil::member(member, "hwreg"));
	const bool first_member = common->fn_num == 0;

	// What stays is written over the list, in this member's order: compare with a copy of it.
	const size_t list_bytes = reg_list_bytes(common->fn_num);
	const Scratch<u8> before(map->builder, first_member ? 0 : list_bytes);
	if (!first_member && !before)
		return Narrowed::kNoMemory;
	auto *previous = reinterpret_cast<reg_func *>(before.get());
	if (!first_member)
		memcpy(previous, common, list_bytes);

	common->fn_num = 0;
	for (const cJSON *entry : entries) {
		func_pair pair;
		if (!resolve_register(map, names, entry, &pair))
			continue;
		if (!first_member && !contains(previous, pair))
			continue;
		common->fn_tbl[common->fn_num++] = pair;
		if (common->fn_num == kMaxCommonPairs)
			break;
	}
	return common->fn_num != 0 ? Narrowed::kSomeLeft : Narrowed::kNothingLeft;
}

} // namespace vexil

extern "C" {

bool __pim_search_common_hwregister(pim *pPim, cJSON *ipconfig_node, reg_func *common_reg_list)
{
	if (!pPim || !common_reg_list)
		return false;
	return vexil::narrow_common(pPim, ipconfig_node, common_reg_list) ==
	       vexil::Narrowed::kSomeLeft;
}

node_d __pim_get_common_reg_config(pim *pPim, const char *ipconfig, reg_func *common_reg_list)
{
	if (!pPim || !ipconfig || !common_reg_list)
		return vexil::kInvalidNode;
	const node_d config = extmem_request_node(&pPim->builder, EXTMEM_TAG_IP_COMMON_REG_CONFIG);
	if (!extmem_node_isvalid(vexil::add_property(config, ipconfig)))
		return vexil::kInvalidNode;
	const node_d holder = vexil::add_child(config, EXTMEM_TAG_GENERAL);
	const node_d list = vexil::add_record(holder, EXTMEM_TAG_REGISTER_RIU_SETTINGS, common_reg_list,
					      vexil::reg_list_bytes(common_reg_list->fn_num));
	return extmem_node_isvalid(list) ? config : vexil::kInvalidNode;
}

} // extern "C"
