// SPDX-License-Identifier: MIT
//
// Hardware register lists of an adopted map: retagged by level, rewritten in address form when the
// caller has a register table, and counted.
#pragma once

#include "pim/layout.h"

namespace vexil {

/** The register lists of one setting, configuration by configuration, in image order. */
class RegMerge {
public:
	/** @level as stored: what is no EN_PQ_LEVEL is rewritten like the default, and not counted. */
	RegMerge(pim *map, u32 level, WalkBudget &budget) : map_(map), level_(level), budget_(budget)
	{
	}

	void config(node_d config);

private:
	void synchronise(node_d item);
	void translate(node_d item);
	void count(Bytes list);

	pim *map_;
	u32 level_;
	WalkBudget &budget_;
	bool counted_ = false; // a setting adds the registers of one list, the first one met
};

} // namespace vexil
