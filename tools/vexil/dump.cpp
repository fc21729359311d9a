// SPDX-License-Identifier: MIT
//
// vexil dump: the node tree of an image.

#include <memory>
#include <optional>
#include <utility>

#include "commands.h"
#include "console.h"
#include "image_file.h"
#include "library_log.h"

namespace vexil_tool {

namespace {

struct Options {
	std::string image;
	ImageOptions opening;
};

void run_dump(const Options &options)
{
	Console console;
	ImageFile image = read_image(options.image, options.opening, console);
	std::optional<Map> map;
	std::optional<Rules> rules;
	if (image.kind == ImageKind::kMap)
		map.emplace(open_map(std::move(image), {}, console));
	else
		rules.emplace(open_rules(std::move(image)));
	const LogToOutput output;
	if (map)
		map->print();
	else
		rules->print();
	if (!output.complete())
		console.warn(options.image, "its tree is damaged; the dump is cut short");
}

} // namespace

void add_dump(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *dump = app.add_subcommand("dump", "Print the node tree of an image");
	dump->add_option("IMAGE", options->image, "PIM image or rule image")->required();
	add_image_options(*dump, options->opening);
	dump->footer(R"(
A line is a node: its id and tag behind three dashes for each level. Lines with PROP: are
texts.

Examples:
  vexil dump tv.pim | less
  vexil dump tv.rule | less)");
	dump->callback([options] { run_dump(*options); });
}

} // namespace vexil_tool
