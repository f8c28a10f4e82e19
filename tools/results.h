/** Standard output, kept for a command's results. */
#ifndef TOOLS_RESULTS_H
#define TOOLS_RESULTS_H

#include <nlohmann/json.hpp>
#include <string>

/**
 * Takes standard output over. What the library prints there goes to standard error from then on, or nowhere.
 */
class Results
{
public:
    /** Throws Failure (failed) when no descriptor is free. @param verbose  show the library's messages */
    explicit Results(bool verbose);
    ~Results();
    Results(const Results&) = delete;
    Results& operator=(const Results&) = delete;

    /**
     * Write text as it is. What a pipe's reader no longer wants is dropped. Throws Failure (failed) on an
     * error.
     */
    void write(const std::string& text);
    void write(const nlohmann::json& document);

    /** The descriptor that standard output was. */
    int fd() const { return m_fd; }

private:
    int m_fd;
};

/**
 * Write all bytes to a descriptor. Throws Failure: failed, interrupted.
 *
 * @param name  what the message calls it
 * @return false: it is a pipe, and its reader has gone, as head does when it has enough
 */
[[nodiscard]] bool write_all(int fd, const void* data, size_t size, const std::string& name);

#endif
