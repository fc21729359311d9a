// SPDX-License-Identifier: MIT
//
// A context's beginning, empty or over an image; its buffers; its end.

#include "core/fail.h"
#include "rm/layout.h"

namespace {

constexpr int kNoRootReport = 185;

constexpr vexil::ScanReport kInitReport = {"rm_init", "[VEXIL][RM][%s] wrong string = %s\n"};

bool init_empty(rm *context)
{
	extmem_builder_init(&context->builder, nullptr, 0);
	context->root = extmem_request_node(&context->builder, EXTMEM_TAG_GENERAL);
	if (context->root.id == 0 && extmem_node_isvalid(context->root))
		return true;
	vexil::lib_fail("rm_init", kNoRootReport);
	return false;
}

bool init_from_image(rm *context, char *buf, u32 size)
{
	extmem_builder &store = context->builder;
	if (!extmem_builder_init(&store, buf, size) ||
	    !vexil::is_image_of(&store.header, vexil::kRuleImageKind))
		return false;
	vexil::clamp_data(&store, size);
	memcpy(context->cus_version, store.header.cus_version, sizeof context->cus_version);
	context->cus_version[sizeof context->cus_version - 1] = '\0';
	context->total_version = store.header.total_version;
	context->rl_json_version = store.header.rl_json_version;
	context->bCusVerReady = true;
	context->root = extmem_create_node_d(&store, 0);
	return vexil::scan_root(context, kInitReport);
}

/** A zeroed block from the context's hooks; empty ones are blocks too, so null means no memory. */
u64 *zeroed(rm *context, size_t bytes)
{
	void *block = context->builder.allocate(bytes);
	if (block)
		memset(block, 0, bytes);
	return static_cast<u64 *>(block);
}

/** The u32 of a record; false, and @count as it was, when it is missing or more than @limit. */
bool read_count(node_d holder, size_t limit, size_t *count)
{
	const vexil::Bytes record = vexil::payload(holder);
	const size_t value = record.size() < sizeof(u32) ? limit + 1 : vexil::load<u32>(record.data());
	if (value > limit)
		return false;
	*count = value;
	return true;
}

bool replace(rm *context, u64 **buffer, size_t bytes)
{
	context->builder.deallocate(*buffer); // an image may hold its records twice
	*buffer = zeroed(context, bytes);
	return *buffer != nullptr;
}

bool index_name(rm *context, ctrie *names, node_d node, const vexil::ScanReport &report,
		vexil::WalkBudget &budget)
{
	const char *name = vexil::name_of(node, budget);
	if (ctrie_insert(names, name, node.id))
		return true;
	context->builder.print_error(report.refused, report.function, vexil::shown(name));
	return false;
}

bool scan_entry(rm *context, node_d node, const vexil::ScanReport &report,
		vexil::WalkBudget &budget)
{
	switch (extmem_fetch_tag(node)) {
	case EXTMEM_TAG_RULE:
		return index_name(context, &context->rulename_map, node, report, budget);
	case EXTMEM_TAG_SOURCE_LABEL:
		return index_name(context, &context->source_map, node, report, budget);
	case EXTMEM_TAG_RULE_USEDBITS:
		return read_count(node, vexil::kMaxKeyBits, &context->used_bits) &&
		       replace(context, &context->rmInd.keyBuffer,
			       vexil::key_bytes(vexil::key_words(context->used_bits)));
	case EXTMEM_TAG_RES_NUM:
		return read_count(node, vexil::kMaxSlots, &context->res_num) &&
		       replace(context, &context->rmInd.resBuffer, context->res_num * sizeof(u64));
	default:
		return true;
	}
}

} // namespace

namespace vexil {

bool make_buffers(rm *context, size_t bits, size_t slots, rm_individual *state)
{
	state->keyBuffer = zeroed(context, key_bytes(key_words(bits)));
	state->resBuffer = state->keyBuffer ? zeroed(context, slots * sizeof(u64)) : nullptr;
	if (state->resBuffer)
		return true;
	context->builder.deallocate(state->keyBuffer);
	state->keyBuffer = nullptr;
	return false;
}

void free_buffers(rm *context, rm_individual *state)
{
	context->builder.deallocate(state->keyBuffer);
	context->builder.deallocate(state->resBuffer);
	state->keyBuffer = nullptr;
	state->resBuffer = nullptr;
}

bool scan_root(rm *context, const ScanReport &report)
{
	WalkBudget budget(context->builder);
	for (const node_d holder : Children(context->root, budget)) {
		if (!scan_entry(context, child_of(holder), report, budget))
			return false;
	}
	return !budget.spent();
}

} // namespace vexil

extern "C" {

bool rm_init(rm **pRm, char *buf, u32 size)
{
	if (!pRm)
		return false;
	auto *context = static_cast<rm *>(ALLOC(sizeof(rm)));
	if (!context)
		return false;
	memset(context, 0, sizeof *context);
	context->builder.allocate = ALLOC;
	context->builder.deallocate = DEALLOC;
	context->builder.reallocate = REALLOC;
	context->root = vexil::kInvalidNode;
	const bool made = ctrie_init(&context->source_map) && ctrie_init(&context->rulename_map) &&
			  (buf && size ? init_from_image(context, buf, size) : init_empty(context));
	if (!made) {
		rm_destroy(&context);
		return false;
	}
	*pRm = context;
	return true;
}

bool rm_destroy(rm **pRm)
{
	if (!pRm || !*pRm)
		return false;
	rm *context = *pRm;
	DEALLOC(context->rmInd.result.result_list);
	DEALLOC(context->rmInd.preset.result_list);
	vexil::free_buffers(context, &context->rmInd);
	extmem_builder_destroy(&context->builder);
	ctrie_destroy(&context->source_map);
	ctrie_destroy(&context->rulename_map);
	context->root.id = vexil::kNoNode;
	DEALLOC(context);
	*pRm = nullptr;
	return true;
}

} // extern "C"
