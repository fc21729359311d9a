// SPDX-License-Identifier: MIT
//
// vexil: builds picture-quality maps from documents, and looks into them.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <system_error>

#include <fmt/format.h>

#include "commands.h"
#include "console.h"
#include "core/json.h"
#include "errors.h"
#include "text.h"

namespace {

using vexil_tool::Exit;

constexpr const char *kFooter = R"(
Examples:
  vexil build examples/tv -o tv.pim
  vexil info tv.pim
  vexil load tv.pim 'Dimming_Level#High' --product examples/tv
  vexil run tv.pim tv.rule --rule Picture --set "Input:HDMI1;Luma:812" --product examples/tv

'vexil COMMAND --help' explains a command.

Exit codes: 0 done; 1 a file, document, image or label is refused;
2 the command line is wrong; 3 the output cannot be written.
Messages go to standard error: 'vexil: FILE[:LINE:COLUMN]: cause'.)";

int fail(Exit exit, const std::string &text)
{
	std::fflush(stdout);
	fmt::print(stderr, "vexil: {}\n", vexil_tool::printable(text));
	return static_cast<int>(exit);
}

/** The command that was being called, for the hint behind a usage error. */
std::string help_hint(const CLI::App &app)
{
	std::string command = "vexil";
	for (const CLI::App *sub : app.get_subcommands())
		command += " " + sub->get_name();
	return fmt::format(" (see '{} --help')", command);
}

/** @text with its longest words cut: arguments that a message repeats. */
std::string with_short_words(const std::string &text)
{
	std::string result;
	for (size_t begin = 0; begin < text.size();) {
		const size_t end = std::min(text.find(' ', begin), text.size());
		result += vexil_tool::shortened(text.substr(begin, end - begin));
		if (end < text.size())
			result += ' ';
		begin = end + 1;
	}
	return result;
}

int run(int argc, char **argv)
{
	CLI::App app("Picture-quality register settings: JSON documents in, map images and "
		     "registers out.",
		     "vexil");
	app.footer(kFooter);
	app.set_version_flag("--version",
			     fmt::format("vexil {} (cJSON {})", VEXIL_VERSION, cJSON_Version()));
	app.require_subcommand(1);
	vexil_tool::add_build(app);
	vexil_tool::add_info(app);
	vexil_tool::add_dump(app);
	vexil_tool::add_list(app);
	vexil_tool::add_load(app);
	vexil_tool::add_run(app);
	vexil_tool::add_explain(app);
	vexil_tool::add_merge(app);
	vexil_tool::add_verify(app);
	vexil_tool::add_presetdb(app);
	try {
		app.parse(argc, argv);
	} catch (const CLI::Success &asked) { // --help, --version
		app.exit(asked);
	} catch (const CLI::ParseError &error) {
		const std::vector<std::string> rest = app.remaining();
		if (app.get_subcommands().empty() && !rest.empty())
			return fail(
				Exit::kUsage,
				fmt::format("there is no {} '{}'{}",
					    rest.front().starts_with('-') ? "option" : "command",
					    vexil_tool::shortened(rest.front()), help_hint(app)));
		return fail(Exit::kUsage, with_short_words(error.what()) + help_hint(app));
	}
	vexil_tool::finish_output();
	return static_cast<int>(Exit::kDone);
}

} // namespace

int main(int argc, char **argv)
{
	try {
		return run(argc, argv);
	} catch (const vexil_tool::Failure &failure) {
		return fail(failure.exit(), failure.what());
	} catch (const std::bad_alloc &) {
		return fail(Exit::kRefused, "out of memory");
	} catch (const std::system_error &error) { // fmt, while printing
		if (std::ferror(stdout))
			return fail(Exit::kCannotWrite,
				    "standard output: " + error.code().message());
		return fail(Exit::kRefused, error.what());
	} catch (const std::exception &error) {
		return fail(Exit::kRefused, error.what());
	}
}
