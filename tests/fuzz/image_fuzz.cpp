// SPDX-License-Identifier: MIT
//
// Any bytes as an image. The verifier and adoption must survive them; what verifies can be adopted,
// asked, exported, merged and destroyed, and answers alike before and after an export.
//
// The input is the image as it stands. Its chip id, which the library does not look at, says how it
// is adopted: bit 0 with a register table, bits 8 to 15 from which allocation on memory fails.
#include "tests/fuzz/images.h"

using namespace vexil_fuzz;

namespace {

constexpr std::size_t kChipAt = 82;

/** What a mutation does: libFuzzer's own ones seldom leave a head that leads any further. */
enum class Change { kBytes, kBytesThenHead, kEdit };
constexpr Change kChanges[] = {Change::kBytes, Change::kBytesThenHead, Change::kEdit,
			       Change::kEdit};

} // namespace

extern "C" {

size_t LLVMFuzzerMutate(std::uint8_t *data, size_t size, size_t max_size) __attribute__((weak));
size_t LLVMFuzzerCustomMutator(std::uint8_t *data, size_t size, size_t max_size, unsigned seed);

size_t LLVMFuzzerCustomMutator(std::uint8_t *data, size_t size, size_t max_size, unsigned seed)
{
	const Change change = kChanges[seed % std::size(kChanges)];
	if (change == Change::kBytes)
		return LLVMFuzzerMutate(data, size, max_size);
	Image image;
	if (change == Change::kBytesThenHead) {
		size = LLVMFuzzerMutate(data, size, max_size);
		image = Image({data, data + size});
	} else {
		image = Image({data, data + size});
		std::vector<std::uint8_t> noise(64);
		std::uint32_t state = seed | 1;
		for (std::uint8_t &byte : noise) {
			state = state * 1664525 + 1013904223;
			byte = static_cast<std::uint8_t>(state >> 24);
		}
		Bytes script(noise.data(), noise.size());
		Editor editor(image, script);
		for (unsigned edits = 1 + (seed >> 8) % 3; edits > 0; --edits)
			editor.edit();
	}
	image.repair_head();
	image.repair_ids();
	if (image.size() > max_size)
		return LLVMFuzzerMutate(data, size, max_size);
	std::copy(image.bytes().begin(), image.bytes().end(), data);
	return image.size();
}

} // extern "C"

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	bases(); // before blocks are counted
	const Blocks blocks;
	if (size == 0)
		return 0; // that is how empty contexts are asked for
	const Image image({data, data + size});
	const auto ways = image.at<u16>(kChipAt);
	use_image(image,
		  {.with_table = (ways & 1) != 0, .refused_allocation = std::size_t{ways} >> 8});
	return 0;
}
