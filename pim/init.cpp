// SPDX-License-Identifier: MIT
//
// A map's beginning: empty, or over an image that the version gate lets through.

#include "core/fail.h"
#include "pim/layout.h"

namespace {

using vexil::lib_fail;

constexpr int kNoRootReport = 159;
constexpr int kNoNodesReport = 123;

constexpr ctrie pim::*kTries[] = {
	&pim::ip_map,   &pim::ipname_map,      &pim::preset_map,       &pim::file_map,
	&pim::regname_to_func, &pim::vregname_to_func, &pim::cus_vregname_to_func, &pim::fn_map,
};

bool init_empty(pim *map)
{
	extmem_builder_init(&map->builder, nullptr, 0);
	map->root = extmem_request_node(&map->builder, EXTMEM_TAG_GENERAL);
	if (map->root.id == 0 && extmem_node_isvalid(map->root))
		return true;
	lib_fail("pim_init", kNoRootReport);
	return false;
}

bool init_from_image(pim *map, char *buf, u32 size)
{
	if (!extmem_builder_init(&map->builder, buf, size) ||
	    !__pim_check_bin_version(map, &map->builder.header))
		return false;
	vexil::clamp_data(&map->builder, size);
	map->root = extmem_create_node_d(&map->builder, 0);
	if (extmem_node_isvalid(map->root))
		return true;
	lib_fail("pim_init", kNoNodesReport);
	return false;
}

bool init_tries(pim *map)
{
	for (const auto trie : kTries) {
		if (!ctrie_init(&(map->*trie)))
			return false;
	}
	return true;
}

} // namespace

extern "C" {

bool pim_init(pim **pPim, char *buf, u32 size, const ST_PQ_REG_INFO *reg_info_table,
	      size_t tableSize)
{
	if (!pPim)
		return false;
	auto *map = static_cast<pim *>(ALLOC(sizeof(pim)));
	if (!map)
		return false;
	memset(map, 0, sizeof *map);
	map->root = vexil::kInvalidNode;
	if (reg_info_table && tableSize) {
		map->reg_info_table = reg_info_table;
		map->reg_info_table_size = tableSize;
	}
	const bool adopt = buf && size;
	if (!init_tries(map) || !(adopt ? init_from_image(map, buf, size) : init_empty(map))) {
		pim_destroy(&map);
		return false;
	}
	*pPim = map;
	return !adopt || vexil::scan_root(map);
}

bool __pim_check_bin_version(pim *pPim, const extmem_buffer_header *pHeader)
{
	if (!pPim || !vexil::is_image_of(pHeader, vexil::kPimImageKind))
		return false;
	pPim->total_version = pHeader->total_version;
	pPim->hwreg_json_version = pHeader->hw_json_version;
	pPim->swreg_json_version = pHeader->sw_json_version;
	memcpy(pPim->cus_version, pHeader->cus_version, sizeof pPim->cus_version);
	pPim->cus_version[sizeof pPim->cus_version - 1] = '\0';
	return true;
}

bool pim_finish(pim *pPim)
{
	if (!pPim)
		return false;
	ctrie_destroy(&pPim->regname_to_func);
	ctrie_destroy(&pPim->vregname_to_func);
	ctrie_destroy(&pPim->cus_vregname_to_func);
	return true;
}

bool pim_destroy(pim **pPim)
{
	if (!pPim || !*pPim)
		return false;
	pim *map = *pPim;
	// A map whose tries failed has no hooks yet, and nothing to free.
	if (map->builder.deallocate)
		extmem_builder_destroy(&map->builder);
	for (const auto trie : kTries)
		ctrie_destroy(&(map->*trie));
	map->root.id = vexil::kNoNode;
	DEALLOC(map);
	*pPim = nullptr;
	return true;
}

} // extern "C"
