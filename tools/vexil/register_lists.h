// SPDX-License-Identifier: MIT
//
// Register lists as the tool needs them beside the library: which name a number has, and which
// entries the library drops without a word.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "console.h"
#include "json_input.h"

namespace vexil_tool {

/** One list: names to numbers and back. The first entry of a name, and of a number, counts. */
class RegisterList {
public:
	/**
	 * Adds the entries of one document.
	 * @largest: larger numbers, and negative ones, are dropped, as the library does
	 * @console: where dropped entries are warned about; null for silence
	 */
	void add(const cJSON *document, const char *key, u64 largest, const std::string &path,
		 Console *console);

	/** The name of a number, or null. */
	[[nodiscard]] const std::string *name_of(u32 number) const;
	[[nodiscard]] bool empty() const { return names_.empty(); }
	/** Every name, for hints. */
	[[nodiscard]] std::vector<std::string> all() const;

private:
	std::unordered_map<std::string, u32> numbers_; // by name in lower case
	std::map<u32, std::string> names_;
};

struct RegisterLists {
	RegisterList hardware;
	RegisterList software;
	RegisterList customer;

	// As the library reads them: a software document may carry a customer list as well.
	void add_hardware(const cJSON *document, const std::string &path, Console *console);
	void add_software(const cJSON *document, const std::string &path, Console *console);
	void add_customer(const cJSON *document, const std::string &path, Console *console);
};

} // namespace vexil_tool
