// SPDX-License-Identifier: MIT
//
// What does building cost, in instructions? One measured section per run, for callgrind:
//   cost parse|build|load PRODUCT_FOLDER
//   cost parse|build|load made-up IPS

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/product.h"
#include "extmem/children.h"

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

} // extern "C"

int main(int argc, char **argv)
{
	if (argc < 3) {
		std::fprintf(stderr, "usage: cost parse|build|load PRODUCT_FOLDER | made-up IPS\n");
		return 2;
	}
	const std::string what = argv[1];
	const bench::Product product = argc > 3
					       ? bench::made_up_product(std::strtoul(argv[3], nullptr, 10))
					       : bench::read_product(argv[2]);
	if (what == "parse") {
		measured_parse(product);
		return 0;
	}
	pim *map = measured_build(product);
	std::printf("nodes %zu\n", vexil::node_slots(map->builder));
	if (what == "load")
		std::printf("pairs %lu\n", measured_load(map));
	pim_destroy(&map);
	return 0;
}
