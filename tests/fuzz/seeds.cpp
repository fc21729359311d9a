// SPDX-License-Identifier: MIT
//
// vexil_fuzz_seeds DIR: writes what the image fuzzers begin with, made by the library itself, to
// DIR/image (every base image, without and with spare room) and DIR/mutate (a script for each).
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "tests/fuzz/images.h"

namespace {

namespace fs = std::filesystem;

bool write(const fs::path &path, const std::vector<std::uint8_t> &bytes)
{
	std::ofstream file(path, std::ios::binary);
	file.write(reinterpret_cast<const char *>(bytes.data()),
		   static_cast<std::streamsize>(bytes.size()));
	file.close();
	if (!file)
		std::fprintf(stderr, "%s: cannot be written\n", path.c_str());
	return !file.fail();
}

} // namespace

int main(int argc, char **argv)
{
	if (argc != 2) {
		std::fprintf(stderr, "usage: vexil_fuzz_seeds DIR\n");
		return 2;
	}
	const fs::path images = fs::path(argv[1]) / "image";
	const fs::path scripts = fs::path(argv[1]) / "mutate";
	fs::create_directories(images);
	fs::create_directories(scripts);
	bool written = true;
	std::uint8_t number = 0;
	for (const vexil_fuzz::Base &base : vexil_fuzz::bases()) {
		vexil_fuzz::Image roomy = base.image;
		roomy.add_room(8 * vexil_fuzz::Image::kNodeBytes, 128);
		written = write(images / base.name, base.image.bytes()) &&
			  write(images / (base.name + "-roomy"), roomy.bytes()) &&
			  write(scripts / base.name, {number, 1, 5}) && written;
		++number;
	}
	return written ? 0 : 1;
}
