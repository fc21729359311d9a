// SPDX-License-Identifier: MIT

#include "register_lists.h"

#include <fmt/format.h>

#include "text.h"

namespace vexil_tool {

namespace {

constexpr u64 kLastPosition = 0x7FFFFFFE;
constexpr u64 kAnyNumber = ~u64{0};
constexpr u32 kNoNumber = 0x80000000; // what the library's indexes answer for unknown names
constexpr const char *kHardwareKey = "PqHWRegList";
constexpr const char *kSoftwareKey = "PqSWRegList";
constexpr const char *kCustomerKey = "PqCusSWRegList";

void warn(Console *console, const std::string &path, const std::string &text)
{
	if (console)
		console->warn(path, text);
}

} // namespace

void RegisterList::add(const cJSON *document, const char *key, u64 largest, const std::string &path,
		       Console *console)
{
	const cJSON *entries = vexil::member(vexil::member(document, key), "register");
	if (!vexil::is_array(entries))
		return warn(console, path,
			    fmt::format("there is no \"register\" array in a \"{}\"", key));
	for (const cJSON *entry : vexil::items(entries)) {
		const cJSON *reg = entry->child;
		if (!vexil::is_number(reg) || !reg->string)
			continue; // the library says so itself
		const std::string name = reg->string;
		const auto number = static_cast<u64>(reg->valuelong);
		if (number > largest) {
			warn(console, path,
			     fmt::format("register {}: {} is not a position (0 to {}); left out",
					 name, reg->valuelong, largest));
			continue;
		}
		const std::string foreign = foreign_character(name);
		if (name.empty() || !foreign.empty()) {
			warn(console, path,
			     fmt::format("register \"{}\": names cannot {}; left out", name,
					 name.empty() ? "be empty" : "hold '" + foreign + "'"));
			continue;
		}
		const auto value = static_cast<u32>(number);
		if (value == kNoNumber)
			warn(console, path,
			     fmt::format("register {}: {} cannot be found again", name,
					 reg->valuelong));
		const auto [known, is_new] = numbers_.emplace(lowered(name), value);
		if (is_new)
			names_.emplace(value, name);
		else if (known->second != value)
			warn(console, path,
			     fmt::format("register {} is listed again; it stays at {}", name,
					 known->second));
	}
}

const std::string *RegisterList::name_of(u32 number) const
{
	const auto found = names_.find(number);
	return found == names_.end() ? nullptr : &found->second;
}

std::vector<std::string> RegisterList::all() const
{
	std::vector<std::string> names;
	for (const auto &[number, name] : names_)
		names.push_back(name);
	return names;
}

void RegisterLists::add_hardware(const cJSON *document, const std::string &path, Console *console)
{
	hardware.add(document, kHardwareKey, kLastPosition, path, console);
}

void RegisterLists::add_software(const cJSON *document, const std::string &path, Console *console)
{
	const bool has_customer = vexil::member(document, kCustomerKey) != nullptr;
	if (vexil::member(document, kSoftwareKey) || !has_customer)
		software.add(document, kSoftwareKey, kAnyNumber, path, console);
	if (has_customer)
		customer.add(document, kCustomerKey, kAnyNumber, path, console);
}

void RegisterLists::add_customer(const cJSON *document, const std::string &path, Console *console)
{
	customer.add(document, kCustomerKey, kAnyNumber, path, console);
}

} // namespace vexil_tool
