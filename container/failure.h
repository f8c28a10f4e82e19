/** How calls fail: errno says why, and survives what is done on the way out. */
#ifndef CONTAINER_FAILURE_H
#define CONTAINER_FAILURE_H

#include <cerrno>

namespace ifs_mp4
{

/** Set errno. @return -1, as a call of the container that fails */
inline int failure(int error)
{
    errno = error;
    return -1;
}

/** Set errno. @return false */
inline bool fail(int error)
{
    errno = error;
    return false;
}

/** Keeps errno as it is where this is declared. */
class KeptErrno
{
public:
    KeptErrno() = default;
    ~KeptErrno() { errno = m_error; }
    KeptErrno(const KeptErrno&) = delete;
    KeptErrno& operator=(const KeptErrno&) = delete;

private:
    int m_error = errno;
};

} // namespace ifs_mp4

#endif
