// SPDX-License-Identifier: MIT
//
// How long do building, adopting, looking up and loading take?

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/product.h"
#include "extmem/children.h"

namespace {

bool ignore(int, const char *data, u32, void *)
{
	benchmark::DoNotOptimize(data);
	return true;
}

const bench::Product &example()
{
	static const bench::Product product = bench::read_product(VEXIL_EXAMPLES "/tv");
	return product;
}

void parse_example(benchmark::State &state)
{
	for (auto _ : state)
		bench::parse_only(example());
}
BENCHMARK(parse_example);

void parse_and_build_example(benchmark::State &state)
{
	for (auto _ : state) {
		pim *map = bench::build(example());
		pim_destroy(&map);
	}
}
BENCHMARK(parse_and_build_example);

void build_made_up(benchmark::State &state)
{
	const bench::Product product = bench::made_up_product(static_cast<std::size_t>(state.range(0)));
	for (auto _ : state) {
		pim *map = bench::build(product);
		state.counters["nodes"] = static_cast<double>(vexil::node_slots(map->builder));
		pim_destroy(&map);
	}
	state.SetComplexityN(state.range(0));
}
BENCHMARK(build_made_up)->RangeMultiplier(2)->Range(32, 512)->Complexity(benchmark::oN);

void adopt_example(benchmark::State &state)
{
	pim *built = bench::build(example());
	std::vector<char> image(pim_get_export_size(built));
	pim_export(built, image.data());
	for (auto _ : state) {
		pim *map = nullptr;
		if (!pim_init(&map, image.data(), static_cast<u32>(image.size()), nullptr, 0))
			state.SkipWithError("the image is refused");
		pim_destroy(&map);
	}
	pim_destroy(&built);
}
BENCHMARK(adopt_example);

void look_up_a_label(benchmark::State &state)
{
	pim *map = bench::build(example());
	for (auto _ : state)
		benchmark::DoNotOptimize(pim_query_setting_id(map, "Dimming_Level#High"));
	pim_destroy(&map);
}
BENCHMARK(look_up_a_label);

void load_a_setting(benchmark::State &state)
{
	pim *map = bench::build(example());
	const u16 id = pim_query_setting_id(map, "Dimming_Level#High");
	if (id == VEXIL_NO_ID)
		state.SkipWithError("the label is unknown");
	for (auto _ : state)
		pim_load_setting(map, id, false, ignore, nullptr);
	pim_destroy(&map);
}
BENCHMARK(load_a_setting);

} // namespace

BENCHMARK_MAIN();
