// SPDX-License-Identifier: MIT

#include "register_names.h"

#include <fmt/format.h>

#include <vexil/tags.h>

#include "errors.h"
#include "json_input.h"
#include "product.h"

namespace vexil_tool {

void add_name_options(CLI::App &command, NameSources &names)
{
	names.command = command.get_name();
	command.add_option("--product", names.product, "Manifest or folder: names for numbers")
		->type_name("PRODUCT");
	command.add_option("--hw", names.hardware, "Hardware register lists: names")
		->type_name("FILE");
	command.add_option("--sw", names.software, "Software register lists: names")
		->type_name("FILE");
	command.add_option("--cus", names.customer, "Customer register lists: names")
		->type_name("FILE");
	command.add_option("--reginfo", names.register_info,
			   "Register table: where positions live; otherwise that of the product")
		->type_name("FILE");
}

void add_address_option(CLI::App &command, NameSources &names)
{
	command.add_flag("--address", names.address_form,
			 "Adopt the image with the register table: lists arrive in address form");
}

Form form_of(int tag)
{
	switch (tag) {
	case EXTMEM_TAG_REGISTER_SETTINGS:
	case EXTMEM_TAG_REGISTER_RIU_SETTINGS:
	case EXTMEM_TAG_REGISTER_SYNC_SETTINGS:
		return Form::kHardware;
	case EXTMEM_TAG_VREGISTER_SETTINGS:
		return Form::kSoftware;
	case EXTMEM_TAG_CUS_VREGISTER_SETTINGS:
		return Form::kCustomer;
	default:
		return Form::kAddress;
	}
}

RegisterNames::RegisterNames(const NameSources &sources, Console &console)
    : address_form_(sources.address_form)
{
	if (address_form_ && sources.product.empty() && sources.register_info.empty())
		refuse_usage(fmt::format(
			"--address needs --reginfo or --product (see 'vexil {} --help')",
			sources.command));
	Product product;
	if (!sources.product.empty())
		product = read_product(sources.product, console);
	const auto read = [&](std::vector<std::string> paths, const std::vector<std::string> &more,
			      auto add) {
		paths.insert(paths.end(), more.begin(), more.end());
		for (const std::string &path : paths)
			(lists_.*add)(read_json(path, Root::kObject, console).get(), path, nullptr);
	};
	read(product.hardware, sources.hardware, &RegisterLists::add_hardware);
	read(product.software, sources.software, &RegisterLists::add_software);
	read(product.customer, sources.customer, &RegisterLists::add_customer);
	const std::string &table =
		sources.register_info.empty() ? product.register_info : sources.register_info;
	if (!table.empty())
		table_ = RegisterTable::read(table, console);
	else if (address_form_)
		refuse(sources.product, "has no \"registerInfo\", which --address needs");
}

std::vector<ST_PQ_REG_INFO> RegisterNames::adopted_rows() const
{
	return address_form_ ? table_.rows() : std::vector<ST_PQ_REG_INFO>{};
}

std::string RegisterNames::name(Form form, u32 number) const
{
	const RegisterList &list = form == Form::kHardware   ? lists_.hardware
				   : form == Form::kSoftware ? lists_.software
							     : lists_.customer;
	if (const std::string *name = list.name_of(number))
		return *name;
	const RegisterField *field = form == Form::kHardware ? table_.field(number) : nullptr;
	return field ? field->name : "";
}

} // namespace vexil_tool
