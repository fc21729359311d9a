// SPDX-License-Identifier: MIT
//
// vexil merge: one image over another.

#include <memory>

#include <fmt/format.h>

#include "commands.h"
#include "console.h"
#include "errors.h"
#include "image_file.h"
#include "library_log.h"
#include "output_file.h"
#include "text.h"

namespace vexil_tool {

namespace {

struct Options {
	std::string base;
	std::string sub;
	std::string output;
};

std::string cause_of(extmem_err_code error)
{
	switch (error) {
	case EXTMEM_OUT_OF_RANGE:
		return fmt::format("both together need more than {} nodes", grouped(kMostNodes));
	case EXTMEM_NOMEM:
		return "out of memory";
	case EXTMEM_SUCCESS:
		return "names of the result cannot be indexed";
	default:
		return "was refused by the library";
	}
}

void run_merge(const Options &options)
{
	Console console;
	const Map base = open_map(options.base, console);
	const Map sub = open_map(options.sub, console);
	LibraryLog log;
	extmem_err_code error = EXTMEM_SUCCESS;
	std::optional<Map> merged = Map::merge(base, sub, &error);
	log.warn_all(console, options.sub);
	if (!merged)
		refuse(fmt::format("{} over {}", options.sub, options.base), cause_of(error));
	const std::vector<char> image = merged->exported();
	if (image.empty())
		refuse(options.sub, "the merged map is too large for an image");
	write_output(options.output, image);
	fmt::print("{}: {} of {} nodes, {} bytes\n", printable(options.output),
		   grouped(merged->nodes_used()), grouped(kMostNodes), grouped(image.size()));
}

} // namespace

void add_merge(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *merge = app.add_subcommand("merge", "Merge one image over another");
	merge->add_option("BASE", options->base,
			  "PIM image that is kept where the other has nothing")
		->required();
	merge->add_option("SUB", options->sub, "PIM image whose IPs and files win")->required();
	merge->add_option("-o,--output", options->output, "Image to write; may be BASE or SUB")
		->required();
	merge->footer(R"(
An IP or file of SUB replaces the whole IP or file of the same name; others are added.
Versions and the customer text are those of BASE.

Example:
  vexil merge tv.pim customer.pim -o shop.pim)");
	merge->callback([options] { run_merge(*options); });
}

} // namespace vexil_tool
