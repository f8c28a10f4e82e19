#include "tools/results.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "tools/failure.h"
#include "tools/interrupt.h"

Results::Results(bool verbose) : m_fd(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1))
{
    int library_lines = verbose ? STDERR_FILENO : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (m_fd < 0 || library_lines < 0 || dup2(library_lines, STDOUT_FILENO) < 0)
        throw Failure(ExitCode::failed, std::string("cannot redirect standard output: ") + strerror(errno));
    if (library_lines != STDERR_FILENO)
        close(library_lines);
    setvbuf(stdout, nullptr, _IOLBF, 0);
}

Results::~Results()
{
    close(m_fd);
}

void Results::write(const std::string& text)
{
    static_cast<void>(write_all(m_fd, text.data(), text.size(), "standard output"));
}

void Results::write(const nlohmann::json& document)
{
    // Paths need not be UTF-8; a byte that is not is shown as a replacement character.
    write(document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

bool write_all(int fd, const void* data, size_t size, const std::string& name)
{
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        ssize_t written = ::write(fd, next, size);
        if (written < 0 && interrupted())
            throw Failure(ExitCode::interrupted, "stopped");
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0 && errno == EPIPE)
            return false;
        if (written < 0)
            throw Failure(ExitCode::failed, "cannot write to " + name + ": " + strerror(errno));
        next += written;
        size -= static_cast<size_t>(written);
    }
    return true;
}
