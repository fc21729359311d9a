// SPDX-License-Identifier: MIT
//
// Result lists: one push, two sets of names.
#pragma once

#include "core/span.h"
#include "rm/rm.h"

namespace vexil {

/** A list of an evaluation state, and how its troubles are reported. */
struct ResultList {
	rm_result rm_individual::*list;
	const char *push; // function names
	const char *store;
	const char *invalid; // log formats
	const char *failed;
};
extern const ResultList kSettingList;
extern const ResultList kPresetList;

/** Appends each u16 of a record. A list that cannot take them is reported, and the rest dropped. */
void store_ids(rm *context, rm_individual *state, const ResultList &row, Bytes ids);

} // namespace vexil
