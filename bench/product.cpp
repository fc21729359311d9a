// SPDX-License-Identifier: MIT

#include "bench/product.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "core/json.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void give_up(const std::string &why)
{
	std::fprintf(stderr, "bench: %s\n", why.c_str());
	std::exit(1);
}

std::string read_file(const fs::path &path)
{
	std::ifstream in(path, std::ios::binary);
	if (!in)
		give_up("cannot read " + path.string());
	return {std::istreambuf_iterator<char>(in), {}};
}

/** A file, or every file of a folder by name. */
void add_files(Product &product, const fs::path &path, const std::string &name)
{
	if (!fs::is_directory(path)) {
		product.files.emplace_back(name, read_file(path));
		return;
	}
	std::vector<fs::path> found(fs::directory_iterator(path), {});
	std::sort(found.begin(), found.end());
	for (const fs::path &file : found)
		product.files.emplace_back(file.filename().string(), read_file(file));
}

class Document {
public:
	explicit Document(const std::string &text)
	    : json_(static_cast<cJSON *>(vexil_json_parse(text.c_str())))
	{
		if (!json_)
			give_up("a document does not parse");
	}
	~Document() { vexil_json_delete(json_); }
	Document(const Document &) = delete;
	Document &operator=(const Document &) = delete;
	cJSON *get() const { return json_; }

private:
	cJSON *json_;
};

bool receive(int, const char *, u32, void *)
{
	return true;
}

} // namespace

Product read_product(const std::string &folder)
{
	const fs::path root(folder);
	const auto manifest = nlohmann::json::parse(read_file(root / "product.json"));
	Product product;
	for (const char *kind : {"hardware", "software", "customer"}) {
		for (const auto &path : manifest.value(kind, nlohmann::json::array()))
			product.register_lists.push_back(read_file(root / path.get<std::string>()));
	}
	for (const auto &label : manifest.value("handlers", nlohmann::json::array()))
		product.handlers.push_back(label);
	for (const auto &file : manifest.value("files", nlohmann::json::array())) {
		if (file.is_object())
			add_files(product, root / file.at("path").get<std::string>(), file.at("name"));
		else
			add_files(product, root / file.get<std::string>(),
				  fs::path(file.get<std::string>()).filename().string());
	}
	for (const auto &path : manifest.at("functionGroups"))
		product.groups.push_back(read_file(root / path.get<std::string>()));
	for (const auto &path : manifest.value("sources", nlohmann::json::array()))
		product.sources.push_back(read_file(root / path.get<std::string>()));
	for (const auto &path : manifest.value("rules", nlohmann::json::array()))
		product.rules.push_back(read_file(root / path.get<std::string>()));
	return product;
}

Product made_up_product(std::size_t ips)
{
	constexpr std::size_t kSettings = 4;
	constexpr std::size_t kMembers = 4;
	constexpr std::size_t kRegisters = 6;
	constexpr std::size_t kListed = 512;

	Product product;
	std::string list = R"({"PqHWRegList":{"register":[)";
	for (std::size_t i = 0; i < kListed; ++i)
		list += (i ? ",{\"REG_" : "{\"REG_") + std::to_string(i) + "\":" + std::to_string(i) + "}";
	product.register_lists.push_back(list + "]}}");

	std::string text = R"({"VexilVersion":{"#version":{"MajorVersion":2,"MinorVersion":1}},"PqFuncGroups":{)";
	std::size_t reg = 0;
	for (std::size_t ip = 0; ip < ips; ++ip) {
		const std::string name = "Block_" + std::to_string(ip);
		text += (ip ? ",\"" : "\"") + name + "\":{\"settings\":{";
		for (std::size_t s = 0; s < kSettings; ++s) {
			text += (s ? ",\"" : "\"") + name + "_S" + std::to_string(s) +
				"\":{\"1.PQlevel\":\"L1\",\"group\":{";
			for (std::size_t m = 0; m < kMembers; ++m) {
				text += (m ? ",\"Case" : "\"Case") + std::to_string(m) +
					"\":{\"hwreg\":{";
				for (std::size_t r = 0; r < kRegisters; ++r) {
					text += (r ? ",\"REG_" : "\"REG_") +
						std::to_string(reg++ % kListed) +
						"\":" + std::to_string((reg * 7) % 1024);
				}
				text += "}}";
			}
			text += "}}";
		}
		text += "}}";
	}
	product.groups.push_back(text + "}}");
	return product;
}

void parse_only(const Product &product)
{
	for (const auto *texts : {&product.register_lists, &product.groups}) {
		for (const std::string &text : *texts)
			Document document(text);
	}
}

pim *build(const Product &product)
{
	pim *map = nullptr;
	bool ok = pim_init(&map, nullptr, 0, nullptr, 0);
	for (const std::string &text : product.register_lists) {
		const Document document(text);
		ok = ok && pim_insert_regmap_json(map, document.get()) &&
		     pim_insert_vregmap_json(map, document.get());
	}
	for (const std::string &label : product.handlers)
		ok = ok && pim_insert_handler(map, label.c_str(), receive);
	for (const auto &[name, bytes] : product.files)
		ok = ok && pim_insert_file(map, name.c_str(), bytes.data(),
					   static_cast<u32>(bytes.size()));
	for (const std::string &text : product.groups) {
		const Document document(text);
		ok = ok && pim_insert(map, document.get());
	}
	if (!ok)
		give_up("the product cannot be built");
	pim_finish(map);
	return map;
}

rm *build_rules(const Product &product, const pim *map)
{
	rm *rules = nullptr;
	bool ok = rm_init(&rules, nullptr, 0);
	for (const std::string &text : product.sources)
		ok = ok && rm_insert_source_json(rules, Document(text).get());
	for (const std::string &text : product.rules)
		ok = ok && rm_insert(rules, Document(text).get(), map);
	if (!ok || !rm_finish(rules))
		give_up("the rules cannot be compiled");
	return rules;
}

Product made_up_rules(std::size_t side)
{
	Product product = made_up_product(1);
	std::string values[2];
	for (std::size_t source = 0; source < 2; ++source) {
		for (std::size_t i = 0; i < side; ++i)
			values[source] += (i ? ",\"v" : "\"v") + std::to_string(i) + "\"";
	}
	product.sources.push_back(R"({"PqRuleLists":{"A":{"content":[)" + values[0] +
				  R"(]},"B":{"content":[)" + values[1] + "]}}}");
	product.rules.push_back(R"({"PqRuleGroups":{"R":{"rules":[{"comparator":{"A":[)" + values[0] +
				R"(],"B":[)" + values[1] +
				R"(]},"settings":["Block_0_S0#Case0"],"children":[]}]}}})");
	return product;
}

} // namespace bench
