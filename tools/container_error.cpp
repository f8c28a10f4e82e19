#include "tools/container_error.h"

#include <cerrno>
#include <cstring>

namespace
{

struct Reason {
    int error;
    const char* text;
};

/** What needs other words than the system has for it. */
constexpr Reason reasons[] = {
    {EEXIST, "it exists; name another file"},
    {ENOENT, "it or its folder does not exist"},
    {EBADMSG, "it is damaged; leave it out"},
    {ENODATA, "no key frame with parameter sets comes in that time; take a longer time"},
    {EILSEQ, "a frame is no H.264 or AAC; leave that time out"},
    {EMSGSIZE, "a frame in it is larger than 8 MiB; leave that time out"},
    {EFBIG, "it would pass what one file can hold; take a shorter time"},
    {ENOTSUP, "it is of another version, or larger than this one reads; use a newer ifsctl"},
    {ENOSPC, "no room is left; make room or choose another folder"},
};

} // namespace

std::string container_error_text(int error)
{
    for (const Reason& reason : reasons) {
        if (reason.error == error)
            return reason.text;
    }
    return strerror(error);
}
