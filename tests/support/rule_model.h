// SPDX-License-Identifier: MIT
//
// The simple evaluator's documents in a context of the library.
#pragma once

#include "tests/support/rm_states.h"
#include "tests/support/rule_evaluator.h"

namespace vexil_test::model {

/** The document of a generator in a context of the library, against the names of @map. */
inline void build(const Generator &generator, pim *map, rm *rules)
{
	ASSERT_TRUE(states::insert_sources(rules, generator.sources_json));
	ASSERT_TRUE(states::insert_rules(rules, map, generator.rules_json));
	rm_finish(rules); // false where a child is missing
	take_log();
}

} // namespace vexil_test::model
