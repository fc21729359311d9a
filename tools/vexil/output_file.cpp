// SPDX-License-Identifier: MIT

#include "output_file.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "errors.h"
#include "handle.h"

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
char unfinished[PATH_MAX];

constexpr int kEndingSignals[] = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

extern "C" void remove_unfinished(int signal)
{
	if (unfinished[0])
		unlink(unfinished);
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

/** The file beside the output, until it takes the output's place. */
class Beside {
public:
	explicit Beside(const std::string &target) : path_(target + ".XXXXXX"), file_(make(path_))
	{
	}
	~Beside()
	{
		const SignalsHeld held;
		if (unfinished[0])
			unlink(unfinished);
		unfinished[0] = '\0';
	}
	Beside(const Beside &) = delete;
	Beside &operator=(const Beside &) = delete;

	[[nodiscard]] Handle &file() { return file_; }
	/** False with errno set. */
	[[nodiscard]] bool become(const std::string &target)
	{
		const SignalsHeld held;
		if (rename(path_.c_str(), target.c_str()) != 0)
			return false;
		unfinished[0] = '\0';
		return true;
	}

private:
	static int make(std::string &path)
	{
		if (path.size() >= sizeof unfinished) {
			errno = ENAMETOOLONG;
			return -1;
		}
		catch_ending_signals();
		const SignalsHeld held;
		const int number = mkostemp(path.data(), O_CLOEXEC);
		if (number >= 0)
			std::memcpy(unfinished, path.c_str(), path.size() + 1);
		return number;
	}

	std::string path_;
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

} // namespace

void write_output(const std::string &path, const std::vector<char> &bytes)
{
	if (path.empty() || path.ends_with('/'))
		cannot_write(path.empty() ? "''" : path, "is not the name of a file");
	std::string target = path;
	struct stat state {};
	const bool exists = stat(path.c_str(), &state) == 0;
	if (!exists && errno != ENOENT)
		cannot_write(path, errno);
	if (exists && S_ISDIR(state.st_mode))
		cannot_write(path, "is a folder");
	if (exists && !S_ISREG(state.st_mode))
		return write_directly(path, bytes);
	if (exists) {
		std::error_code error;
		const std::filesystem::path real = std::filesystem::canonical(path, error);
		if (error)
			cannot_write(path, error.value());
		target = real.string();
	}

	Beside beside(target);
	if (!beside.file())
		cannot_write(path, errno);
	const int file = beside.file().get();
	if (fchmod(file, exists ? state.st_mode & 0777 : default_mode()) != 0)
		cannot_write(path, errno);
	if (const int error = write_all(file, bytes))
		cannot_write(path, error);
	if (fsync(file) != 0 || beside.file().close() != 0 || !beside.become(target))
		cannot_write(path, errno);
}

} // namespace vexil_tool
