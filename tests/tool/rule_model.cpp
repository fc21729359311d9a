// SPDX-License-Identifier: MIT
#include "tests/tool/rule_model.h"

#include <algorithm>
#include <regex>
#include <sstream>
#include <stdexcept>

namespace vexil_test {

// The states that the television's README describes.
const std::string kFilm =
	"Input:HDMI1;Timing:2160p60;ColorFormat:Yuv422_12;Colorimetry:Bt2020;"
	"Range:Limited;HdrType:Hdr10;Signal:Good;Genre:Film;ContentHint:Cinema;"
	"Cadence:Film32;StillArea:Letterbox;PictureMode:Movie;UserSharpness:Level25;"
	"UserContrast:High;UserNoise:Auto;UserMotion:Cinema;UserColorTemp:Warm2;"
	"UserDimming:High;RoomMode:Auto;OsdPlane:Subtitle;Site:Home;Luma:812;"
	"AmbientLux:12;NoiseLevel:9;PanelTemp:382;FrameRate:5994;PeakNits:1000;"
	"AverageNits:400;FaceArea:180";
const std::string kComposite =
	"Input:Composite1;Timing:576i50;ColorFormat:Cvbs;Colorimetry:Bt601_625;"
	"ColorSystem:Pal_BG;Signal:Good;Genre:Football;Cadence:Video;StillArea:Logo;"
	"PictureMode:Standard;UserSharpness:Level50;UserContrast:Mid;UserNoise:Auto;"
	"UserMotion:Smooth;UserTint:P25;UserColorTemp:Neutral;UserDimming:Mid;"
	"RoomMode:Auto;Luma:430;AmbientLux:160;NoiseLevel:64;PanelTemp:95;FrameRate:5000;"
	"Impulses:14;ScrollSpeed:2";
const std::string kGaming =
	"Input:DisplayPort;Timing:2160p120;ColorFormat:Rgb444_10;Colorimetry:Srgb;"
	"Range:Full;HdrType:Sdr;Signal:Good;Genre:Game;ContentHint:Game;LowLatency:On;"
	"Vrr:On;PictureMode:Game;UserSharpness:Level25;UserContrast:High;UserNoise:Mid;"
	"UserMotion:Clear;UserDimming:High;RoomMode:Night;Grab:LightBar;Luma:260;"
	"AmbientLux:6;NoiseLevel:3;PanelTemp:471;FrameRate:11988;BlockEdge:60;TextArea:90";

namespace {

bool in_interval(const std::string &text, uint64_t number)
{
	static const std::regex interval(R"(\s*([\[(])\s*(\w+)\s*,\s*(\w+)\s*([\])])\s*)");
	std::smatch parts;
	if (!std::regex_match(text, parts, interval))
		throw std::runtime_error("no interval: " + text);
	const uint64_t first = std::stoull(parts[2], nullptr, 0);
	const uint64_t last = std::stoull(parts[3], nullptr, 0);
	return (parts[1] == "[" ? number >= first : number > first) &&
	       (parts[4] == "]" ? number <= last : number < last);
}

} // namespace

RuleModel::RuleModel(const std::string &folder)
{
	const Json manifest = read_json(folder + "/product.json");
	for (const Json &path : manifest["sources"]) {
		const Json document = read_json(folder + "/" + path.get<std::string>());
		for (const auto &[name, source] : document.at("PqRuleLists").items()) {
			if (source.is_object() && source.contains("content"))
				sources[name] = source;
		}
	}
	for (const Json &path : manifest["rules"]) {
		const Json document = read_json(folder + "/" + path.get<std::string>());
		for (const auto &[name, rule] : document.at("PqRuleGroups").items()) {
			if (!rule.is_object() || !rule.contains("rules"))
				continue;
			if (rules_.emplace(name, rule).second)
				order_.push_back(name);
		}
	}
}

RuleModel::Values RuleModel::read(const std::string &filter) const
{
	Values values;
	std::istringstream stream(filter);
	for (std::string token; std::getline(stream, token, ';');) {
		const size_t colon = token.find(':');
		const std::string source = token.substr(0, colon);
		const std::string value = token.substr(colon + 1);
		if (sources.at(source)["content"].is_array())
			values.named[source] = value;
		else
			values.numbers[source] = std::stoull(value, nullptr, 0);
	}
	return values;
}

bool RuleModel::holds(const Values &values, const std::string &source, const Json &wanted) const
{
	const Json &declared = sources.at(source);
	const auto number = [&](const std::string &name) {
		const auto found = values.numbers.find(name);
		return found == values.numbers.end() ? uint64_t{0} : found->second;
	};
	if (!declared["content"].is_array())
		return in_interval(wanted, number(source));
	if (wanted.is_array())
		return std::any_of(wanted.begin(), wanted.end(),
				   [&](const Json &item) { return holds(values, source, item); });
	if (!declared.contains("define")) {
		const auto found = values.named.find(source);
		return found != values.named.end() && found->second == wanted.get<std::string>();
	}
	for (const auto &[name, range] : declared["define"].at(wanted.get<std::string>()).items()) {
		if (!in_interval(range, number(name)))
			return false;
	}
	return true;
}

void RuleModel::evaluate(const Values &values, const std::string &rule, Selection &selection) const
{
	const Json &cases = rules_.at(rule)["rules"];
	const size_t place = selection.matched.size();
	selection.matched.emplace_back(rule, 0);
	for (size_t i = 0; i < cases.size(); ++i) {
		const Json &comparator = cases[i]["comparator"];
		bool match = true;
		for (const auto &[source, wanted] : comparator.items())
			match = match && holds(values, source, wanted);
		if (!match)
			continue;
		selection.matched[place].second = i + 1;
		for (const Json &label : cases[i]["settings"])
			selection.labels.push_back(label);
		for (const Json &child : cases[i]["children"])
			evaluate(values, child.get<std::string>(), selection);
		return;
	}
}

void RuleModel::evaluate(const std::string &filter, const std::string &rule,
			 Selection &selection) const
{
	evaluate(read(filter), rule, selection);
}

ExpectedRegisters registers_of(const std::vector<std::string> &labels, const Model &model)
{
	ExpectedRegisters registers;
	for (const bool presets : {false, true}) {
		for (const std::string &label : labels) {
			const ExpectedConfig &config = model.config(label);
			if ((config.kind == "preset") != presets)
				continue;
			for (const ExpectedBlock &block : config.blocks) {
				for (const auto &[number, value] : block.pairs)
					registers[block.tag][number] = {value, label};
			}
		}
	}
	return registers;
}

} // namespace vexil_test
