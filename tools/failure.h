/** How a command ends when it cannot do what was asked. */
#ifndef TOOLS_FAILURE_H
#define TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

/** Exit codes of ifsctl, as its help lists them. */
enum class ExitCode : int {
    ok = 0,
    failed = 1,        /**< the system failed: read, write, out of memory */
    usage = 2,         /**< wrong option, argument, time or size */
    no_card = 3,       /**< no card at the path, or another process uses it */
    not_formatted = 4, /**< the card holds no file system that can be mounted */
    card_full = 5,
    bad_media = 6,     /**< the input or the recordings cannot be used for this */
    nothing_found = 7, /**< no recording at that time */
    refused = 8,       /**< answered no, or it would overwrite something */
    problem = 9,       /**< a check has found one */
    interrupted = 130  /**< stopped by a signal, after a clean close */
};

/** Ends a command: one sentence that says what is wrong and what to do, and the exit code. */
class Failure : public std::runtime_error
{
public:
    Failure(ExitCode code, const std::string& sentence) : std::runtime_error(sentence), m_code(code) {}
    ExitCode code() const { return m_code; }

private:
    ExitCode m_code;
};

#endif
