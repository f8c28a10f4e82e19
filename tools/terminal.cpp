#include "tools/terminal.h"

#include <sys/ioctl.h>

size_t terminal_columns(int fd)
{
    struct winsize size = {};
    return ioctl(fd, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}
