// SPDX-License-Identifier: MIT

#include "image_file.h"

#include <optional>
#include <utility>

#include <fmt/format.h>

#include "core/bytes.h"
#include "errors.h"
#include "files.h"
#include "library_log.h"
#include "text.h"

namespace vexil_tool {

namespace {

constexpr u16 kCodeMajor = 2;
constexpr u16 kCodeMinor = 2;
constexpr size_t kHeaderBytes = sizeof(extmem_buffer_header);
constexpr size_t kFigureBytes = 2 * sizeof(u32); // used and capacity of one buffer

/** Versions of ours count in small steps; larger numbers are some other file's bytes. */
bool plausible(const extmem_buffer_header &header)
{
	constexpr u16 kLargest = 99;
	return (header.binType == static_cast<u16>(ImageKind::kMap) ||
		header.binType == static_cast<u16>(ImageKind::kRules)) &&
	       header.codeVersion.u16MajorNumber <= kLargest &&
	       header.codeVersion.u16MinorNumber <= kLargest;
}

/** Reads the figures of the buffer at @at and moves behind the buffer. */
void read_buffer(const ImageFile &image, const char *what, u64 *at, u32 *used, u32 *max)
{
	if (*at + kFigureBytes > image.bytes.size())
		refuse(image.path, fmt::format("is truncated: it ends before its {}", what));
	*used = vexil::load<u32>(image.bytes.data() + *at);
	*max = vexil::load<u32>(image.bytes.data() + *at + sizeof(u32));
	if (*max == 0 || *used > *max)
		refuse(image.path, fmt::format("is damaged: {} of {} bytes of {} are in use",
					       grouped(*used), grouped(*max), what));
	*at += kFigureBytes + *max;
}

void verify(const ImageFile &image, Console &console)
{
	vexil_image_fault fault;
	if (vexil_image_verify(image.bytes.data(), static_cast<u32>(image.bytes.size()), &fault))
		return;
	if (fault.code != VEXIL_IMAGE_RULE_RING)
		refuse(image.path, fmt::format("is damaged: {}", fault_text(fault)));
	console.note(image.path, fault_text(fault));
}

} // namespace

void add_image_options(CLI::App &command, ImageOptions &options)
{
	command.add_flag("--no-verify", options.no_verify,
			 "Open images that are damaged, too; what they show may be wrong");
}

std::string fault_text(const vexil_image_fault &fault)
{
	std::string place;
	if (fault.node != VEXIL_NO_ID)
		place += fmt::format("node {}, ", fault.node);
	if (fault.other != VEXIL_NO_ID)
		place += fmt::format("with node {}, ", fault.other);
	return fmt::format("{} ({}byte {})", vexil_image_code_text(fault.code), place,
			   grouped(fault.offset));
}

ImageFile read_image(const std::string &path, const ImageOptions &options, Console &console)
{
	ImageFile image{};
	image.path = path;
	image.bytes = read_file(path);
	const size_t size = image.bytes.size();
	if (size < kHeaderBytes)
		refuse(path, fmt::format("is not a vexil image: {} are less than a header",
					 counted(size, "byte")));
	image.header = vexil::load<extmem_buffer_header>(image.bytes.data());
	if (!plausible(image.header))
		refuse(path, "is not a vexil image");
	image.kind = static_cast<ImageKind>(image.header.binType);
	const vexil_version &version = image.header.codeVersion;
	if (version.u16MajorNumber != kCodeMajor || version.u16MinorNumber > kCodeMinor)
		refuse(path, fmt::format("is an image of version {}.{}; 2.0 to 2.2 can be read",
					 version.u16MajorNumber, version.u16MinorNumber));
	if (image.header.binSize > size)
		refuse(path, fmt::format("is truncated: {} of {} bytes are there", grouped(size),
					 grouped(image.header.binSize)));
	u64 end = kHeaderBytes;
	read_buffer(image, "nodes", &end, &image.node_bytes_used, &image.node_bytes_max);
	read_buffer(image, "data", &end, &image.data_bytes_used, &image.data_bytes_max);
	if (end > size)
		refuse(path, fmt::format("is truncated: {} of {} bytes are there", grouped(size),
					 grouped(end)));
	if (image.nodes() == 0)
		refuse(path, "is an image without nodes");
	if (!options.no_verify)
		verify(image, console);
	if (end < size)
		console.warn(path, fmt::format("{} behind the image are not read",
					       counted(size - end, "byte")));
	else if (image.header.binSize != size)
		console.warn(path, fmt::format("its header says {} bytes, it has {}",
					       grouped(image.header.binSize), grouped(size)));
	return image;
}

Map open_map(ImageFile image, std::vector<ST_PQ_REG_INFO> table, Console &console)
{
	if (image.kind != ImageKind::kMap)
		refuse(image.path, "is a rule image; a PIM image is needed");
	LibraryLog log;
	bool complete = false;
	std::optional<Map> map = Map::adopt(std::move(image.bytes), std::move(table), &complete);
	log.warn_all(console, image.path);
	if (!map)
		refuse(image.path, "was refused by the library");
	if (!complete)
		console.warn(image.path,
			     "some of its names could not be indexed and will not be found");
	return std::move(*map);
}

Rules open_rules(ImageFile image)
{
	if (image.kind != ImageKind::kRules)
		refuse(image.path, "is a PIM image; a rule image is needed");
	LibraryLog log;
	std::optional<Rules> rules = Rules::adopt(std::move(image.bytes));
	if (rules)
		return std::move(*rules);
	std::string cause = "was refused by the library";
	for (const std::string &line : log.take())
		cause += fmt::format(": {}", message_of(line));
	refuse(image.path, cause);
}

Map open_map(const std::string &path, const ImageOptions &options, Console &console)
{
	return open_map(read_image(path, options, console), {}, console);
}

} // namespace vexil_tool
