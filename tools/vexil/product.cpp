// SPDX-License-Identifier: MIT

#include "product.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include "errors.h"
#include "json_input.h"
#include "text.h"

namespace vexil_tool {

namespace fs = std::filesystem;

namespace {

constexpr const char *kManifestName = "product.json";

/** A manifest while it is read. */
struct Manifest {
	std::string path;
	fs::path folder;
	Product product;

	[[noreturn]] void refuse_member(const cJSON *member, const char *wanted) const
	{
		refuse(path, fmt::format("\"{}\" must be {}", member->string, wanted));
	}
	[[nodiscard]] std::string resolve(const char *relative) const
	{
		return (folder / relative).lexically_normal().string();
	}
};

/** The text of an item. Texts that begin with "0x" are numbers in documents; here they are texts.
 */
const char *text_in(const cJSON *item)
{
	return item->valuestring;
}

/** A text, or an array of texts. */
std::vector<std::string> texts(const Manifest &manifest, const cJSON *member)
{
	std::vector<std::string> found;
	if (const char *text = text_in(member)) {
		found.emplace_back(text);
		return found;
	}
	constexpr const char *kWanted = "a text or an array of texts";
	if (!vexil::is_array(member))
		manifest.refuse_member(member, kWanted);
	for (const cJSON *item : vexil::items(member)) {
		if (!text_in(item))
			manifest.refuse_member(member, kWanted);
		found.emplace_back(text_in(item));
	}
	return found;
}

template <std::vector<std::string> Product::*list>
void read_paths(Manifest &manifest, const cJSON *member)
{
	for (const std::string &path : texts(manifest, member))
		(manifest.product.*list).push_back(manifest.resolve(path.c_str()));
}

void read_handlers(Manifest &manifest, const cJSON *member)
{
	manifest.product.handlers = texts(manifest, member);
}

template <std::string Product::*path>
void read_path(Manifest &manifest, const cJSON *member)
{
	if (!text_in(member))
		manifest.refuse_member(member, "a text");
	manifest.product.*path = manifest.resolve(text_in(member));
}

void read_files(Manifest &manifest, const cJSON *member)
{
	constexpr const char *kWanted = "an array of texts and of {\"name\", \"path\"} objects";
	if (!vexil::is_array(member))
		manifest.refuse_member(member, kWanted);
	for (const cJSON *item : vexil::items(member)) {
		if (const char *path = text_in(item)) {
			add_files(manifest.product, "", manifest.resolve(path));
			continue;
		}
		const cJSON *name = vexil::member(item, "name");
		const cJSON *path = vexil::member(item, "path");
		if (!name || !text_in(name) || !path || !text_in(path))
			manifest.refuse_member(member, kWanted);
		add_files(manifest.product, text_in(name), manifest.resolve(text_in(path)));
	}
}

void ignore(Manifest &, const cJSON *) {}

struct Member {
	const char *name;
	void (*read)(Manifest &manifest, const cJSON *member);
};
constexpr Member kMembers[] = {
	{"name", ignore}, // for people
	{"description", ignore},
	{"hardware", read_paths<&Product::hardware>},
	{"software", read_paths<&Product::software>},
	{"customer", read_paths<&Product::customer>},
	{"registerInfo", read_path<&Product::register_info>},
	{"handlers", read_handlers},
	{"files", read_files},
	{"functionGroups", read_paths<&Product::groups>},
	{"sources", read_paths<&Product::sources>},
	{"rules", read_paths<&Product::rules>},
	{"presetDatabase", read_path<&Product::preset_database>},
};

void read_member(Manifest &manifest, const cJSON *member)
{
	std::vector<std::string> known;
	for (const Member &row : kMembers) {
		if (lowered(row.name) == lowered(member->string))
			return row.read(manifest, member);
		known.emplace_back(row.name);
	}
	refuse(manifest.path, fmt::format("unknown member \"{}\"{}", member->string,
					  similar_hint(member->string, known)));
}

} // namespace

Product read_product(const std::string &path, Console &console)
{
	std::error_code error;
	const bool is_folder = fs::is_directory(path, error);
	Manifest manifest;
	manifest.path = is_folder ? (fs::path(path) / kManifestName).string() : path;
	manifest.folder = fs::path(manifest.path).parent_path();
	if (is_folder && !fs::exists(manifest.path, error))
		refuse(path, fmt::format("there is no {} in this folder", kManifestName));
	const Json document = read_json(manifest.path, Root::kObject, console);
	for (const cJSON *member : vexil::items(document.get()))
		read_member(manifest, member);
	return std::move(manifest.product);
}

void add_files(Product &product, const std::string &name, const std::string &path)
{
	std::error_code error;
	if (!fs::is_directory(path, error)) {
		const std::string own = fs::path(path).filename().string();
		product.files.push_back({name.empty() ? own : name, path});
		return;
	}
	if (!name.empty())
		refuse(path, fmt::format("is a folder and cannot become the file \"{}\"", name));
	std::vector<NamedFile> found;
	for (fs::directory_iterator at(path, error), end; !error && at != end;
	     at.increment(error)) {
		const std::string own = at->path().filename().string();
		if (own.starts_with('.'))
			continue;
		std::error_code ignored;
		if (at->is_directory(ignored))
			refuse(at->path().string(), "is a folder among the files; name it itself");
		found.push_back({own, at->path().string()});
	}
	if (error)
		refuse(path, error.message());
	std::sort(found.begin(), found.end(),
		  [](const NamedFile &a, const NamedFile &b) { return a.name < b.name; });
	product.files.insert(product.files.end(), found.begin(), found.end());
}

void add_file_option(Product &product, const std::string &text)
{
	const size_t sign = text.find('=');
	// A '=' behind a slash belongs to the path.
	const bool named = sign != std::string::npos && sign > 0 && text.find('/') > sign;
	if (named)
		add_files(product, text.substr(0, sign), text.substr(sign + 1));
	else
		add_files(product, "", text);
}

} // namespace vexil_tool
