// SPDX-License-Identifier: MIT
//
// Handlers: evaluation states of their own over a shared context.

#include "rm/evaluate.h"
#include "rm/layout.h"

extern "C" {

bool rm_create_handler(rm *pRm, rm_handler **pRmHdl)
{
	if (!pRm || !pRmHdl)
		return false;
	auto *handler = static_cast<rm_handler *>(ALLOC(sizeof(rm_handler)));
	if (!handler)
		return false;
	*handler = {.rmInd = {}, .pRm = pRm};
	if (!vexil::make_buffers(pRm, pRm->used_bits, pRm->res_num, &handler->rmInd)) {
		DEALLOC(handler);
		return false;
	}
	pRm->has_handlers = true;
	*pRmHdl = handler;
	return true;
}

bool rm_handler_set(rm_handler *pRmHdl, const char *source_filter, u64 source_value)
{
	return pRmHdl && __rm_build_key(pRmHdl->pRm, &pRmHdl->rmInd, source_filter, source_value);
}

bool rm_handler_trigger(rm_handler *pRmHdl, const char *rule_name)
{
	return pRmHdl && pRmHdl->pRm &&
	       vexil::trigger(pRmHdl->pRm, &pRmHdl->rmInd, rule_name, "rm_handler_trigger");
}

bool rm_handler_find(rm_handler *pRmHdl, const char *source_filter, const char *rule_name)
{
	if (!pRmHdl || !pRmHdl->pRm || !source_filter)
		return false;
	return vexil::find(pRmHdl->pRm, &pRmHdl->rmInd, source_filter, rule_name,
			   {"rm_handler_find", true});
}

bool rm_handler_clear(rm_handler *pRmHdl)
{
	return pRmHdl && pRmHdl->pRm && vexil::clear(pRmHdl->pRm, &pRmHdl->rmInd);
}

size_t rm_handler_get_result(rm_handler *pRmHdl, u16 **result_array)
{
	return pRmHdl ? vexil::get_list(pRmHdl->rmInd.result, result_array) : 0;
}

size_t rm_handler_get_preset(rm_handler *pRmHdl, u16 **preset_array)
{
	return pRmHdl ? vexil::get_list(pRmHdl->rmInd.preset, preset_array) : 0;
}

size_t rm_handler_get_num_result(rm_handler *pRmHdl)
{
	return pRmHdl ? pRmHdl->rmInd.result.num_result : 0;
}

bool rm_handler_destroy(rm_handler **pRmHdl)
{
	if (!pRmHdl || !*pRmHdl)
		return false;
	// The kernel allocator, not the context's hooks: the context may be gone.
	rm_individual &state = (*pRmHdl)->rmInd;
	DEALLOC(state.result.result_list);
	DEALLOC(state.preset.result_list);
	DEALLOC(state.keyBuffer);
	DEALLOC(state.resBuffer);
	DEALLOC(*pRmHdl);
	*pRmHdl = nullptr;
	return true;
}

} // extern "C"
