// SPDX-License-Identifier: MIT
//
// vexil verify: whether images are sound.

#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "commands.h"
#include "errors.h"
#include "files.h"
#include "image_file.h"
#include "json_output.h"
#include "text.h"

namespace vexil_tool {

namespace {

struct Options {
	std::vector<std::string> images;
	bool json = false;
};

OutputJson id_json(u16 id)
{
	return id == VEXIL_NO_ID ? OutputJson(nullptr) : OutputJson(id);
}

OutputJson fault_json(const std::string &path, const vexil_image_fault &fault)
{
	OutputJson output = {{"file", path}, {"sound", fault.code == VEXIL_IMAGE_SOUND}};
	if (fault.code != VEXIL_IMAGE_SOUND)
		output["fault"] = {{"code", static_cast<int>(fault.code)},
				   {"text", vexil_image_code_text(fault.code)},
				   {"offset", fault.offset},
				   {"node", id_json(fault.node)},
				   {"other", id_json(fault.other)}};
	return output;
}

void run_verify(const Options &options)
{
	OutputJson output = OutputJson::array();
	size_t unsound = 0;
	size_t unread = 0;
	for (const std::string &path : options.images) {
		std::vector<char> bytes;
		try {
			bytes = read_file(path);
		} catch (const Failure &failure) {
			if (options.images.size() == 1)
				throw;
			++unread; // the others are examined all the same
			fmt::print(stderr, "vexil: {}\n", printable(failure.what()));
			output.push_back({{"file", path}, {"error", failure.what()}});
			continue;
		}
		vexil_image_fault fault;
		const bool sound =
			vexil_image_verify(bytes.data(), static_cast<u32>(bytes.size()), &fault);
		unsound += !sound;
		if (options.json)
			output.push_back(fault_json(path, fault));
		else
			fmt::print("{}: {}\n", printable(path),
				   sound ? "sound" : fault_text(fault));
	}
	if (options.json)
		print(output);
	if (unsound + unread == 0)
		return;
	std::string summary =
		fmt::format("{} of {} {} not sound", unsound,
			    counted(options.images.size(), "image"), unsound == 1 ? "is" : "are");
	if (unread > 0)
		summary += fmt::format(", {} cannot be read", unread);
	throw Failure(Exit::kRefused, summary);
}

} // namespace

void add_verify(CLI::App &app)
{
	const auto options = std::make_shared<Options>();
	CLI::App *verify = app.add_subcommand("verify", "Examine images without opening them");
	verify->add_option("IMAGE", options->images, "PIM images and rule images")->required();
	verify->add_flag("--json", options->json, "Print JSON");
	verify->footer(R"(
Looks at every byte that adoption would rely on: head, sizes, nodes, links, records, texts,
register lists, keys, ids, and whether rules lead back to themselves. A line for each image
says that it is sound, or what was found first and where: the node, the node that leads to
it or that it names, and the byte of the file. Exit code 1 when one is not sound or cannot
be read; the others are examined all the same.

Commands that open images examine them first, and refuse those that are not sound;
--no-verify opens them all the same. Rules that lead back to themselves are noted there:
when their conditions exclude each other, nothing is wrong with them.

Example:
  vexil verify tv.pim tv.rule)");
	verify->callback([options] { run_verify(*options); });
}

} // namespace vexil_tool
