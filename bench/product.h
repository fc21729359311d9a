// SPDX-License-Identifier: MIT
//
// Documents to measure with: the example product, and made-up ones of any size.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "pim/pim.h"
#include "rm/rm.h"

namespace bench {

/** The texts of one product, in the order in which they are inserted. */
struct Product {
	std::vector<std::string> register_lists; // hardware, software, customer
	std::vector<std::string> handlers;
	std::vector<std::pair<std::string, std::string>> files; // name, bytes
	std::vector<std::string> groups;
	std::vector<std::string> sources;
	std::vector<std::string> rules;
};

/** The product in @folder, by its product.json. Ends the program when it cannot be read. */
Product read_product(const std::string &folder);

/** A product of @ips blocks, each with 4 settings of 4 configurations of 6 registers. */
Product made_up_product(std::size_t ips);

/** Every document text of the product, parsed and deleted again. */
void parse_only(const Product &product);

/** A map built from the product; ends the program when it cannot be. */
pim *build(const Product &product);

/** The product's rules over its map, finished; ends the program when they cannot be compiled. */
rm *build_rules(const Product &product, const pim *map);

/**
 * One rule of two sources with @side values each: a case with side x side alternatives.
 * The map knows the setting that it selects: see made_up_product.
 */
Product made_up_rules(std::size_t side);

} // namespace bench
