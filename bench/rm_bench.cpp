// SPDX-License-Identifier: MIT
//
// How long do stating sources and triggering rules take, per case and per word of the key?

#include <benchmark/benchmark.h>

#include <string>

#include "bench/product.h"
#include "rm/layout.h"

namespace {

constexpr const char *kState = "Input:HDMI1;Timing:2160p60;Luma:812";

/** The example's rules, compiled once. */
struct Example {
	Example()
	{
		const bench::Product product = bench::read_product(VEXIL_EXAMPLES "/tv");
		map = bench::build(product);
		rules = bench::build_rules(product, map);
	}
	~Example()
	{
		rm_destroy(&rules);
		pim_destroy(&map);
	}
	pim *map;
	rm *rules;
};

rm *example_rules()
{
	static Example example;
	return example.rules;
}

void compile_example(benchmark::State &state)
{
	const bench::Product product = bench::read_product(VEXIL_EXAMPLES "/tv");
	pim *map = bench::build(product);
	for (auto _ : state) {
		rm *rules = bench::build_rules(product, map);
		rm_destroy(&rules);
	}
	pim_destroy(&map);
}
BENCHMARK(compile_example);

void set_three_sources(benchmark::State &state)
{
	rm_handler *handler = nullptr;
	rm_create_handler(example_rules(), &handler);
	for (auto _ : state)
		benchmark::DoNotOptimize(rm_handler_set(handler, kState, 0));
	rm_handler_destroy(&handler);
}
BENCHMARK(set_three_sources);

void trigger_every_rule(benchmark::State &state)
{
	rm_handler *handler = nullptr;
	rm_create_handler(example_rules(), &handler);
	rm_handler_set(handler, kState, 0);
	for (auto _ : state) {
		if (!rm_handler_trigger(handler, nullptr))
			state.SkipWithError("a rule cannot be evaluated");
	}
	rm_handler_destroy(&handler);
}
BENCHMARK(trigger_every_rule);

/** One case of side x side alternatives, of which the last one matches. */
void trigger_last_alternative(benchmark::State &state)
{
	const auto side = static_cast<std::size_t>(state.range(0));
	const bench::Product product = bench::made_up_rules(side);
	pim *map = bench::build(product);
	rm *rules = bench::build_rules(product, map);
	rm_handler *handler = nullptr;
	rm_create_handler(rules, &handler);
	const std::string last = "v" + std::to_string(side - 1);
	rm_handler_set(handler, ("A:" + last + ";B:" + last).c_str(), 0);
	for (auto _ : state)
		benchmark::DoNotOptimize(rm_handler_trigger(handler, nullptr));
	state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * side * side));
	state.counters["words"] = static_cast<double>(vexil::key_words(rules->used_bits));
	rm_handler_destroy(&handler);
	rm_destroy(&rules);
	pim_destroy(&map);
}
BENCHMARK(trigger_last_alternative)->RangeMultiplier(2)->Range(8, 64);

} // namespace

BENCHMARK_MAIN();
