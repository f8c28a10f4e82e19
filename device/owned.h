#ifndef IFS_DEVICE_OWNED_H
#define IFS_DEVICE_OWNED_H

#include <dirent.h>
#include <unistd.h>

#include <memory>

/** A descriptor that is closed on every path; negative when there is none. */
class Owned_fd
{
public:
    explicit Owned_fd(int fd) : m_fd(fd) {}
    ~Owned_fd()
    {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    Owned_fd(const Owned_fd&) = delete;
    Owned_fd& operator=(const Owned_fd&) = delete;

    int get() const { return m_fd; }
    bool valid() const { return m_fd >= 0; }

private:
    int m_fd;
};

struct Directory_closer {
    void operator()(DIR* dir) const { closedir(dir); }
};

/** An open directory that is closed on every path. */
using Owned_dir = std::unique_ptr<DIR, Directory_closer>;

#endif
