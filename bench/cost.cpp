// SPDX-License-Identifier: MIT
//
// What does building cost, in instructions? One measured section per run, for callgrind:
//   cost parse|build|load PRODUCT_FOLDER
//   cost parse|build|load made-up IPS
//   cost compile made-up-rules SIDE       a case with SIDE x SIDE alternatives
//   cost trigger PRODUCT_FOLDER STATE     e.g. "Input:HDMI1;Luma:812"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/product.h"
#include "extmem/reader.h"
#include "rm/layout.h"

namespace {

bool count_pairs(int, const char *data, u32, void *context)
{
	u32 pairs;
	std::memcpy(&pairs, data, sizeof pairs);
	*static_cast<unsigned long *>(context) += pairs;
	return true;
}

} // namespace

// The sections that callgrind collects in; C names, so that they can be named on its command line.
extern "C" {

[[gnu::noinline]] void measured_parse(const bench::Product &product)
{
	bench::parse_only(product);
}

[[gnu::noinline]] pim *measured_build(const bench::Product &product)
{
	return bench::build(product);
}

[[gnu::noinline]] unsigned long measured_load(pim *map)
{
	unsigned long pairs = 0;
	const auto nodes = static_cast<u16>(map->builder.node_buffer.buf_used / sizeof(extmem_node));
	for (u16 id = 0; id < nodes; ++id) {
		if (extmem_fetch_tag({id, &map->builder}) == EXTMEM_TAG_IP_CONFIG)
			pim_load_setting(map, id, false, count_pairs, &pairs);
	}
	return pairs;
}

[[gnu::noinline]] rm *measured_compile(const bench::Product &product, const pim *map)
{
	return bench::build_rules(product, map);
}

[[gnu::noinline]] bool measured_trigger(rm_handler *handler)
{
	return rm_handler_trigger(handler, nullptr);
}

} // extern "C"

namespace {

/** What a trigger of every rule looks at, found out the slow way. */
struct Looked {
	unsigned long alternatives = 0;
	unsigned long outcomes = 0;
	unsigned long words = 0; // of the key
};

bool matches(const rm_handler &handler, const vexil::Reader &image, u16 alternative)
{
	const u16 description = image.child(alternative);
	const vexil::Bytes key = image.record(image.child(description));
	const std::size_t words = vexil::key_words(handler.pRm->used_bits);
	for (std::size_t i = 0; i < words; ++i) {
		const auto value = vexil::load<u64>(key.data() + 8 * i);
		const auto mask = vexil::load<u64>(key.data() + 8 * (words + i));
		if ((handler.rmInd.keyBuffer[i] & mask) != value)
			return false;
	}
	for (u16 range = image.next(description); range != vexil::kNoNode; range = image.next(range)) {
		const auto wanted =
			vexil::load<range_desc>(image.record(image.child(range)).data());
		const auto slot = vexil::load<u64>(image.record(wanted.source_node).data());
		const u64 number = handler.rmInd.resBuffer[slot];
		if (number < wanted.minData || number > wanted.maxData)
			return false;
	}
	return true;
}

void look(const rm_handler &handler, const vexil::Reader &image, u16 rule, Looked *looked)
{
	for (u16 node = image.child(rule); node != vexil::kNoNode; node = image.next(node)) {
		const u16 body = image.child(node);
		for (u16 a = image.child(body); a != vexil::kNoNode; a = image.next(a)) {
			++looked->alternatives;
			if (!matches(handler, image, a))
				continue;
			for (u16 o = image.next(body); o != vexil::kNoNode; o = image.next(o)) {
				++looked->outcomes;
				const u16 holder = image.child(o);
				if (image.tag(holder) == EXTMEM_TAG_NODE_HOLDER)
					look(handler, image,
					     vexil::load<u16>(image.record(holder).data()), looked);
			}
			return;
		}
	}
}

Looked look_at_all(const rm_handler &handler)
{
	const vexil::Reader image(handler.pRm->builder);
	Looked looked;
	looked.words = vexil::key_words(handler.pRm->used_bits);
	for (u16 h = image.child(0); h != vexil::kNoNode; h = image.next(h)) {
		if (image.tag(image.child(h)) == EXTMEM_TAG_RULE)
			look(handler, image, image.child(h), &looked);
	}
	return looked;
}

int trigger(rm *rules, const char *state)
{
	rm_handler *handler = nullptr;
	if (!rm_create_handler(rules, &handler) || !rm_handler_set(handler, state, 0) ||
	    !rm_handler_trigger(handler, nullptr)) // the result lists grow here
		return 1;
	const bool ok = measured_trigger(handler);
	const Looked looked = look_at_all(*handler);
	std::printf("alternatives %lu outcomes %lu words %lu results %zu\n", looked.alternatives,
		    looked.outcomes, looked.words, rm_handler_get_num_result(handler));
	rm_handler_destroy(&handler);
	return ok ? 0 : 1;
}

} // namespace


int main(int argc, char **argv)
{
	if (argc < 3) {
		std::fprintf(stderr, "usage: cost parse|build|load|compile|trigger PRODUCT [SIZE or STATE]\n");
		return 2;
	}
	const std::string what = argv[1];
	const std::string from = argv[2];
	const char *last = argc > 3 ? argv[3] : "";
	const std::size_t size = std::strtoul(last, nullptr, 10);
	const bench::Product product = from == "made-up"	 ? bench::made_up_product(size)
				       : from == "made-up-rules" ? bench::made_up_rules(size ? size : 64)
								 : bench::read_product(from);
	if (what == "parse") {
		measured_parse(product);
		return 0;
	}
	pim *map = measured_build(product);
	std::printf("nodes %zu\n", vexil::node_slots(map->builder));
	if (what == "load")
		std::printf("pairs %lu\n", measured_load(map));
	int status = 0;
	if (what == "compile" || what == "trigger") {
		rm *rules = measured_compile(product, map);
		std::printf("rule nodes %zu\n", vexil::node_slots(rules->builder));
		if (what == "trigger")
			status = trigger(rules, last);
		rm_destroy(&rules);
	}
	pim_destroy(&map);
	return status;
}
