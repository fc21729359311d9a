// SPDX-License-Identifier: MIT

#include "output_file.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "console.h"
#include "errors.h"
#include "handle.h"
#include "text.h"

namespace vexil_tool {

namespace {

[[noreturn]] void cannot_write(const std::string &path, const std::string &cause)
{
	throw Failure(Exit::kCannotWrite, "cannot write " + path + ": " + cause);
}

[[noreturn]] void cannot_write(const std::string &path, int error)
{
	cannot_write(path, std::strerror(error));
}

// What a signal that ends the program has to remove. Written while those signals are held back.
char unfinished[kMostOutputs][PATH_MAX];

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

extern "C" void remove_unfinished(int signal)
{
	for (const char *path : unfinished) {
		if (path[0])
			unlink(path);
	}
	std::signal(signal, SIG_DFL);
	std::raise(signal);
}

/** Holds back the signals that end the program. */
class SignalsHeld {
public:
	SignalsHeld()
	{
		sigset_t ending;
		sigemptyset(&ending);
		for (const int signal : kEndingSignals)
			sigaddset(&ending, signal);
		sigprocmask(SIG_BLOCK, &ending, &before_);
	}
	~SignalsHeld() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
	SignalsHeld(const SignalsHeld &) = delete;
	SignalsHeld &operator=(const SignalsHeld &) = delete;

private:
	sigset_t before_;
};

void catch_ending_signals()
{
	for (const int signal : kEndingSignals) {
		struct sigaction now {};
		// One that is ignored (nohup) stays so.
		if (sigaction(signal, nullptr, &now) == 0 && now.sa_handler == SIG_IGN)
			continue;
		struct sigaction ours {};
		ours.sa_handler = remove_unfinished;
		sigaction(signal, &ours, nullptr);
	}
	// A file that grows beyond its limit is an error of write like others.
	std::signal(SIGXFSZ, SIG_IGN);
}

/** The file beside an output, until it takes the output's place. */
class Beside {
public:
	Beside(const std::string &target, char (&unfinished_path)[PATH_MAX])
	    : target_(target), path_(target + ".XXXXXX"), unfinished_(unfinished_path),
	      file_(make())
	{
	}
	~Beside()
	{
		const SignalsHeld held;
		if (unfinished_[0])
			unlink(unfinished_);
		unfinished_[0] = '\0';
	}
	Beside(const Beside &) = delete;
	Beside &operator=(const Beside &) = delete;

	[[nodiscard]] Handle &file() { return file_; }
	/** False with errno set. */
	[[nodiscard]] bool take_place()
	{
		const SignalsHeld held;
		if (rename(path_.c_str(), target_.c_str()) != 0)
			return false;
		unfinished_[0] = '\0';
		return true;
	}

private:
	int make()
	{
		if (path_.size() >= sizeof unfinished_) {
			errno = ENAMETOOLONG;
			return -1;
		}
		catch_ending_signals();
		const SignalsHeld held;
		const int number = mkostemp(path_.data(), O_CLOEXEC);
		if (number >= 0)
			std::memcpy(unfinished_, path_.c_str(), path_.size() + 1);
		return number;
	}

