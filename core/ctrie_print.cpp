// SPDX-License-Identifier: MIT

#include "core/ctrie.h"
#include "core/fail.h"
#include "core/pending.h"

namespace {

struct PendingNode {
	const ctrie_node *node;
	int depth;
};

void print_line(const ctrie_node *node, int depth)
{
	for (int i = 0; i < depth; ++i)
		_printk("---");
	for (size_t i = node->begin; i < node->end; ++i)
		_printk("%c", node->owner->buf[i]);
	_printk("[%d]", node->value == vexil::kNoValue ? -1 : node->value);
	_printk("\n");
}

} // namespace

extern "C" {

void ctrie_print(ctrie *pTrie)
{
	if (pTrie && pTrie->buf)
		__ctrie_print_node(pTrie->root, 0);
}

void __ctrie_print_node(const ctrie_node *node, int depth)
{
	constexpr int kNoMemoryReport = 571;
	if (!node)
		return;
	// Keys choose the depth, so the walk keeps its own stack; lookups may run beside it.
	vexil::Pending<PendingNode> pending(*node->owner);
	PendingNode next{node, depth};
	for (;;) {
		print_line(next.node, next.depth);
		for (size_t slot = CT_CH_IDX_MAX; slot-- > 0;) {
			const ctrie_node *below = next.node->child[slot];
			if (below && !pending.push({below, next.depth + 1})) {
				vexil::lib_fail("__ctrie_print_node", kNoMemoryReport);
				return;
			}
		}
		if (pending.empty())
			return;
		next = pending.pop();
	}
}

} // extern "C"
