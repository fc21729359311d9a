// SPDX-License-Identifier: MIT
//
// A product: the documents and files that one map is built from.
#pragma once

#include <string>
#include <vector>

#include "console.h"

namespace vexil_tool {

/** A file that goes into the map under a name. */
struct NamedFile {
	std::string name;
	std::string path;
};

/** Paths as they can be opened. */
struct Product {
	std::vector<std::string> hardware;
	std::vector<std::string> software;
	std::vector<std::string> customer;
	std::string register_info; // empty: none
	std::vector<std::string> handlers;
	std::vector<NamedFile> files;
	std::vector<std::string> groups;
	// Not part of a map.
	std::vector<std::string> sources;
	std::vector<std::string> rules;
	std::string preset_database; // empty: none
};

/** Reads a manifest, or the product.json of a folder. Paths in it are relative to the manifest. */
[[nodiscard]] Product read_product(const std::string &path, Console &console);

/**
 * Adds the file at @path, under @name or, when that is empty, under its own; of a folder, every
 * file in it, in the order of their names, hidden ones left out.
 */
void add_files(Product &product, const std::string &name, const std::string &path);

/** The text of a --file option: [NAME=]PATH. */
void add_file_option(Product &product, const std::string &text);

} // namespace vexil_tool
