// SPDX-License-Identifier: MIT
//
// Files, and the handlers that receive them.

#include "extmem/tree.h"
#include "pim/pim.h"

extern "C" {

bool pim_insert_file(pim *pPim, const char *name, const char *data, u32 size)
{
	if (!pPim || !name || !data || size == 0)
		return false;
	extmem_builder *store = &pPim->builder;
	if (ctrie_find(&pPim->file_map, name) != vexil::kNoValue) {
		store->print("[VEXIL][PIM][%s] duplicated file %s\n", "pim_insert_file", name);
		return false;
	}
	const node_d bytes =
		extmem_get_data(store, EXTMEM_TAG_DATA, const_cast<char *>(data), size);
	if (!extmem_node_isvalid(bytes))
		return false;
	const node_d file = extmem_request_node(store, EXTMEM_TAG_FILE);
	if (!extmem_append_child(file, bytes) ||
	    !extmem_node_isvalid(vexil::add_property(file, name)))
		return false;
	const node_d holder = extmem_request_node(store, EXTMEM_TAG_GENERAL);
	if (!extmem_append_child(holder, file))
		return false;
	// The name first: an image with a file that cannot be indexed would be refused for ever.
	if (!ctrie_insert(&pPim->file_map, name, file.id))
		return false;
	vexil::append_to_root(pPim->root, &pPim->root_tail_hint, holder);
	return true;
}

bool pim_insert_handler(pim *pPim, const char *fn_label, vexil_callback fn)
{
	if (!pPim || !fn_label)
		return false;
	const int known = ctrie_find(&pPim->fn_map, fn_label);
	if (known != vexil::kNoValue) {
		if (known < 0 || static_cast<size_t>(known) >= pPim->fn_list_num)
			return false;
		pPim->fn_list[known] = fn;
		return true;
	}
	if (pPim->fn_list_num >= vexil::kMaxHandlers)
		return false;
	// A label that the trie refuses keeps its place taken: places are handed out once.
	const size_t place = pPim->fn_list_num++;
	pPim->fn_list[place] = fn;
	return ctrie_insert(&pPim->fn_map, fn_label, static_cast<int>(place));
}

bool pim_insert_alg_handler(pim *pPim, alg_callback fn)
{
	if (!pPim)
		return false;
	pPim->alg_fn = fn;
	return true;
}

} // extern "C"
