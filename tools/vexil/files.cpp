// SPDX-License-Identifier: MIT

#include "files.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "errors.h"
#include "handle.h"

namespace vexil_tool {

std::vector<char> read_file(const std::string &path)
{
	// Without O_NONBLOCK a pipe would block here before it can be told from a file.
	const Handle file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
	struct stat state {};
	if (!file || fstat(file.get(), &state) != 0)
		refuse(path, std::strerror(errno));
	if (S_ISDIR(state.st_mode))
		refuse(path, "is a folder");
	if (!S_ISREG(state.st_mode))
		refuse(path, "is not a regular file");

	std::vector<char> bytes;
	// A file may grow while it is read, and some in /proc have no size.
	for (size_t used = 0;;) {
		if (used == bytes.size()) {
			const auto known = static_cast<size_t>(state.st_size);
			if (used > kLargestFile || known > kLargestFile)
				refuse(path, "is larger than 512 MiB");
			bytes.resize(used < known ? known + 1 : 2 * used + 4096);
		}
		const ssize_t count = read(file.get(), bytes.data() + used, bytes.size() - used);
		if (count < 0 && errno == EINTR)
			continue;
		if (count < 0)
			refuse(path, std::strerror(errno));
		if (count == 0) {
			bytes.resize(used);
			break;
		}
		used += static_cast<size_t>(count);
	}
	if (bytes.empty())
		refuse(path, "is empty");
	if (bytes.size() > kLargestFile)
		refuse(path, "is larger than 512 MiB");
	return bytes;
}

} // namespace vexil_tool
