// SPDX-License-Identifier: MIT
#include "tests/tool/fixture.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vexil_test {

namespace fs = std::filesystem;

std::string read_text(const std::string &path)
{
	std::ifstream file(path, std::ios::binary);
	if (!file)
		throw std::runtime_error("cannot read " + path);
	std::ostringstream text;
	text << file.rdbuf();
	return text.str();
}

Json read_json(const std::string &path)
{
	return Json::parse(read_text(path));
}

std::vector<std::string> lines_of(const std::string &text)
{
	std::vector<std::string> lines;
	std::istringstream stream(text);
	for (std::string line; std::getline(stream, line);)
		lines.push_back(line);
	return lines;
}

std::string numbered(std::string name, size_t number)
{
	name += std::to_string(number);
	return name;
}

std::string grouped(size_t number)
{
	std::string digits = std::to_string(number);
	for (size_t at = digits.size(); at > 3;) {
		at -= 3;
		digits.insert(at, 1, ',');
	}
	return digits;
}

ToolTest::ToolTest()
{
	std::string name = (fs::temp_directory_path() / "vexil-test-XXXXXX").string();
	if (!mkdtemp(name.data()))
		throw std::runtime_error("mkdtemp");
	folder_ = name;
}

ToolTest::~ToolTest()
{
	std::error_code ignored;
	fs::remove_all(folder_, ignored);
}

std::string ToolTest::write(const std::string &name, const std::string &text) const
{
	const std::string file = path(name);
	fs::create_directories(fs::path(file).parent_path());
	std::ofstream(file, std::ios::binary) << text;
	return file;
}

std::vector<std::string> ToolTest::names() const
{
	std::vector<std::string> found;
	for (const fs::directory_entry &entry : fs::directory_iterator(folder_))
		found.push_back(entry.path().filename().string());
	std::sort(found.begin(), found.end());
	return found;
}

ProcessResult ToolTest::vexil(std::vector<std::string> arguments, ProcessSetup setup) const
{
	arguments.insert(arguments.begin(), VEXIL_TOOL);
	if (setup.folder.empty())
		setup.folder = folder_;
	return run_process(arguments, setup);
}

std::string ToolTest::vexil_quiet(const std::vector<std::string> &arguments) const
{
	const ProcessResult result = vexil(arguments);
	EXPECT_EQ(result.exit_code, 0);
	EXPECT_EQ(result.err, "");
	return result.out;
}

Json ToolTest::vexil_json(std::vector<std::string> arguments) const
{
	arguments.push_back("--json");
	const std::string text = vexil_quiet(arguments);
	Json parsed = Json::parse(text, nullptr, false);
	EXPECT_FALSE(parsed.is_discarded()) << text;
	return parsed;
}

void ToolTest::expect_refusal(const std::vector<std::string> &arguments, int code,
			      const std::string &line) const
{
	const ProcessResult result = vexil(arguments);
	EXPECT_EQ(result.exit_code, code);
	EXPECT_EQ(result.out, "");
	EXPECT_EQ(result.err, line + "\n");
}

std::string ToolTest::build(const std::string &product, const std::string &name) const
{
	vexil_quiet({"build", product, "-o", name});
	return path(name);
}

const std::string &ToolTest::tv_image()
{
	static const std::string image = [] {
		char name[] = "/tmp/vexil-tv-XXXXXX";
		const int file = mkstemp(name);
		if (file < 0)
			throw std::runtime_error("mkstemp");
		run_process({VEXIL_TOOL, "build", kTv, "-o", name});
		const std::string bytes = read_text(name);
		fs::remove(name);
		return bytes;
	}();
	return image;
}

} // namespace vexil_test
