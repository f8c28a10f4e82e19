/** Why a call of the container failed, in words. */
#ifndef TOOLS_CONTAINER_ERROR_H
#define TOOLS_CONTAINER_ERROR_H

#include <string>

/**
 * What is wrong with a file that the container reads or writes, and what to do about it.
 *
 * @param error  errno of the call that failed
 * @return the second half of a sentence; "it" is the file
 */
std::string container_error_text(int error);

#endif
