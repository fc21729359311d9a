// SPDX-License-Identifier: MIT

#include "rm/result.h"

#include "core/bytes.h"

namespace {

constexpr size_t kGrowth = 16; // entries

bool grow(rm *context, rm_result *list)
{
	const size_t entries = list->max_result + kGrowth;
	void *grown = context->builder.reallocate(list->result_list, list->max_result * sizeof(u16),
						  entries * sizeof(u16));
	if (!grown) {
		// Emptied for good: a list without its count would be refused ever after.
		context->builder.deallocate(list->result_list);
		*list = {};
		return false;
	}
	list->result_list = static_cast<u16 *>(grown);
	list->max_result = entries;
	return true;
}

bool push(rm *context, rm_result *list, const vexil::ResultList &row, u16 id)
{
	if ((list->max_result == 0) != (list->result_list == nullptr)) {
		context->builder.print_error(row.invalid, row.push);
		return false;
	}
	if (list->num_result == list->max_result && !grow(context, list))
		return false;
	list->result_list[list->num_result++] = id;
	return true;
}

} // namespace

namespace vexil {

constinit const ResultList kSettingList = {
	&rm_individual::result,
	"__rm_result_push",
	"__rm_store_result",
	"[VEXIL][RM][%s] invalid result status.\n",
	"[VEXIL][RM][%s] Failed to save result.\n",
};
constinit const ResultList kPresetList = {
	&rm_individual::preset,
	"__rm_preset_push",
	"__rm_store_preset",
	"[VEXIL][RM][%s] invalid preset status.\n",
	"[VEXIL][RM][%s] Failed to save preset.\n",
};

void store_ids(rm *context, rm_individual *state, const ResultList &row, Bytes ids)
{
	for (size_t at = 0; at + sizeof(u16) <= ids.size(); at += sizeof(u16)) {
		if (!push(context, &(state->*row.list), row, load<u16>(ids.data() + at))) {
			context->builder.print_error(row.failed, row.store);
			return;
		}
	}
}

} // namespace vexil
