// SPDX-License-Identifier: MIT
//
// What loading must deliver, worked out from a product's documents with plain maps: the second
// opinion that the tool is held against.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/tool/fixture.h"

namespace vexil_test {

using Pairs = std::vector<std::pair<uint32_t, uint32_t>>;

struct ExpectedBlock {
	int tag = 0;
	Pairs pairs;       // of a register list
	std::string name;  // of a file: handler label, or entry name
	std::string file;  // its name
	std::string bytes; // its content
	bool algorithm = false;
};

struct ExpectedConfig {
	std::string label;
	std::string ip;
	std::string setting;
	std::string level; // as in documents; "default", "preset"
	std::string kind;  // "configuration", "common", "preset"
	std::string table; // of a preset
	std::vector<ExpectedBlock> blocks;
};

struct Field {
	uint32_t domain, address, lowest_bit, width;
};

/** One product, or two that are merged. */
class Model {
public:
	explicit Model(const std::string &folder);

	/** Puts another product over this one: its IPs and files win, whole. */
	void merge(const Model &sub);
	/** Every hardware list as it is after adoption with the product's register table. */
	[[nodiscard]] Model in_address_form() const;

	[[nodiscard]] const ExpectedConfig &config(const std::string &label) const;

	struct Ip {
		std::string name;
		std::vector<ExpectedConfig> configs;
	};
	std::vector<Ip> ips; // without folders, in the order of the documents
	std::map<std::string, std::string> files;
	std::map<std::string, uint32_t> hardware, software, customer;
	std::vector<Field> table;

private:
	void read_ips(const Json &chain);
	void read_setting(Ip &ip, const std::string &name, const Json &setting);
	[[nodiscard]] Pairs registers(const Json &member, const char *section,
				      const std::map<std::string, uint32_t> &numbers) const;
	[[nodiscard]] std::vector<ExpectedBlock> blocks(const Json &member, const Pairs &common,
							const std::string &level) const;
	[[nodiscard]] Pairs shared(const std::vector<std::pair<std::string, Json>> &members) const;
};

/** CRC-32, bit by bit. */
uint32_t crc32_of(const std::string &bytes);

/** Compares one entry of "loads" in the tool's JSON with what is expected. */
void expect_load(const Json &load, const ExpectedConfig &expected);

} // namespace vexil_test
