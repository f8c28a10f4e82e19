/** What is known of a terminal. */
#ifndef TOOLS_TERMINAL_H
#define TOOLS_TERMINAL_H

#include <cstddef>

/** Columns of the terminal behind a descriptor; 0 when it is none, or its size is not known. */
size_t terminal_columns(int fd);

#endif
