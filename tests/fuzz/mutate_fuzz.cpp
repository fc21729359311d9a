// SPDX-License-Identifier: MIT
//
// Sound images with edits, their heads kept whole: links, tags, sizes, offsets, records, figures,
// nodes that are added and moved. What verifies must work in every way, what does not is survived.
//
// The input is a script: one byte says which image, one how it is adopted (bit 0 with a register
// table, bits 1 to 7 from which allocation on memory fails), one (bits 0 to 3) how much room is
// behind the nodes and the data; then edits to its end.
#include "tests/fuzz/images.h"

using namespace vexil_fuzz;

namespace {

constexpr int kMaxEdits = 24;

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
	const std::vector<Base> &all = bases(); // before blocks are counted
	const Blocks blocks;
	Bytes script(data, size);
	Image image = all[script.u8() % all.size()].image;
	const u8 ways = script.u8();
	const u8 room = script.u8(); // for late insertions
	image.add_room(room % 4 * 4 * Image::kNodeBytes, room / 4 % 4 * 24u);
	const bool whole = is_usable(verdict(image.bytes().data(), image.size()));
	require(whole, "room that broke an image");
	Editor editor(image, script);
	for (int edits = 0; edits < kMaxEdits && !script.empty(); ++edits)
		editor.edit();
	image.repair_head();
	use_image(image,
		  {.with_table = (ways & 1) != 0, .refused_allocation = std::size_t{ways} >> 1});
	return 0;
}
