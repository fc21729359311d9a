// SPDX-License-Identifier: MIT
//
// Runs a fuzzer's kept inputs: every file of the folders and every file that it is called with.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fuzz/fuzz.h"

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> inputs_of(const fs::path &path)
{
	if (!fs::is_directory(path))
		return {path};
	std::vector<fs::path> inputs;
	for (const fs::directory_entry &entry : fs::recursive_directory_iterator(path))
		if (entry.is_regular_file())
			inputs.push_back(entry.path());
	std::sort(inputs.begin(), inputs.end());
	return inputs;
}

bool replay(const fs::path &input)
{
	std::ifstream file(input, std::ios::binary);
	const std::vector<char> bytes{std::istreambuf_iterator<char>(file),
				      std::istreambuf_iterator<char>()};
	if (file.bad() || !file.is_open()) {
		std::fprintf(stderr, "%s: cannot be read\n", input.c_str());
		return false;
	}
	std::printf("%s\n", input.filename().c_str()); // the last one named is the one that failed
	std::fflush(stdout);
	// A block of exactly this size, so that address checks see where it ends.
	const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
	LLVMFuzzerTestOneInput(exact.data(), exact.size());
	return true;
}

} // namespace

int main(int argc, char **argv)
{
	std::size_t ran = 0;
	bool readable = true;
	for (int i = 1; i < argc; ++i) {
		for (const fs::path &input : inputs_of(argv[i])) {
			readable = replay(input) && readable;
			++ran;
		}
	}
	if (ran == 0)
		std::fprintf(stderr, "no input\n");
	return ran == 0 || !readable;
}
