// SPDX-License-Identifier: MIT
//
// What fuzzers share: reading a script out of an input, ending the program where something is not
// as it must be, and the platform's memory under control.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vexil_fuzz {

/** Says @what and ends the program, so that the input is kept, unless @holds. */
void require(bool holds, const char *what);

/** Blocks of the library that are allocated now. */
std::size_t live_blocks();

/** Calls of the allocator, refused ones included, since the program began. */
std::size_t allocations();

/** Refuses the @nth allocation from now (1 is the next), and with @all_later what follows; 0: none.
 */
void refuse(std::size_t nth, bool all_later);

/** Whether an allocation was refused since refuse() was called. */
bool refused();

/** What was logged since the last call. Kept up to 64 KiB. */
std::string take_log();

/**
 * Whether a report whose format holds @part was logged since the last take_log(): texts of the log
 * may come from the input, formats do not. Looks at formats that begin with "[".
 */
bool was_logged(const char *part);

/** Pieces of text that were logged since the program began. */
std::size_t messages();

/** Demands that no block is left of what was allocated within its scope; lifts refusals. */
class Blocks {
public:
	Blocks() : before_(live_blocks()) { refuse(0, false); }
	~Blocks()
	{
		refuse(0, false);
		require(live_blocks() == before_, "a block is left");
		take_log();
	}
	Blocks(const Blocks &) = delete;
	Blocks &operator=(const Blocks &) = delete;

private:
	std::size_t before_;
};

/** A script in bytes. Reading past its end gives zeros. */
class Bytes {
public:
	Bytes(const std::uint8_t *data, std::size_t size) : at_(data), end_(data + size) {}

	[[nodiscard]] bool empty() const { return at_ == end_; }
	[[nodiscard]] std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }

	std::uint8_t u8() { return at_ == end_ ? std::uint8_t{0} : *at_++; }
	std::uint16_t u16()
	{
		const unsigned low = u8();
		return static_cast<std::uint16_t>(low | unsigned{u8()} << 8);
	}
	std::uint32_t u32()
	{
		const std::uint32_t low = u16();
		return low | std::uint32_t{u16()} << 16;
	}
	std::uint64_t u64()
	{
		const std::uint64_t low = u32();
		return low | std::uint64_t{u32()} << 32;
	}
	/** From @low to @high, both included; takes as many bytes as the span needs. */
	std::uint32_t range(std::uint32_t low, std::uint32_t high)
	{
		const std::uint64_t span = std::uint64_t{high} - low + 1;
		const std::uint32_t value = span <= 0x100 ? u8() : span <= 0x10000 ? u16() : u32();
		return low + static_cast<std::uint32_t>(value % span);
	}
	/** @count bytes, or what is left. */
	std::string text(std::size_t count)
	{
		if (count > left())
			count = left();
		std::string text(reinterpret_cast<const char *>(at_), count);
		at_ += count;
		return text;
	}
	/** What is left. */
	std::string rest() { return text(left()); }

private:
	const std::uint8_t *at_;
	const std::uint8_t *end_;
};

} // namespace vexil_fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);
