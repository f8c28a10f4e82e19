#include "tools/output_file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tools/failure.h"
#include "tools/results.h"

namespace
{

[[noreturn]] void fail(const std::string& doing, const std::string& path)
{
    throw Failure(ExitCode::failed, "cannot " + doing + " '" + path + "': " + strerror(errno));
}

bool is_pipe_or_device(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
}

} // namespace

PartFile::PartFile(const std::string& path)
    : m_path(path), m_part_path(path + ".part" + std::to_string(getpid()))
{
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0)
        throw Failure(ExitCode::refused, "'" + path + "' exists; remove it or name another file");
}

PartFile::~PartFile()
{
    if (!m_part_path.empty())
        unlink(m_part_path.c_str());
}

void PartFile::keep()
{
    if (rename(m_part_path.c_str(), m_path.c_str()) != 0)
        fail("rename to", m_path);
    m_part_path.clear();
}

OutputFile::OutputFile(const std::string& path, int standard_output)
    : m_name(path == "-" ? "standard output" : "'" + path + "'"), m_fd(standard_output)
{
    if (path == "-") {
        if (isatty(m_fd))
            throw Failure(ExitCode::usage,
                          "frames are no text for a terminal; pipe them, or name a file with --output");
        return;
    }
    std::string opened = path;
    int flags = O_WRONLY;
    if (!is_pipe_or_device(path)) {
        m_part = std::make_unique<PartFile>(path);
        opened = m_part->part_path();
        flags |= O_CREAT | O_EXCL;
    }
    m_fd = m_own_fd = open(opened.c_str(), flags | O_CLOEXEC, 0666);
    if (m_fd < 0)
        fail("create", path);
}

OutputFile::~OutputFile()
{
    if (m_own_fd >= 0)
        close(m_own_fd);
}

bool OutputFile::write(const void* data, size_t size)
{
    return write_all(m_fd, data, size, m_name);
}

void OutputFile::finish()
{
    if (!m_part)
        return;
    int fd = m_own_fd;
    m_own_fd = -1;
    if (close(fd) != 0)
        fail("write", m_name);
    m_part->keep();
}
