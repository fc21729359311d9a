// SPDX-License-Identifier: MIT
//
// Places in images, for tests that damage them.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace vexil_test {

inline constexpr size_t kCodeVersion = 72; // u16 major, u16 minor
inline constexpr size_t kKind = 80;
inline constexpr size_t kImageSize = 84;
inline constexpr size_t kNodeFigures = 88; // bytes in use, capacity
inline constexpr size_t kNodesBegin = 96;
inline constexpr size_t kNodeBytes = 16;
// Within a node that has links.
inline constexpr size_t kTag = 2;
inline constexpr size_t kChild = 3;
inline constexpr size_t kNext = 5;
inline constexpr uint8_t kFirstDataTag = 33;

inline uint32_t word_at(const std::string &image, size_t at)
{
	uint32_t word;
	std::memcpy(&word, image.data() + at, sizeof word);
	return word;
}

inline uint16_t half_at(const std::string &image, size_t at)
{
	uint16_t half;
	std::memcpy(&half, image.data() + at, sizeof half);
	return half;
}

inline void put_word(std::string &image, size_t at, uint32_t word)
{
	std::memcpy(image.data() + at, &word, sizeof word);
}

inline void put_half(std::string &image, size_t at, uint16_t half)
{
	std::memcpy(image.data() + at, &half, sizeof half);
}

} // namespace vexil_test