	std::string target_;
	std::string path_;
	char (&unfinished_)[PATH_MAX];
	Handle file_;
};

/** 0, or the error. */
int write_all(int file, const std::vector<char> &bytes)
{
	for (size_t done = 0; done < bytes.size();) {
		const ssize_t count = write(file, bytes.data() + done, bytes.size() - done);
		if (count < 0 && errno == EINTR)
			continue;
		if (count < 0)
			return errno;
		done += static_cast<size_t>(count);
	}
	return 0;
}

void write_directly(const std::string &path, const std::vector<char> &bytes)
{
	// A pipe that nobody reads is an error, not a reason to wait.
	Handle file(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
	if (!file)
		cannot_write(path, errno);
	fcntl(file.get(), F_SETFL, fcntl(file.get(), F_GETFL) & ~O_NONBLOCK);
	if (const int error = write_all(file.get(), bytes))
		cannot_write(path, error);
	if (file.close() != 0)
		cannot_write(path, errno);
}

mode_t default_mode()
{
	const mode_t mask = umask(0);
	umask(mask);
	return 0666 & ~mask;
}

/** What is to be replaced: the path, or what it leads to; and its mode. */
struct Target {
	std::string path;
	mode_t mode;
};

Target target_of(const std::string &path)
{
	if (path.empty() || path.ends_with('/'))
		cannot_write(path.empty() ? "''" : path, "is not the name of a file");
	struct stat state {};
	const bool exists = stat(path.c_str(), &state) == 0;
	if (!exists && errno != ENOENT)
		cannot_write(path, errno);
	if (!exists)
		return {path, default_mode()};
	if (S_ISDIR(state.st_mode))
		cannot_write(path, "is a folder");
	std::error_code error;
	const std::filesystem::path real = std::filesystem::canonical(path, error);
	if (error)
		cannot_write(path, error.value());
	return {real.string(), state.st_mode & 0777};
}

/** The whole output in a file beside it. */
std::unique_ptr<Beside> prepare(const Output &output, char (&unfinished_path)[PATH_MAX])
{
	const Target target = target_of(output.path);
	auto beside = std::make_unique<Beside>(target.path, unfinished_path);
	if (!beside->file())
		cannot_write(output.path, errno);
	const int file = beside->file().get();
	if (fchmod(file, target.mode) != 0)
		cannot_write(output.path, errno);
	if (const int error = write_all(file, output.bytes))
		cannot_write(output.path, error);
	if (fsync(file) != 0 || beside->file().close() != 0)
		cannot_write(output.path, errno);
	return beside;
}

/** The path without links; a file that does not exist yet is where its folder is. */
std::filesystem::path resolved(const std::filesystem::path &path)
{
	std::error_code error;
	std::filesystem::path real = std::filesystem::canonical(path, error);
	if (!error)
		return real;
	const std::filesystem::path folder = path.has_parent_path() ? path.parent_path() : ".";
	real = std::filesystem::canonical(folder, error);
	return (error ? folder : real) / path.filename();
}

/** Whether writing to one path would change what the other leads to. */
} // namespace

bool is_same_file(const std::string &one, const std::string &other)
{
	struct stat first {};
	struct stat second {};
	if (stat(one.c_str(), &first) == 0 && stat(other.c_str(), &second) == 0 &&
	    first.st_dev == second.st_dev && first.st_ino == second.st_ino)
		return true;
	return resolved(one) == resolved(other);
}

bool is_device(const std::string &path)
{
	struct stat state {};
	return stat(path.c_str(), &state) == 0 && !S_ISREG(state.st_mode) &&
	       !S_ISDIR(state.st_mode);
}

std::string rules_beside(const std::string &path)
{
	return std::filesystem::path(path).replace_extension(".rule").string();
}

void check_outputs(const std::string &map, const std::string &rules, const char *command)
{
	if (is_same_file(map, rules))
		refuse_usage(fmt::format("{} would be both images; name one with --rules-out "
					 "(see 'vexil {} --help')",
					 map, command));
}

void say_rules_not_written(const std::string &map)
{
	fmt::print("the rules are not written: {} is no regular file (--rules-out FILE)\n",
		   printable(map));
}

void warn_of_older_rules(const std::vector<Output> &outputs)
{
	const std::string &map = outputs[0].path;
	const std::string rules = rules_beside(map);
	std::error_code ignored;
	if (is_device(map) || !std::filesystem::is_regular_file(rules, ignored))
		return;
	for (const Output &output : outputs) {
		if (is_same_file(output.path, rules))
			return;
	}
	Console().warn(map, rules + " beside it is older and was not written");
}

void write_outputs(const std::vector<Output> &outputs)
{
	std::vector<std::unique_ptr<Beside>> prepared;
	for (size_t i = 0; i < outputs.size(); ++i)
		prepared.push_back(is_device(outputs[i].path) ? nullptr
							      : prepare(outputs[i], unfinished[i]));
	for (size_t i = 0; i < outputs.size(); ++i) {
		if (!prepared[i])
			write_directly(outputs[i].path, outputs[i].bytes);
	}
	for (size_t i = 0; i < outputs.size(); ++i) {
		if (prepared[i] && !prepared[i]->take_place())
			cannot_write(outputs[i].path, errno);
	}
}

} // namespace vexil_tool
